import os
import pathlib

import numpy as np
import pytest

import tundrel

SOURCE_DIR = pathlib.Path(os.environ.get("TUNDREL_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))


@pytest.fixture
def example_dir():
    return SOURCE_DIR / "examples"


def grid_patch(I, J, name="", extra=()):
    """A structured patch on a bent grid with x, y, z and the named extra variables."""
    p = tundrel.StructPatch(I, J)
    p.name = name
    i, j = np.meshgrid(np.arange(I, dtype=float), np.arange(J, dtype=float))
    p.addVariable("x").grid[0] = i
    p.addVariable("y").grid[0] = j
    p.addVariable("z").grid[0] = 0.1 * i * j
    for k, e in enumerate(extra):
        p.addVariable(e).values = np.arange(I * J, dtype=float) * (k + 1) - 3.0
    return p


def triangle_patch(points, triangles, name=""):
    """A face patch of triangles with X, Y, Z from an (n, 3) array."""
    points = np.asarray(points, dtype=float)
    triangles = np.asarray(triangles, dtype=np.int32)
    p = tundrel.FacePatch(len(points), 4 * len(triangles), len(triangles))
    p.name = name
    for k, c in enumerate("XYZ"):
        p.addVariable(c).values = points[:, k]
    idx = p.faceIndex.reshape(-1, 4)
    idx[:, :3] = triangles
    idx[:, 3] = -1
    return p


@pytest.fixture
def make_grid():
    return grid_patch


@pytest.fixture
def make_triangles():
    return triangle_patch
