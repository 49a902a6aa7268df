"""Exchange with meshio: every format meshio reads or writes is one call away.

``to_meshio(reg, reg_fe)`` gives a :class:`meshio.Mesh`: the nodes of every
patch, one after the other; structured patches as quads (every layer of an
I x J x K patch is a grid of its own), face patches as their triangles and
quads; every variable other than the coordinates as point data, NaN where a
patch lacks the variable or holds no value (below -9.9e9).  The cell data
``"patch"`` tells each cell's patch number (structured patches first, then
face patches).  The title and the flow conditions are not carried.

``from_meshio(mesh)`` gives a ``(region, region_fe)`` pair: the region is
empty, and the triangles and quads become face patches, one per patch number
of the cell data ``"patch"`` when the mesh has it, else one per cell block;
each holds the points its cells use (in their order in the mesh), x, y, z and
one variable per point-data array (NaN read back as -1e10; an array of n
components as name_0 .. name_{n-1}).  Other cell types are left out.
"""

import numpy as np

from ._tundrel import FacePatch, kNoValue, kNoValueBelow, region, region_fe

__all__ = ["to_meshio", "from_meshio"]

_COORDINATES = ("x", "y", "z")


def _coordinates(patch, number):
    found = {}
    for v in patch.variables:
        if v is not None and v.name.lower() in _COORDINATES and v.name.lower() not in found:
            found[v.name.lower()] = np.asarray(v.values)
    missing = [c for c in _COORDINATES if c not in found]
    if missing:
        raise ValueError(f"patch {number} ({patch.name!r}) has no {', '.join(missing)} variable")
    return np.column_stack([found[c] for c in _COORDINATES])


def _grid_quads(patch):
    I, J, K = patch.I, patch.J, patch.K
    if I < 2 or J < 2 or K < 1:
        return np.empty((0, 4), dtype=np.int64)
    i, j, k = np.meshgrid(np.arange(I - 1), np.arange(J - 1), np.arange(K), indexing="ij")
    n = (i + I * j + I * J * k).transpose(2, 1, 0).reshape(-1)
    return np.column_stack([n, n + 1, n + 1 + I, n + I])


def _faces(patch):
    index = np.asarray(patch.faceIndex, dtype=np.int64).reshape(-1, 4)
    used = index >= 0
    count = used.sum(axis=1)
    return {kind: index[count == size][used[count == size]].reshape(-1, size)
            for kind, size in (("triangle", 3), ("quad", 4))}


def to_meshio(reg, reg_fe=None):
    """The patches of ``reg`` and ``reg_fe`` as one :class:`meshio.Mesh`.

    ValueError names a patch without x, y or z coordinates.
    """
    import meshio

    patches = [p for p in reg.patches if p is not None]
    structured = len(patches)
    if reg_fe is not None:
        patches += [p for p in reg_fe.patches if p is not None]
    names = []
    for p in patches:
        for v in p.variables:
            if v is not None and v.name.lower() not in _COORDINATES and v.name not in names:
                names.append(v.name)

    points, cells, patch_of_cells = [], [], []
    data = {name: [] for name in names}
    offset = 0
    for number, p in enumerate(patches):
        xyz = _coordinates(p, number)
        points.append(xyz)
        blocks = {"quad": _grid_quads(p)} if number < structured else _faces(p)
        for kind, block in blocks.items():
            if len(block):
                cells.append(meshio.CellBlock(kind, block + offset))
                patch_of_cells.append(np.full(len(block), number, dtype=np.int32))
        for name in names:
            v = p.findVariable(name)
            values = np.full(len(xyz), np.nan) if v is None else np.array(v.values, dtype=float)
            values[values < kNoValueBelow] = np.nan
            data[name].append(values)
        offset += len(xyz)

    return meshio.Mesh(
        np.concatenate(points) if points else np.empty((0, 3)),
        cells,
        point_data={name: np.concatenate(v) for name, v in data.items()},
        cell_data={"patch": patch_of_cells} if cells else {},
    )


def from_meshio(mesh):
    """A ``(region, region_fe)`` pair from a :class:`meshio.Mesh` (see the module's text)."""
    points = np.asarray(mesh.points, dtype=float)
    if points.ndim != 2 or points.shape[1] not in (2, 3):
        raise ValueError(f"mesh points of shape {points.shape}: expected (n, 2) or (n, 3)")
    if points.shape[1] == 2:
        points = np.column_stack([points, np.zeros(len(points))])
    arrays = {}
    for name, values in mesh.point_data.items():
        values = np.asarray(values, dtype=float).reshape(len(points), -1)
        if values.shape[1] == 1:
            arrays[name] = values[:, 0]
        else:
            arrays.update({f"{name}_{c}": values[:, c] for c in range(values.shape[1])})

    # The triangle and quad blocks, grouped by patch number.
    numbers = mesh.cell_data.get("patch")
    groups = {}
    for b, block in enumerate(mesh.cells):
        if block.type not in ("triangle", "quad"):
            continue
        data = np.asarray(block.data, dtype=np.int64)
        key = [b] * len(data) if numbers is None else np.asarray(numbers[b]).reshape(-1).tolist()
        for number in dict.fromkeys(key):
            rows = data[np.asarray(key) == number]
            if len(rows):
                groups.setdefault(number, []).append(rows)

    reg_fe = region_fe()
    for number, blocks in groups.items():
        used = np.unique(np.concatenate([rows.reshape(-1) for rows in blocks]))
        index = np.full((sum(len(rows) for rows in blocks), 4), -1, dtype=np.int32)
        at = 0
        for rows in blocks:
            index[at:at + len(rows), :rows.shape[1]] = np.searchsorted(used, rows)
            at += len(rows)
        patch = FacePatch(len(used), index.size, len(index))
        patch.name = f"Patch_{number}"
        patch.faceIndex = index.reshape(-1)
        for c, name in enumerate(_COORDINATES):
            patch.addVariable(name).values = points[used, c]
        for name, values in arrays.items():
            if name.lower() in _COORDINATES:
                continue
            v = values[used]
            patch.addVariable(name).values = np.where(np.isnan(v), kNoValue, v)
        reg_fe.append(patch)
    return region(), reg_fe
