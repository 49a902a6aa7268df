"""What the module adds to the operations: keyword arguments with fixed defaults
for the field operations, NumPy views, and the library's refusals as Python
exceptions."""

import numpy as np
import pytest

import tundrel


def plate(origin, di, dj, n, name):
    """An n x n structured plate from `origin` along di (i) and dj (j), cp = 1; its normal is di x dj."""
    p = tundrel.StructPatch(n, n)
    p.name = name
    s = np.linspace(0.0, 1.0, n)
    pts = np.asarray(origin, float) + s[None, :, None] * np.asarray(di, float) + s[:, None, None] * np.asarray(dj, float)
    for k, c in enumerate("xyz"):
        p.addVariable(c).grid[0] = pts[..., k]
    p.addVariable("cp").values[:] = 1.0
    return p


def corner(n=9, fence=False):
    """A concave corner: a floor facing +z and a wall facing +x; optionally a fence
    between them (facing -x) that hides the far part of the floor from the wall."""
    reg = tundrel.region()
    reg.Mach, reg.alpha = 0.5, 2.0
    reg.append(plate([0.05, 0, 0], [1, 0, 0], [0, 1, 0], n, "floor"))
    reg.append(plate([0, 0, 0.05], [0, 1, 0], [0, 0, 1], n, "wall"))
    if fence:
        reg.append(plate([0.5, 0, 0.02], [0, 0, 1], [0, 1, 0], n, "fence"))
    return reg


def field_of(reg, reg_fe=None):
    fm, flow = tundrel.FieldMaster(), tundrel.ambientFlow()
    tundrel.Region_to_fieldMaster(reg, reg_fe or tundrel.region_fe(), fm, flow)
    return fm, flow


def test_transfer_round_trip(make_triangles):
    reg_fe = tundrel.region_fe()
    reg_fe.append(make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]], "tri"))
    fm, flow = field_of(corner(4), reg_fe)
    assert (flow.Mach, flow.alpha) == (0.5, 2.0) and fm.nodeCounts() == [16, 16, 3]
    assert np.all(fm["cp"].values[32:] == tundrel.kNoValue)  # the triangle has no cp
    fm["cp"].block(1)[:] = np.arange(16.0)
    reg, reg_fe = tundrel.region(), tundrel.region_fe()
    tundrel.fieldMaster_to_Region(fm, flow, reg, reg_fe)
    np.testing.assert_array_equal(reg[1]["cp"].values, np.arange(16.0))
    assert reg.Mach == 0.5
    view = fm.x  # refilling waits until no view of the positions is alive
    with pytest.raises(ValueError, match="positions"):
        tundrel.Region_to_fieldMaster(corner(3), tundrel.region_fe(), fm, flow)
    assert fm.totalNodes() == 35 and view.shape == (35,)


@pytest.mark.parametrize("op", ["convert", "IR_camera", "temperature_gages"])
def test_not_available(op):
    fm, _ = field_of(corner(3))
    with pytest.raises(tundrel.MessageError) as info:
        getattr(tundrel, op)(fm)
    assert info.value.messages == ["Not available"] and len(fm) == 3


def test_self_illumination_keywords_default_afresh_on_every_call():
    fm, _ = field_of(corner(5, fence=True))
    cp = fm["cp"].values.copy()
    low = tundrel.self_illumination(fm, "cp", ratio=0.1, check_visibility=True, name="low")
    plain = tundrel.self_illumination(fm, "cp")  # not the ratio, flag or name of the call before
    assert plain.name == "cp_si" and fm.functions[-1].name == "cp_si"
    full = tundrel.self_illumination(fm, "cp", ratio=1.0, check_visibility=False, name="full")
    np.testing.assert_allclose(plain.values, full.values, rtol=1e-12)  # the threads may add in another order
    seen = tundrel.self_illumination(fm, "cp", check_visibility=True, name="seen")
    assert np.any(seen.values != full.values)
    np.testing.assert_allclose(seen.values - cp, 10 * (low.values - cp), rtol=1e-9, atol=1e-15)


def test_self_illumination_tolerance_stays_within_it_of_the_exact_correction(example_field):
    fm = example_field(refine=1)
    cp = fm["cp"].values  # a view: refinement's means of the no-value marker made no value again
    cp[cp < -1e9] = -1e10
    cp = cp.copy()
    exact = cp - tundrel.self_illumination(fm, "cp", ratio=0.5, name="exact").values
    far = cp - tundrel.self_illumination(fm, "cp", ratio=0.5, name="far", tolerance=1e-3).values
    error = np.max(np.abs(far - exact)) / np.max(np.abs(exact))
    assert 0 < error <= 1e-3  # far groups taken whole: close to, but not, the exact sums


@pytest.mark.parametrize(
    "field, kwargs, error, text",
    [
        ("cp", {"name": "cp"}, tundrel.MessageError, "The function name alredy exist"),
        ("cp", {"ratio": float("nan")}, tundrel.MessageError, "Please enter a number."),
        *[("cp", {"tolerance": t}, tundrel.MessageError, "The tolerance must be a number of at least 0.")
          for t in (float("nan"), -1e-3, float("inf"))],
        ("$_N", {}, ValueError, None),
        ("absent", {}, KeyError, "absent"),
    ],
)
def test_self_illumination_refusals(field, kwargs, error, text):
    fm, _ = field_of(corner(3))
    with pytest.raises(error) as info:
        tundrel.self_illumination(fm, field, **kwargs)
    if error is KeyError:
        assert info.value.args == (text,)
    elif text:
        assert info.value.messages == [text]
    assert len(fm) == 3


def test_hidden_faces_go_and_old_views_stay(make_triangles):
    quad = [[0, 0], [1, 0], [0, 1], [1, 1]]
    r = tundrel.region_fe()
    for z, name in ((0.0, "back"), (1.0, "front")):
        r.append(make_triangles([[x, y, z] for x, y in quad], [[0, 1, 2], [2, 1, 3]], name))
    back_x, back_index = r[0]["X"].values, r[0].faceIndex
    assert tundrel.unvisible_faces_remove(r, (0.5, 0.5, 10.0)) == 2
    assert [(p.name, p.nodes, p.faces) for p in r] == [("back", 0, 0), ("front", 4, 2)]
    np.testing.assert_array_equal(back_x, [0, 1, 0, 1])
    assert list(back_index) == [0, 1, 2, -1, 2, 1, 3, -1]


def marker_file(path, pts, values, ids=None):
    """An XML marker file: x, y, z and the value of every marker, and their numbers."""
    cols = list(zip("xyzf", list(np.asarray(pts, float).T) + [values])) + ([("id", ids)] if ids else [])
    body = "".join(f'<Function id="{c}">{" ".join(f"{v:.9g}" for v in col)}</Function>' for c, col in cols)
    path.write_text(f"<ObjectMarkers><NodesNumber>{len(values)}</NodesNumber>{body}</ObjectMarkers>")
    return path


def test_markers_read_and_parser_reports(tmp_path, capfd):
    s = tundrel.markers()
    tundrel.importMarkers(marker_file(tmp_path / "m.mrk", [[0.1, 1, 0], [0.2, 2, 0]], [-0.5, 0.3], ids=[7, 9]), s)
    assert (s.hasX, s.hasY, s.hasZ, s.hasValue) == (True, True, True, True)
    np.testing.assert_array_equal(s.array(), [[0.1, 1, 0, -0.5], [0.2, 2, 0, 0.3]])
    assert s[1].number == 9 and s[-1].value == 0.3
    with pytest.raises(tundrel.IndexError) as info:
        s.at(2)
    assert info.value.line == 65
    (tmp_path / "bad.mrk").write_text("<ObjectMarkers><NodesNumber>2</Nodes></ObjectMarkers>")
    with pytest.raises(tundrel.FileError) as info:
        tundrel.importMarkers(tmp_path / "bad.mrk", tundrel.markers())
    assert (info.value.message, info.value.code) == ("File error!", 4)
    assert len(info.value.messages) == 1 and info.value.messages[0].startswith("Fatal Error at file")
    capfd.readouterr()


def ports(tmp_path, offset=0.0):
    """Ports on the floor (z = offset) carrying 1 + 2x - y."""
    xy = np.array([[0.2, 0.2], [0.8, 0.3], [0.5, 0.5], [0.3, 0.8], [0.9, 0.9], [0.6, 0.1]])
    return marker_file(tmp_path / "ports.mrk", np.column_stack([xy, np.full(6, offset)]), 1.0 + 2.0 * xy[:, 0] - xy[:, 1])


def test_pressure_ports_from_a_file_or_a_set_with_defaults(tmp_path):
    fm, _ = field_of(corner())
    f = tundrel.pressure_ports(fm, markers_file=ports(tmp_path, 0.001), order=1, max_deflexion=0.01, name="ports")
    assert f.name == "ports" and fm.functions[-1].name == "ports"
    floor = fm.positions[: fm.nodeCount(0)]
    np.testing.assert_allclose(f.block(0), 1.0 + 2.0 * floor[:, 0] - floor[:, 1], atol=0.05)
    s = tundrel.markers()
    tundrel.importMarkers(ports(tmp_path), s)
    g = tundrel.pressure_ports(fm, marker_set=s)  # order 0, deflexion 0, name "_pp"
    h = tundrel.pressure_ports(fm, markers_file=ports(tmp_path), order=0, max_deflexion=0.0, name="h")
    assert g.name == "_pp"
    np.testing.assert_array_equal(g.values, h.values)
    # the report: every port used, the plane carried exactly, each port predicted by the others
    _, records = tundrel.pressure_ports(fm, marker_set=s, order=1, max_deflexion=0.01, name="r", cross_validate=True)
    assert [r["use"] for r in records] == ["used"] * 6
    assert max(abs(r["difference"]) for r in records) < 1e-9 and max(abs(r["prediction_error"]) for r in records) < 1e-9


@pytest.mark.parametrize(
    "kwargs, error, text",
    [
        ({}, tundrel.MessageError, "Deflextion has small value"),  # the default deflexion, 0
        ({"max_deflexion": 0.01, "order": 3}, tundrel.MessageError, "Please enter an integer between 0 and 2."),
        ({"max_deflexion": 0.01, "fieldName": "cp"}, tundrel.MessageError,
         "Function name of the markers is not coincide with field name"),
        ({"markers_file": "absent.mrk", "max_deflexion": 0.01}, tundrel.FileError, None),
        ({"markers_file": None}, TypeError, None),
        ({"marker_set": tundrel.markers()}, TypeError, None),
        ({"direction": "up"}, ValueError, None),
    ],
)
def test_pressure_ports_refusals(tmp_path, kwargs, error, text):
    fm, _ = field_of(corner())
    kw = {"markers_file": ports(tmp_path, 0.001), **kwargs}
    if kw["markers_file"] is None:
        del kw["markers_file"]
    elif isinstance(kw["markers_file"], str):
        kw["markers_file"] = tmp_path / kw["markers_file"]
    with pytest.raises(error) as info:
        tundrel.pressure_ports(fm, **kw)
    if text:
        assert info.value.messages == [text]
    assert len(fm) == 3


def test_mesh_editing_through_the_views(make_grid):
    reg, reg_fe = tundrel.region(), tundrel.region_fe()
    reg.append(make_grid(3, 2, extra=["cp"]))
    assert tundrel.converter_reg_to_reg_fe(reg, reg_fe)
    np.testing.assert_array_equal(reg_fe[0]["cp"].values, reg[0]["cp"].values)
    assert not np.shares_memory(reg_fe[0]["cp"].values, reg[0]["cp"].values)
    assert tundrel.in_point_fe(reg_fe, 0, 2, 1.5, 2.5, 3.5) == 0
    assert tundrel.out_point_fe(reg_fe, 0, 2) == (1.5, 2.5, 3.5) and reg_fe[0]["y"].values[2] == 2.5
    assert tundrel.out_point_fe(reg_fe, -1, 0) is None  # refused


@pytest.mark.parametrize("args", [("add_patch_fe", 1), ("add_patch_fe", -1), ("Add_to_regionFe", 0, [0, 1]),
                                  ("Add_to_regionFe", 3, [0])])
def test_unchecked_numbers_are_refused_here(make_triangles, args):
    r = tundrel.region_fe()
    r.append(make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]))
    with pytest.raises(IndexError):
        getattr(tundrel, args[0])(r, *args[1:])
    assert len(r) == 1
