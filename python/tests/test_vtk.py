"""VTK XML files as VTK's own readers see them, and VTK's files as we read them."""

import os
import subprocess

import numpy as np
import pytest

import tundrel

vtk = pytest.importorskip("vtkmodules.all")
from vtkmodules.util.numpy_support import vtk_to_numpy  # noqa: E402


@pytest.fixture
def model(make_grid, make_triangles):
    reg, fe = tundrel.region(), tundrel.region_fe()
    reg.name, reg.Mach, reg.alpha, reg.beta = "wing & <body>", 0.8, 2.5, -1.0
    reg.append(make_grid(4, 3, extra=["cp"]))
    reg.patch(0).name = "upper"
    reg.patch(0)["cp"].values[5] = -1e10
    fe.name, fe.Mach = "faces", 0.3
    fe.append(make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0], [1, 1, 1]], [[0, 1, 2], [1, 3, 2]], name="fin"))
    fe.patch(0).addVariable("cp_si").values = [0.5, -2e10, 1.5, 2.5]
    return reg, fe


@pytest.mark.parametrize("binary", [False, True])
def test_toolkit_readers_see_every_node_face_and_field(tmp_path, model, binary):
    reg, fe = model
    tundrel.write(tmp_path / "m.vtm", reg, fe, precision=17, scientific=True)
    if binary:
        subprocess.run([os.environ["TUNDREL_CLI"], "convert", tmp_path / "m.vtm", tmp_path / "b.vtm", "--binary"],
                       check=True)
    name = "b" if binary else "m"
    blocks = vtk.vtkXMLMultiBlockDataReader()
    blocks.SetFileName(str(tmp_path / f"{name}.vtm"))
    blocks.Update()
    out = blocks.GetOutput()
    assert out.GetNumberOfBlocks() == 2
    assert [out.GetMetaData(k).Get(vtk.vtkCompositeDataSet.NAME()) for k in range(2)] == ["upper", "fin"]
    for k, (owner, patch, reader) in enumerate([(reg, reg.patch(0), vtk.vtkXMLStructuredGridReader()),
                                                (fe, fe.patch(0), vtk.vtkXMLPolyDataReader())]):
        reader.SetFileName(str(tmp_path / name / f"patch_{k}.{'vts' if k == 0 else 'vtp'}"))
        reader.Update()
        data = reader.GetOutput()
        assert data.GetNumberOfPoints() == patch.N
        points = vtk_to_numpy(data.GetPoints().GetData())
        np.testing.assert_array_equal(points, np.stack([v.values for v in list(patch.variables)[:3]], axis=1))
        pd = data.GetPointData()
        assert [pd.GetArrayName(a) for a in range(pd.GetNumberOfArrays())] == [v.name for v in patch.variables]
        for v in patch.variables:
            expected = np.where(v.values < -9.9e9, np.nan, v.values)
            np.testing.assert_array_equal(vtk_to_numpy(pd.GetArray(v.name)), expected)
        fd = data.GetFieldData()
        assert fd.GetAbstractArray("title").GetValue(0) == owner.name
        assert fd.GetAbstractArray("patch").GetValue(0) == patch.name
        assert [fd.GetArray(f).GetValue(0) for f in ("Mach", "alpha", "beta")] == [owner.Mach, owner.alpha, owner.beta]
        if k == 0:
            assert data.GetDimensions() == (patch.I, patch.J, patch.K)
        else:
            polys = data.GetPolys()
            assert vtk_to_numpy(polys.GetConnectivityArray()).tolist() == [0, 1, 2, 1, 3, 2]
            assert vtk_to_numpy(polys.GetOffsetsArray()).tolist() == [0, 3, 6]


def test_files_the_toolkit_writes_read_back(tmp_path):
    grid = vtk.vtkStructuredGrid()
    grid.SetDimensions(3, 2, 1)
    points = vtk.vtkPoints()
    for j in range(2):
        for i in range(3):
            points.InsertNextPoint(i, j, 0.5 * i * j)
    grid.SetPoints(points)
    cp = vtk.vtkFloatArray()
    cp.SetName("cp")
    for value in (0.25, float("nan"), 1, 2, 3, 4):
        cp.InsertNextValue(value)
    grid.GetPointData().AddArray(cp)
    writer = vtk.vtkXMLStructuredGridWriter()
    writer.SetInputData(grid)
    writer.SetCompressorTypeToNone()
    writer.EncodeAppendedDataOff()
    for mode in ("Ascii", "Appended"):
        getattr(writer, f"SetDataModeTo{mode}")()
        writer.SetFileName(str(tmp_path / f"{mode}.vts"))
        writer.Write()
        reg, _ = tundrel.read(tmp_path / f"{mode}.vts")
        p = reg.patch(0)
        assert (p.I, p.J, p.K) == (3, 2, 1) and [v.name for v in p.variables] == ["x", "y", "z", "cp"]
        np.testing.assert_array_equal(p["z"].values, [0, 0, 0, 0, 0.5, 1])
        np.testing.assert_array_equal(p["cp"].values, [0.25, -1e10, 1, 2, 3, 4])
