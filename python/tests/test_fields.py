import gc

import numpy as np
import pytest

import tundrel

S = tundrel.SelectionState


def two_blocks():
    """A 3 x 2 structured block and a block of two triangles."""
    fm = tundrel.FieldMaster()
    fm.addBlock(tundrel.BlockLayout.structured(3, 2, name="grid"), np.arange(18.0).reshape(6, 3))
    fm.addBlock(tundrel.BlockLayout.faces(4, [[0, 1, 2], [2, 1, 3]], "tri"), np.ones((4, 3)))
    return fm


def test_function_values_are_views_in_block_order():
    fm = two_blocks()
    cp = fm.addScalar("cp", 2.0)
    assert cp.kind == tundrel.FunctionKind.Scalar
    assert cp.values.shape == (10,) and np.all(cp.values == 2.0)
    cp.block(1)[:] = [5, 6, 7, 8]
    assert np.shares_memory(cp.values, cp.block(1))
    assert list(cp.values[fm.offset(1):]) == [5, 6, 7, 8]
    assert fm["cp"].values[6] == 5 and fm[0] is not None


def test_vector_values_skip_the_vector_table():
    fm = two_blocks()
    n = fm.addVector("$_N")
    vals = n.values
    assert vals.shape == (10, 3) and vals.strides[1] == 8
    vals[:] = np.arange(30.0).reshape(10, 3)
    again = fm["$_N"].values
    np.testing.assert_array_equal(again, np.arange(30.0).reshape(10, 3))
    np.testing.assert_array_equal(fm.positions[6:], np.ones((4, 3)))
    assert fm.position(0, 1) == (3.0, 4.0, 5.0)


def test_function_views_outlive_the_container():
    fm = two_blocks()
    view = fm.addScalar("cp", 4.5).values
    del fm
    gc.collect()
    assert np.all(view == 4.5)


@pytest.mark.parametrize(
    "grid, tri, whole, first",
    [
        ([0] * 6, [0] * 4, S.NothingSelected, S.NothingSelected),
        ([1] * 6, [1] * 4, S.AllSelected, S.AllSelected),
        ([1] * 6, [0] * 4, S.AllSelected, S.AllSelected),  # whole blocks count as all
        ([1] * 5 + [0], [1] * 4, S.PartlySelected, S.PartlySelected),
        ([0] * 6, [0, 0, 9, 0], S.PartlySelected, S.NothingSelected),
    ],
)
def test_selection_states(grid, tri, whole, first):
    fm = two_blocks()
    fm.addSelection().values[:] = grid + tri
    assert fm.selectionState() == whole
    assert fm.blockSelectionState(0) == first
    assert fm.isSelected(1, 2) == tri[2]


class TestRefusals:
    def test_blocks_after_functions_are_a_state_error(self):
        fm = two_blocks()
        fm.addScalar("cp")
        with pytest.raises(tundrel.StateError) as info:
            fm.addBlock(tundrel.BlockLayout.structured(1, 1), np.zeros((1, 3)))
        assert (info.value.message, info.value.code) == ("State error!", 5)

    def test_blocks_while_positions_are_viewed(self):
        fm = two_blocks()
        view = fm.z
        with pytest.raises(ValueError, match="view of this container's positions is alive"):
            fm.addBlock(tundrel.BlockLayout.structured(1, 1), np.zeros((1, 3)))
        del view
        gc.collect()
        assert fm.addBlock(tundrel.BlockLayout.structured(1, 1), np.zeros((1, 3))) == 2

    @pytest.mark.parametrize(
        "layout, positions, problem",
        [
            (tundrel.BlockLayout.structured(2, 2), np.zeros((3, 3)), "4 nodes and 3 positions"),
            (tundrel.BlockLayout.faces(3, [[0, 1, 3]]), np.zeros((3, 3)), "triangle node 3"),
            (tundrel.BlockLayout.faces(3, [0, 1]), np.zeros((3, 3)), "three node numbers"),
            (tundrel.BlockLayout.structured(2, 2), np.zeros((4, 2)), r"\(n, 3\)"),
            (tundrel.BlockLayout.structured(2, 2, 2), np.zeros((4, 3)), "8 nodes and 4 positions"),
        ],
    )
    def test_inconsistent_blocks(self, layout, positions, problem):
        with pytest.raises(ValueError, match=problem):
            tundrel.FieldMaster().addBlock(layout, positions)

    def test_layouts_edited_after_making_are_checked(self):
        grid = tundrel.BlockLayout.structured(2, 2)
        grid.layers = 2
        with pytest.raises(ValueError, match=r"rowLength \* rows \* layers == nodes"):
            tundrel.FieldMaster().addBlock(grid, np.zeros((4, 3)))
        tri = tundrel.BlockLayout.faces(3, [[0, 1, 2]])
        tri.faceIndex = [0, 1, 3, -1]
        with pytest.raises(ValueError, match="faceIndex entry 3"):
            tundrel.FieldMaster().addBlock(tri, np.zeros((3, 3)))

    def test_lookup_errors_carry_their_lines(self):
        fm = two_blocks()
        with pytest.raises(tundrel.IndexError) as info:
            fm.selection()
        assert (info.value.file, info.value.line) == ("..\\api\\field_selection.h", 26)
        with pytest.raises(tundrel.IndexError) as info:
            fm.functionAt(fm.findFunction("absent"))
        assert (info.value.file, info.value.line) == ("..\\api\\geo.h", 804)
        fm.addSelection()
        with pytest.raises(tundrel.IndexError) as info:
            fm.isSelected(2, 0)
        assert info.value.line == 117
        with pytest.raises(KeyError):
            fm["absent"]
