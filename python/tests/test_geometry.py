import gc

import numpy as np
import pytest

import tundrel


def test_values_view_the_library_memory(make_grid):
    reg = tundrel.region()
    reg.append(make_grid(4, 3, extra=["cp"]))
    cp = reg.patch(0)["cp"]
    a, b = cp.values, reg.patch(0).variable(3).values
    assert np.shares_memory(a, b)
    a[5] = 123.0
    assert b[5] == 123.0
    assert cp.grid.shape == (1, 3, 4)
    # node (i, j) sits at i + I*j
    assert cp.grid[0, 1, 2] is not None and cp.grid[0, 1, 2] == cp.values[2 + 4 * 1]


def test_views_keep_their_owner_alive(make_grid):
    reg = tundrel.region()
    reg.append(make_grid(5, 2, extra=["cp"]))
    view = reg.patch(0)["cp"].values
    expected = view.copy()
    faces = tundrel.FacePatch(3, 4, 1)
    index = faces.faceIndex
    del reg, faces
    gc.collect()
    junk = [np.full(10, 7.0) for _ in range(1000)]  # reuse freed memory if it was freed
    assert np.array_equal(view, expected)
    assert list(index) == [-1, -1, -1, -1]
    del junk


def test_assigning_values_copies_and_checks_the_size(make_grid):
    p = make_grid(3, 2)
    v = p.addVariable("cp")
    view = v.values
    v.values = [1, 2, 3, 4, 5, 6]
    assert list(view) == [1, 2, 3, 4, 5, 6]
    with pytest.raises(ValueError, match="holds 6 values; got 5"):
        v.values = np.zeros(5)
    assert np.asarray(v, dtype=np.float32).dtype == np.float32


def test_apt_round_trip_through_numpy(tmp_path, make_grid):
    reg = tundrel.region()
    reg.append(make_grid(4, 3))
    reg.append(make_grid(2, 5))
    reg.patch(1)["z"].values[:] = np.linspace(-1.0, 1.0, 10)
    out = tmp_path / "m.apt"
    assert tundrel.export_data(out, 10, False, False, reg, tundrel.region_fe())
    back, back_fe = tundrel.read(out)
    assert len(back) == 2 and len(back_fe) == 0
    for k in range(2):
        assert (back[k].I, back[k].J) == (reg[k].I, reg[k].J)
        for c in "xyz":
            np.testing.assert_allclose(back[k][c].values, reg[k][c].values, atol=1e-10)


def test_face_index_is_an_int32_view(make_triangles):
    p = make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0], [1, 1, 0]], [[0, 1, 2], [2, 1, 3]])
    idx = p.faceIndex
    assert idx.dtype == np.int32 and idx.shape == (8,)
    assert list(idx) == [0, 1, 2, -1, 2, 1, 3, -1]
    idx.reshape(2, 4)[1, 0] = 3
    assert p.faceIndex[4] == 3


def test_region_copies_share_patches(make_grid):
    reg = tundrel.region()
    reg.name = "wing"
    reg.Mach = 0.8
    reg.append(make_grid(2, 2))
    copy = reg.copy()
    copy.append(make_grid(3, 3))
    assert len(reg) == 1 and len(copy) == 2
    assert copy[0]["x"].values.__array_interface__["data"] == reg[0]["x"].values.__array_interface__["data"]
    assert (copy.name, copy.Mach) == ("wing", 0.8)


class TestErrors:
    def test_index_error_carries_the_library_fields(self):
        reg = tundrel.region()
        with pytest.raises(tundrel.IndexError) as info:
            reg.patch(0)
        e = info.value
        assert (e.message, e.code) == ("Index error!", 1)
        assert e.file.endswith("arrayWorks.h") and e.line > 0
        assert isinstance(e, IndexError) and isinstance(e, tundrel.GenericError)
        assert "Index error! (code 1" in str(e)

    def test_bad_counts_and_grid_indices(self, make_grid):
        with pytest.raises(tundrel.IndexError):
            tundrel.StructPatch(-1, 2)
        with pytest.raises(tundrel.IndexError):
            tundrel.FacePatch(3, -4, 1)
        with pytest.raises(tundrel.IndexError) as info:
            make_grid(3, 2).nodeIndex(0, 2)
        assert info.value.file.endswith("geo.h")

    def test_reader_message_becomes_message_error(self, tmp_path):
        with pytest.raises(tundrel.MessageError) as info:
            tundrel.read(tmp_path / "absent.apt")
        assert info.value.messages == ["It is impossible to open selected file"]
        short = tmp_path / "short.apt"
        short.write_text("1 2\n0 0 0\n1 1\n")
        reg, reg_fe = tundrel.region(), tundrel.region_fe()
        with pytest.raises(tundrel.MessageError, match="^It's impossible to close APT file$"):
            tundrel.import_data(short, False, reg, reg_fe)
        assert len(reg) == 0

    def test_writer_messages(self, tmp_path, make_grid):
        reg = tundrel.region()
        p = tundrel.StructPatch(2, 2)
        for c in ("x", "y", "w"):
            p.addVariable(c)
        reg.append(p)
        with pytest.raises(tundrel.MessageError) as info:
            tundrel.write(tmp_path / "m.apt", reg)
        assert str(info.value) == "Error in Header. No predefined variables X or Y or Z are found"
        with pytest.raises(tundrel.MessageError, match="^Dummy error$"):
            tundrel.write(tmp_path / "empty.apt", tundrel.region())

    def test_unknown_extension_is_false_without_message(self, tmp_path, make_grid):
        reg = tundrel.region()
        reg.append(make_grid(2, 2))
        assert tundrel.export_data(tmp_path / "m.txt", 6, False, False, reg, tundrel.region_fe()) is False
        assert tundrel.import_data(tmp_path / "m.apt.bak", False, reg, tundrel.region_fe()) is False
        with pytest.raises(ValueError, match="unknown file format"):
            tundrel.read(tmp_path / "m")

    @pytest.mark.parametrize(
        "entry, problem",
        [(4, r"faceIndex\[1\] = 4 is not -1 or a node number below 4"), (-2, r"faceIndex\[1\] = -2")],
    )
    def test_broken_face_lists_are_refused_before_the_library_sees_them(
        self, tmp_path, make_triangles, entry, problem
    ):
        p = make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0], [1, 1, 0]], [[0, 1, 2], [2, 1, 3]])
        p.faceIndex[1] = entry
        reg_fe = tundrel.region_fe()
        reg_fe.append(p)
        with pytest.raises(ValueError, match=problem):
            tundrel.export_data(tmp_path / "m.apt", 6, False, False, tundrel.region(), reg_fe)
        assert not (tmp_path / "m.apt").exists()
