"""The field container through NumPy: views, their lifetimes, and the checks
the binding adds before a block reaches the library."""

import gc

import numpy as np
import pytest

import tundrel


def two_blocks():
    """A 3 x 2 structured block and a block of two triangles."""
    fm = tundrel.FieldMaster()
    fm.addBlock(tundrel.BlockLayout.structured(3, 2, name="grid"), np.arange(18.0).reshape(6, 3))
    fm.addBlock(tundrel.BlockLayout.faces(4, [[0, 1, 2], [2, 1, 3]], "tri"), np.ones((4, 3)))
    return fm


def test_function_values_are_views_in_block_order_that_outlive_the_container():
    fm = two_blocks()
    cp = fm.addScalar("cp", 2.0)
    assert cp.values.shape == (10,) and np.all(cp.values == 2.0)
    cp.block(1)[:] = [5, 6, 7, 8]
    assert list(fm["cp"].values[fm.offset(1):]) == [5, 6, 7, 8]
    n = fm.addVector("$_N").values  # (n, 3) doubles, straight over the vectors
    assert n.shape == (10, 3) and n.strides[1] == 8
    n[:] = np.arange(30.0).reshape(10, 3)
    np.testing.assert_array_equal(fm["$_N"].values, np.arange(30.0).reshape(10, 3))
    np.testing.assert_array_equal(fm.positions[6:], np.ones((4, 3)))
    assert fm.position(0, 1) == (3.0, 4.0, 5.0)
    del fm, cp
    gc.collect()
    np.testing.assert_array_equal(n, np.arange(30.0).reshape(10, 3))


def test_blocks_wait_until_no_position_view_is_alive():
    fm = two_blocks()
    view = fm.z
    with pytest.raises(ValueError, match="view of this container's positions is alive"):
        fm.addBlock(tundrel.BlockLayout.structured(1, 1), np.zeros((1, 3)))
    del view
    gc.collect()
    assert fm.addBlock(tundrel.BlockLayout.structured(1, 1), np.zeros((1, 3))) == 2


def edited(layout, **fields):
    for k, v in fields.items():
        setattr(layout, k, v)
    return layout


@pytest.mark.parametrize(
    "layout, positions, problem",
    [
        (tundrel.BlockLayout.structured(2, 2), np.zeros((3, 3)), "4 nodes and 3 positions"),
        (tundrel.BlockLayout.faces(3, [[0, 1, 3]]), np.zeros((3, 3)), "triangle node 3"),
        (tundrel.BlockLayout.faces(3, [0, 1]), np.zeros((3, 3)), "three node numbers"),
        (tundrel.BlockLayout.structured(2, 2), np.zeros((4, 2)), r"\(n, 3\)"),
        (tundrel.BlockLayout.structured(2, 2, 2), np.zeros((4, 3)), "8 nodes and 4 positions"),
        # layouts edited after they were made are checked as well
        (edited(tundrel.BlockLayout.structured(2, 2), layers=2), np.zeros((4, 3)), r"rowLength \* rows \* layers"),
        (edited(tundrel.BlockLayout.faces(3, [[0, 1, 2]]), faceIndex=[0, 1, 3, -1]), np.zeros((3, 3)),
         "faceIndex entry 3"),
    ],
)
def test_inconsistent_blocks_are_refused(layout, positions, problem):
    with pytest.raises(ValueError, match=problem):
        tundrel.FieldMaster().addBlock(layout, positions)


def test_library_errors_carry_their_fields():
    fm = two_blocks()
    fm.addScalar("cp")
    with pytest.raises(tundrel.StateError) as info:
        fm.addBlock(tundrel.BlockLayout.structured(1, 1), np.zeros((1, 3)))
    assert (info.value.message, info.value.code) == ("State error!", 5)
    with pytest.raises(tundrel.IndexError) as info:
        fm.functionAt(fm.findFunction("absent"))
    e = info.value
    assert (e.message, e.code, e.file, e.line) == ("Index error!", 1, "..\\api\\geo.h", 804)
    assert isinstance(e, IndexError) and isinstance(e, tundrel.GenericError) and "Index error! (code 1" in str(e)
    with pytest.raises(KeyError):
        fm["absent"]
