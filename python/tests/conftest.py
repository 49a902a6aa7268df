import os
import pathlib

import numpy as np
import pytest

import tundrel

SOURCE_DIR = pathlib.Path(os.environ.get("TUNDREL_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))


@pytest.fixture
def example_dir():
    return SOURCE_DIR / "examples"


@pytest.fixture
def example_field(example_dir):
    def field(refine=0):
        """The bundled example as face patches, each triangle split in four `refine` times."""
        faces = tundrel.region_fe()
        tundrel.converter_reg_to_reg_fe(tundrel.read(example_dir / "wingbody.fld")[0], faces)
        for _ in range(refine):
            tundrel.block_fe_compress(faces, list(range(len(faces))))
        fm = tundrel.FieldMaster()
        tundrel.Region_to_fieldMaster(tundrel.region(), faces, fm, tundrel.ambientFlow())
        return fm

    return field


@pytest.fixture
def make_grid():
    def grid_patch(I, J, extra=()):
        """A structured patch on a bent grid with x, y, z and the named extra variables."""
        p = tundrel.StructPatch(I, J)
        i, j = np.meshgrid(np.arange(I, dtype=float), np.arange(J, dtype=float))
        for name, values in (("x", i), ("y", j), ("z", 0.1 * i * j)):
            p.addVariable(name).grid[0] = values
        for k, e in enumerate(extra):
            p.addVariable(e).values = np.arange(I * J, dtype=float) * (k + 1) - 3.0
        return p

    return grid_patch


@pytest.fixture
def make_triangles():
    def triangle_patch(points, triangles, name=""):
        """A face patch of triangles with X, Y, Z from an (n, 3) array."""
        points = np.asarray(points, dtype=float)
        p = tundrel.FacePatch(len(points), 4 * len(triangles), len(triangles))
        p.name = name
        for k, c in enumerate("XYZ"):
            p.addVariable(c).values = points[:, k]
        idx = p.faceIndex.reshape(-1, 4)  # written through a view
        idx[:, :3], idx[:, 3] = triangles, -1
        return p

    return triangle_patch
