"""The operations through the module: transfer to the field container and back,
the field operations with their dialogs answered from keyword arguments, the
mesh operations and the marker files."""

import gc

import numpy as np
import pytest

import tundrel

def plate(origin, di, dj, n, name, value=1.0):
    """An n x n structured plate from `origin` along di (i) and dj (j); its normal is di x dj."""
    p = tundrel.StructPatch(n, n)
    p.name = name
    s = np.linspace(0.0, 1.0, n)
    pts = origin + s[None, :, None] * np.asarray(di, float) + s[:, None, None] * np.asarray(dj, float)
    for k, c in enumerate("xyz"):
        p.addVariable(c).grid[0] = pts[..., k]
    p.addVariable("cp").values[:] = value
    return p


def corner(n=9, fence=False):
    """A concave corner: a floor facing +z and a wall facing +x; optionally a fence
    between them (facing -x) that hides the far part of the floor from the wall."""
    reg = tundrel.region()
    reg.name = "corner"
    reg.Mach, reg.alpha = 0.5, 2.0
    reg.append(plate(np.array([0.05, 0, 0]), [1, 0, 0], [0, 1, 0], n, "floor"))
    reg.append(plate(np.array([0, 0, 0.05]), [0, 1, 0], [0, 0, 1], n, "wall"))
    if fence:
        reg.append(plate(np.array([0.5, 0, 0.02]), [0, 0, 1.0], [0, 1, 0], n, "fence"))
    return reg


def field_of(reg, reg_fe=None):
    fm, flow = tundrel.FieldMaster(), tundrel.ambientFlow()
    tundrel.Region_to_fieldMaster(reg, reg_fe or tundrel.region_fe(), fm, flow)
    return fm, flow


class TestTransfer:
    def test_round_trip_carries_edited_values(self, make_triangles):
        reg_fe = tundrel.region_fe()
        reg_fe.append(make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]], "tri"))
        fm, flow = field_of(corner(4), reg_fe)
        assert (flow.Mach, flow.alpha) == (0.5, 2.0)
        assert fm.nodeCounts() == [16, 16, 3]
        assert [f.name for f in fm.functions] == ["cp", "$_N", "$_selection"]
        cp = fm["cp"].values
        assert np.all(cp[:32] == 1.0) and np.all(cp[32:] == tundrel.kNoValue)  # the triangle has no cp
        np.testing.assert_allclose(fm["$_N"].block(0), np.tile([0, 0, 1.0], (16, 1)), atol=1e-12)
        fm["cp"].block(1)[:] = np.arange(16.0)
        reg, reg_fe = tundrel.region(), tundrel.region_fe()
        tundrel.fieldMaster_to_Region(fm, flow, reg, reg_fe)
        assert [p.name for p in list(reg) + list(reg_fe)] == ["Patch_0", "Patch_1", "Patch_2"]
        wall = (list(reg) + list(reg_fe))[1]
        assert [v.name for v in wall.variables] == ["x", "y", "z", "cp"]
        np.testing.assert_array_equal(wall["cp"].values, np.arange(16.0))
        assert reg.Mach == 0.5

    def test_refused_while_positions_are_viewed(self):
        fm, _ = field_of(corner(3))
        view = fm.x
        with pytest.raises(ValueError, match="positions"):
            tundrel.Region_to_fieldMaster(corner(3), tundrel.region_fe(), fm, tundrel.ambientFlow())
        assert fm.totalNodes() == 18 and view.shape == (18,)
        del view
        gc.collect()
        tundrel.Region_to_fieldMaster(corner(4), tundrel.region_fe(), fm, tundrel.ambientFlow())
        assert fm.totalNodes() == 32

    @pytest.mark.parametrize("op", ["convert", "IR_camera", "temperature_gages"])
    def test_not_available(self, op):
        fm, _ = field_of(corner(3))
        with pytest.raises(tundrel.MessageError) as info:
            getattr(tundrel, op)(fm)
        assert info.value.messages == ["Not available"]
        assert len(fm) == 3


class TestSelfIllumination:
    def change(self, fm, **kw):
        f = tundrel.self_illumination(fm, "cp", **kw)
        return f.values - fm["cp"].values

    def test_the_corner_loses_most_near_its_edge(self):
        fm, _ = field_of(corner())
        f = tundrel.self_illumination(fm, "cp", ratio=0.5, check_visibility=False)
        assert f.name == "cp_si" and fm.functions[-1].name == "cp_si"
        change = (f.values - fm["cp"].values)[: fm.nodeCount(0)].reshape(9, 9)  # floor, rows along x
        assert np.all(change[1:-1, :] < 0)
        middle = change[4]
        assert np.all(np.diff(middle) > 0), "the loss shrinks away from the wall"

    def test_ratio_reaches_the_dialog(self):
        fm, _ = field_of(corner())
        c0 = self.change(fm, ratio=0.0, name="r0")
        c1 = self.change(fm, ratio=0.3, name="r1")
        c2 = self.change(fm, ratio=0.6, name="r2")
        assert np.all(c0 == 0)
        assert np.abs(c1).max() > 1e-3
        np.testing.assert_allclose(c2, 2 * c1, rtol=1e-9, atol=1e-15)

    def test_visibility_check_hides_the_far_floor(self):
        fm, _ = field_of(corner(fence=True))
        seen = self.change(fm, ratio=0.5, check_visibility=False, name="seen")
        hidden = self.change(fm, ratio=0.5, check_visibility=True, name="hidden")
        far_floor = fm.positions[:, 0] > 0.6
        far_floor[fm.nodeCount(0):] = False
        assert np.all(np.abs(hidden[far_floor]) < np.abs(seen[far_floor]))

    def test_only_selected_nodes_take_part(self):
        fm, _ = field_of(corner())
        sel = fm.selection().values
        sel[:] = 0
        sel[fm.offset(1):] = 1                     # the wall
        sel[: fm.nodeCount(0) // 2] = 1            # and the near half of the floor
        change = self.change(fm, ratio=0.5)
        assert np.all(change[sel == 0] == 0)
        assert np.any(change[sel == 1] != 0)

    @pytest.mark.parametrize(
        "kwargs, text",
        [
            ({"name": "cp"}, "The function name alredy exist"),
            ({"ratio": 1.5, "name": "x"}, "Please enter a number between 0 and 1."),
        ],
    )
    def test_refusals_carry_the_library_text(self, kwargs, text):
        fm, _ = field_of(corner(3))
        with pytest.raises(tundrel.MessageError) as info:
            tundrel.self_illumination(fm, "cp", **kwargs)
        assert info.value.messages == [text]
        assert len(fm) == 3

    def test_absent_source_field(self):
        fm, _ = field_of(corner(3))
        with pytest.raises(tundrel.IndexError) as info:
            tundrel.self_illumination(fm, "absent", ratio=0.5, name="x")
        assert (info.value.file, info.value.line) == ("..\\api\\geo.h", 804)
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
    assert tundrel.unvisible_faces_remove(r, (0.5, 0.5, -10.0)) == 2  # the front seen from behind


MARKERS = """<?xml version="1.0"?>
<ObjectMarkers>
  <NodesNumber>{n}</NodesNumber>
  <Function id="x">{x}</Function>
  <Function id="y">{y}</Function>
  <Function id="z">{z}</Function>
  <Function id="f">{f}</Function>
  <Function id="active">{a}</Function>
  <Function id="id">{i}</Function>
</ObjectMarkers>
"""


def marker_file(path, pts, values):
    pts = np.asarray(pts, float)
    row = lambda v: " ".join(f"{a:.9g}" for a in v)  # noqa: E731
    path.write_text(MARKERS.format(n=len(values), x=row(pts[:, 0]), y=row(pts[:, 1]), z=row(pts[:, 2]),
                                   f=row(values), a=" ".join("1" * len(values)),
                                   i=" ".join(str(k + 1) for k in range(len(values)))))
    return path


class TestMarkers:
    def test_read_xml_markers(self, tmp_path):
        f = marker_file(tmp_path / "m.mrk", [[0.1, 1, 0], [0.2, 2, 0]], [-0.5, 0.3])
        s = tundrel.markers()
        tundrel.importMarkers(f, s)
        assert len(s) == 2 and (s.hasX, s.hasY, s.hasZ, s.hasValue) == (True, True, True, True)
        np.testing.assert_array_equal(s.array(), [[0.1, 1, 0, -0.5], [0.2, 2, 0, 0.3]])
        assert s[1].number == 2 and s[-1].value == 0.3
        with pytest.raises(tundrel.IndexError) as info:
            s.at(2)
        assert info.value.line == 65

    def test_malformed_xml_is_a_file_error_with_the_parser_report(self, tmp_path, capfd):
        f = tmp_path / "bad.mrk"
        f.write_text("<ObjectMarkers><NodesNumber>2</Nodes></ObjectMarkers>")
        with pytest.raises(tundrel.FileError) as info:
            tundrel.importMarkers(f, tundrel.markers())
        assert info.value.message == "File error!" and info.value.code == 4
        assert len(info.value.messages) == 1 and info.value.messages[0].startswith("Fatal Error at file")
        capfd.readouterr()

class TestPressurePorts:
    def ports(self, tmp_path, fm, offset=0.0):
        """Ports on the floor (z = offset) carrying a linear function of x and y."""
        xy = np.array([[0.2, 0.2], [0.8, 0.3], [0.5, 0.5], [0.3, 0.8], [0.9, 0.9], [0.6, 0.1]])
        pts = np.column_stack([xy, np.full(len(xy), offset)])
        return marker_file(tmp_path / "ports.mrk", pts, 1.0 + 2.0 * xy[:, 0] - xy[:, 1])

    def test_port_field_on_the_floor(self, tmp_path):
        fm, _ = field_of(corner())
        f = tundrel.pressure_ports(fm, markers_file=self.ports(tmp_path, fm, 0.001), order=1, max_deflexion=0.01,
                                   name="ports")
        assert f.name == "ports" and fm.functions[-1].name == "ports"
        floor = fm.positions[: fm.nodeCount(0)]
        got = f.block(0)
        expected = 1.0 + 2.0 * floor[:, 0] - floor[:, 1]
        np.testing.assert_allclose(got, expected, atol=0.05)

    @pytest.mark.parametrize(
        "kwargs, text",
        [
            ({"max_deflexion": 1e-6}, "Deflextion has small value"),
            ({"max_deflexion": 0.01, "name": "cp"}, "The function name alredy exist"),
            ({"max_deflexion": 0.01, "order": 3}, "Please enter an integer between 0 and 2."),
        ],
    )
    def test_refusals_carry_the_library_text(self, tmp_path, kwargs, text):
        fm, _ = field_of(corner())
        with pytest.raises(tundrel.MessageError) as info:
            tundrel.pressure_ports(fm, markers_file=self.ports(tmp_path, fm, 0.001), order=kwargs.pop("order", 1),
                                   **kwargs)
        assert info.value.messages == [text]
        assert len(fm) == 3

    def test_field_name_must_match_the_marker_set(self, tmp_path):
        fm, _ = field_of(corner())
        with pytest.raises(tundrel.MessageError, match="^Function name of the markers is not coincide with field"):
            tundrel.pressure_ports(fm, "cp", markers_file=self.ports(tmp_path, fm), max_deflexion=0.01, order=0)

    def test_missing_marker_file(self, tmp_path):
        fm, _ = field_of(corner())
        with pytest.raises(tundrel.FileError):
            tundrel.pressure_ports(fm, markers_file=tmp_path / "absent.mrk", max_deflexion=0.01, order=0)
        assert len(fm) == 3


class TestMesh:
    def test_triangulated_grid_through_the_views(self, make_grid):
        reg, reg_fe = tundrel.region(), tundrel.region_fe()
        reg.append(make_grid(3, 2, extra=["cp"]))
        assert tundrel.converter_reg_to_reg_fe(reg, reg_fe)
        p = reg_fe[0]
        assert p.name == "Patch___0" and (p.nodes, p.faces) == (6, 4)
        np.testing.assert_array_equal(p.faceIndex.reshape(-1, 4),
                                      [[0, 1, 3, -1], [3, 1, 4, -1], [1, 2, 4, -1], [4, 2, 5, -1]])
        np.testing.assert_array_equal(p["cp"].values, reg[0]["cp"].values)
        assert not np.shares_memory(p["cp"].values, reg[0]["cp"].values)

    def test_missing_coordinates_message(self):
        reg = tundrel.region()
        p = tundrel.StructPatch(2, 2)
        for c in ("x", "y", "q"):
            p.addVariable(c)
        reg.append(p)
        with pytest.raises(tundrel.MessageError, match="^Error in Header. No predefined variables X or Y or Z"):
            tundrel.converter_reg_to_reg_fe(reg, tundrel.region_fe())

    def test_merge_and_point_access(self, make_triangles):
        r = tundrel.region_fe()
        r.append(make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]))
        r.append(make_triangles([[5, 0, 0], [6, 0, 0], [5, 1, 0]], [[0, 1, 2]]))
        assert tundrel.merge_in_reg_fe(r, 0, 1) and len(r) == 1
        np.testing.assert_array_equal(r[0].faceIndex, [0, 1, 2, -1, 3, 4, 5, -1])
        assert tundrel.out_point_fe(r, 0, 4) == (6.0, 0.0, 0.0)
        assert tundrel.in_point_fe(r, 0, 4, 1.5, 2.5, 3.5) == 0
        assert r[0]["Y"].values[4] == 2.5
        assert tundrel.out_point_fe(r, -1, 0) is None
        assert tundrel.merge_in_reg_fe(r, 0, 0) is False

    @pytest.mark.parametrize(
        "call",
        [
            lambda r: tundrel.add_patch_fe(r, 1),
            lambda r: tundrel.add_patch_fe(r, -1),
            lambda r: tundrel.Add_to_regionFe(r, 0, [0, 1]),
            lambda r: tundrel.Add_to_regionFe(r, 3, [0]),
        ],
    )
    def test_unchecked_numbers_are_refused_here(self, make_triangles, call):
        r = tundrel.region_fe()
        r.append(make_triangles([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]))
        with pytest.raises(IndexError):
            call(r)
        assert len(r) == 1
