"""Geometry through NumPy: views of the library's memory and their lifetimes,
the file helpers, and the library's messages as Python exceptions."""

import gc

import numpy as np
import pytest

import tundrel


def test_values_view_the_library_memory_and_keep_it_alive(make_grid):
    reg = tundrel.region()
    reg.append(make_grid(4, 3, extra=["cp"]))
    cp = reg.patch(0)["cp"]
    a, b = cp.values, reg.patch(0).variable(3).values
    a[5] = 123.0
    assert np.shares_memory(a, b) and b[5] == 123.0
    assert cp.grid.shape == (1, 3, 4) and cp.grid[0, 1, 2] == cp.values[2 + 4 * 1]  # node (i, j) at i + I*j
    faces = tundrel.FacePatch(3, 4, 1)
    index = faces.faceIndex
    assert index.dtype == np.int32 and list(index) == [-1, -1, -1, -1]
    index[1] = 2
    assert faces.faceIndex[1] == 2
    expected = a.copy()
    del reg, cp, b, faces
    gc.collect()
    junk = [np.full(10, 7.0) for _ in range(1000)]  # reuse freed memory if it was freed
    assert np.array_equal(a, expected) and list(index) == [-1, 2, -1, -1]
    del junk


def test_assigning_values_copies_and_checks_the_size(make_grid):
    v = make_grid(3, 2).addVariable("cp")
    view = v.values
    v.values = [1, 2, 3, 4, 5, 6]
    assert list(view) == [1, 2, 3, 4, 5, 6]
    with pytest.raises(ValueError, match="holds 6 values; got 5"):
        v.values = np.zeros(5)


def test_file_helpers(tmp_path, make_grid):
    reg = tundrel.region()
    reg.append(make_grid(2, 3))
    reg.patch(0)["z"].values[:] = np.linspace(-1.0, 1.0, 6) / 3
    tundrel.write(tmp_path / "m.apt", reg, precision=10, scientific=True)  # a pathlib.Path will do
    # both into one pair; each read transposes every patch read so far, as import_data does
    back, back_fe = tundrel.read(tmp_path / "m.apt", tmp_path / "m.apt", transpose=True)
    assert [(p.I, p.J) for p in back] == [(2, 3), (3, 2)] and len(back_fe) == 0
    np.testing.assert_allclose(back[1]["z"].grid[0].T, reg[0]["z"].grid[0], atol=1e-10)
    # no format for the extension: False from the library's entries, ValueError from the helpers
    assert tundrel.export_data(tmp_path / "m.txt", 6, False, False, reg, tundrel.region_fe()) is False
    assert tundrel.import_data(tmp_path / "m.apt.bak", False, reg, tundrel.region_fe()) is False
    with pytest.raises(ValueError, match=", ".join(e for f in tundrel.formats() for e in f.extensions)):
        tundrel.read(tmp_path / "m")


def test_messages_become_message_errors(tmp_path):
    with pytest.raises(tundrel.MessageError) as info:
        tundrel.read(tmp_path / "absent.apt")
    assert info.value.messages == ["It is impossible to open selected file"]
    (tmp_path / "short.apt").write_text("1 2\n0 0 0\n1 1\n")
    reg = tundrel.region()
    with pytest.raises(tundrel.MessageError, match="^It's impossible to close APT file$"):
        tundrel.import_data(tmp_path / "short.apt", False, reg, tundrel.region_fe())
    assert len(reg) == 0
    # the writers' messages as well, with the file; the earlier file stays and nothing else is left
    (tmp_path / "empty.apt").write_text("earlier")
    with pytest.raises(tundrel.MessageError, match="^Dummy error .*empty.apt"):
        tundrel.write(tmp_path / "empty.apt", tundrel.region())
    assert (tmp_path / "empty.apt").read_text() == "earlier" and len(list(tmp_path.iterdir())) == 2


@pytest.mark.parametrize("entry, problem", [(4, r"faceIndex\[1\] = 4 is not -1 or a node number below 4"), (-2, r"= -2")])
def test_broken_face_lists_are_refused_before_the_library_sees_them(tmp_path, make_triangles, entry, problem):
    p = make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0], [1, 1, 0]], [[0, 1, 2], [2, 1, 3]])
    assert list(p.faceIndex) == [0, 1, 2, -1, 2, 1, 3, -1]
    p.faceIndex[1] = entry
    reg_fe = tundrel.region_fe()
    reg_fe.append(p)
    with pytest.raises(ValueError, match=problem):
        tundrel.export_data(tmp_path / "m.apt", 6, False, False, tundrel.region(), reg_fe)
    assert not (tmp_path / "m.apt").exists()


@pytest.mark.parametrize("ext", ["vtu", "vtk"])
def test_meshio_round_trip_through_a_file(example_dir, make_triangles, tmp_path, ext):
    meshio = pytest.importorskip("meshio")
    reg, reg_fe = tundrel.read(example_dir / "wingbody.fld")
    reg_fe.append(make_triangles([[0, 0, 2], [1, 0, 2], [0, 1, 2], [1, 1, 2]], [[0, 1, 2], [1, 3, 2]]))  # no cp
    mesh = tundrel.to_meshio(reg, reg_fe)
    assert np.isnan(mesh.point_data["cp"]).sum() == sum((p["cp"].values < -9.9e9).sum() for p in reg) + 4
    assert [len(c.data) for c in mesh.cells] == [(p.I - 1) * (p.J - 1) for p in reg] + [2]
    meshio.write(tmp_path / f"m.{ext}", mesh)
    _, back = tundrel.from_meshio(meshio.read(tmp_path / f"m.{ext}"))
    for p, q in zip(list(reg) + list(reg_fe), back, strict=True):
        for name in ("x", "y", "z", "cp"):
            want = p.findVariable(name) or p.findVariable(name.upper())
            np.testing.assert_array_equal(q[name].values, want.values if want else np.full(4, tundrel.kNoValue))
    np.testing.assert_array_equal(back[3].faceIndex, reg_fe[0].faceIndex)
