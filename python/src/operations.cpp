// The exported operations: mesh editing, geometry <-> field container,
// markers, and the field operations whose dialogs are answered from keyword
// arguments.
#include <pybind11/stl/filesystem.h>

#include <array>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "common.h"

#include "api/fields/fields.h"
#include "api/mesh/mesh.h"
#include "api/mesh/normals.h"

#include "api/markers.h"
#include "api/markersImport.h"
#include "api/fields/self_illumination.h"
#include "api/fields/pressure_ports.h"

namespace tundrel::py_bind {

namespace {

// Runs a library operation that has no result of its own: any text it showed
// means it failed, and raises MessageError.
template <class F>
void hostedVoid(F&& f) {
    PythonHost host;
    underHost(host, std::forward<F>(f));
    settle(false, host.messages);
}

// KeyError naming a function the operation needs and the container lacks.
void requireFunction(const FieldMasterD& fm, const std::string& name) {
    if (fm.findFunction(name) < 0) throw py::key_error(name);
}

// A patch number that an operation would use unchecked.
void checkPatchNumber(const region_fe& r, int k, const char* what) {
    if (!r.patches.exists(k))
        throw py::index_error(std::string(what) + ": no face patch " + std::to_string(k) + " (the list holds " +
                              std::to_string(r.patchCount()) + ")");
}

// The function a typed core appended; MessageError with the message that
// refused it, or ValueError when it ended without one.
template <class Facts>
std::shared_ptr<arrayWorks::FieldFunction> madeFunction(const FieldMasterD& fm, const CoreResult<Facts>& r,
                                                        const PythonHost& host, const std::string& silent) {
    if (!r) {
        if (r.stopped) {
            PyErr_SetNone(PyExc_KeyboardInterrupt);
            throw py::error_already_set();
        }
        if (!r.message.empty()) raiseMessages({r.message});
        throw py::value_error(silent);
    }
    settle(true, host.messages);
    for (const auto& f : fm.functions)
        if (f.get() == r.function) return f;
    throw std::logic_error("the new function is not in the container");
}

// The port report as Python records, a dict per marker.
py::list portRecords(const std::vector<PortRecord>& ports) {
    py::list out;
    for (const PortRecord& p : ports) {
        py::dict d;
        d["number"] = p.number;
        d["x"] = p.x;
        d["y"] = p.y;
        d["z"] = p.z;
        d["projected"] = py::make_tuple(p.px, p.py, p.pz);
        d["distance"] = p.distance;
        d["use"] = portUseName(p.use);
        d["value"] = p.value;
        d["field_value"] = p.fieldValue;
        d["difference"] = p.fieldValue - p.value;
        d["predicted"] = p.predicted;
        d["prediction_error"] = p.predictionError;
        out.append(std::move(d));
    }
    return out;
}

// A copy of a face patch with copies of its variables (names, sizes and
// values as they stand).
std::shared_ptr<FacePatch> copyOf(const FacePatch& p) {
    auto c = std::make_shared<FacePatch>(p.nodes, p.indexLength, p.faces);
    c->name = p.name;
    c->faceIndex = p.faceIndex;
    for (const auto& v : p.variables) {
        if (!v) continue;
        auto nv = std::make_shared<NodeVariable>(v->name, v->I, v->J, v->K);
        nv->values = v->values;
        c->variables.append(std::move(nv));
    }
    return c;
}

}  // namespace

void bindOperations(py::module_& m) {
    m.def(
        "Region_to_fieldMaster",
        [](const region& reg, const region_fe& reg_fe, FieldMasterD& fm, z::ambientFlow& flow) {
            const auto held = hold(reg, reg_fe, fm, flow);
            refuseWhilePositionsViewed(fm);
            checkPatches(reg);
            checkFaces(reg_fe);
            hostedVoid([&] { Region_to_fieldMaster(reg, reg_fe, fm, flow); });
        },
        py::arg("reg"), py::arg("reg_fe"), py::arg("field"), py::arg("flow"),
        "Fills `field` from the geometry (emptied first): one block per structured patch, then one per face "
        "patch; node positions from x, y, z; one scalar function per other variable (-1e10 where a patch lacks "
        "it); the normals \"$_N\" and the selection \"$_selection\" (nothing selected). The flow conditions go "
        "into `flow`.");
    m.def(
        "fieldMaster_to_Region",
        [](FieldMasterD& fm, const z::ambientFlow& flow, region& reg, region_fe& reg_fe) {
            const auto held = hold(fm, flow, reg, reg_fe);
            hostedVoid([&] { fieldMaster_to_Region(fm, flow, reg, reg_fe); });
        },
        py::arg("field"), py::arg("flow"), py::arg("reg"), py::arg("reg_fe"),
        "Back to geometry: nothing when `field` has no block; otherwise both patch lists are emptied and every "
        "block becomes a patch \"Patch_N\" with x, y, z and one variable per function whose name does not begin "
        "with \"$_\".");
    m.def(
        "change_normal_fe",
        [](region_fe& reg_fe, int patch) {
            const auto held = hold(reg_fe);
            checkFaces(reg_fe);
            hostedVoid([&] { change_normal_fe(reg_fe, patch); });
        },
        py::arg("reg_fe"), py::arg("patch"), "Turns every face of a face patch round, flipping its normals.");
    m.def(
        "convert", [](FieldMasterD& fm) {
            const auto held = hold(fm);
            hostedVoid([&] { ::convert(fm); });
        }, py::arg("field"),
        "Not available: raises MessageError(\"Not available\").");
    m.def(
        "IR_camera", [](FieldMasterD& fm) {
            const auto held = hold(fm);
            hostedVoid([&] { ::IR_camera(fm); });
        }, py::arg("field"),
        "Not available: raises MessageError(\"Not available\").");
    m.def(
        "temperature_gages", [](FieldMasterD& fm) {
            const auto held = hold(fm);
            hostedVoid([&] { ::temperature_gages(fm); });
        },
        py::arg("field"), "Not available: raises MessageError(\"Not available\").");

    m.def(
        "converter_reg_to_reg_fe",
        [](region& src, region_fe& dst) {
            const auto held = hold(src, dst);
            checkPatches(src);
            PythonHost host;
            const bool ok = underHost(host, [&] { return converter_reg_to_reg_fe(src, dst); });
            settle(ok, host.messages);
            return ok;
        },
        py::arg("src"), py::arg("dst"),
        "Triangulates every structured patch of `src` (at least 2 x 2) into a face patch \"Patch___N\" appended "
        "to `dst`, two triangles a grid cell. MessageError when the first patch lacks x, y or z.");
    m.def(
        "Add_to_regionFe",
        [](region_fe& r, int k, std::vector<int> faces) {
            const auto held = hold(r);
            checkFaces(r);
            checkPatchNumber(r, k, "Add_to_regionFe");
            const FacePatch& p = r.patch(k);
            for (int f : faces)
                if (f < 0 || f >= p.faces || 4 * static_cast<std::size_t>(f) + 4 > p.faceIndex.size())
                    throw py::index_error("Add_to_regionFe: patch " + std::to_string(k) + " has no face " +
                                          std::to_string(f));
            if (p.variableCount() < 3) throw py::value_error("Add_to_regionFe: the patch has fewer than 3 variables");
            hostedVoid([&] { Add_to_regionFe(r, k, std::move(faces)); });
        },
        py::arg("r"), py::arg("k"), py::arg("faces"),
        "Cuts the faces `faces` of patch k out into a new compact patch \"PatchVRML_N\" appended to `r`, holding "
        "the coordinates of their nodes.");
    m.def(
        "AddBlock_to_buf",
        [](region_fe& src, region_fe& buf, int k) {
            const auto held = hold(src, buf);
            checkFaces(src);
            hostedVoid([&] { AddBlock_to_buf(src, buf, k); });
        },
        py::arg("src"), py::arg("buf"), py::arg("k"), "Appends a deep copy of patch k of `src` to `buf`.");
    m.def(
        "copy_reg_fe_to_buf",
        [](region_fe& src, region_fe& buf) {
            const auto held = hold(src, buf);
            checkFaces(src);
            PythonHost host;
            return underHost(host, [&] { return copy_reg_fe_to_buf(src, buf); });
        },
        py::arg("src"), py::arg("buf"),
        "Replaces the patches of `buf` by deep copies of those of `src`, with its name and flow conditions.");
    m.def(
        "merge_in_reg_fe",
        [](region_fe& r, int a, int b) {
            const auto held = hold(r);
            checkFaces(r);
            PythonHost host;
            return underHost(host, [&] { return merge_in_reg_fe(r, a, b); });
        },
        py::arg("r"), py::arg("a"), py::arg("b"),
        "Joins patch b into patch a (b's nodes and faces follow a's); patches without faces are dropped. False "
        "when refused.");
    m.def(
        "add_patch_fe",
        [](region_fe& r, int k) {
            const auto held = hold(r);
            checkFaces(r);
            checkPatchNumber(r, k, "add_patch_fe");
            if (r.patch(k).variableCount() < 3) throw py::value_error("add_patch_fe: the patch has fewer than 3 variables");
            PythonHost host;
            return underHost(host, [&] { return add_patch_fe(r, k); });
        },
        py::arg("r"), py::arg("k"),
        "Appends a copy of patch k's faces named with \"_simm\", with zero coordinates; returns the patch count.");
    m.def(
        "faces_increase_in_buff",
        [](const region_fe& src, region_fe& buf, int k) {
            const auto held = hold(src, buf);
            checkFaces(src);
            hostedVoid([&] { faces_increase_in_buff(src, buf, k); });
        },
        py::arg("src"), py::arg("buf"), py::arg("k"),
        "Appends to `buf` patch k of `src` with every triangle split in four at its edge midpoints.");
    m.def(
        "block_fe_compress",
        [](region_fe& r, std::vector<int> patches) {
            const auto held = hold(r);
            checkFaces(r);
            hostedVoid([&] { block_fe_compress(r, static_cast<int>(patches.size()), patches.data()); });
        },
        py::arg("r"), py::arg("patches"),
        "Refines in place every patch of `r` whose number is in `patches` (the C++ count and list in one).");
    m.def(
        "out_point_fe",
        [](region_fe& r, int patch, int node) -> py::object {
            const auto held = hold(r);
            checkFaces(r);
            double x = 0, y = 0, z = 0;
            PythonHost host;
            if (underHost(host, [&] { return out_point_fe(r, patch, node, x, y, z); }) != 0) return py::none();
            return py::make_tuple(x, y, z);
        },
        py::arg("r"), py::arg("patch"), py::arg("node"),
        "The (x, y, z) of a node, or None when refused (C++: 0 and the doubles set, or -1).");
    m.def(
        "in_point_fe",
        [](region_fe& r, int patch, int node, double x, double y, double z) {
            const auto held = hold(r);
            checkFaces(r);
            PythonHost host;
            return underHost(host, [&] { return in_point_fe(r, patch, node, x, y, z); });
        },
        py::arg("r"), py::arg("patch"), py::arg("node"), py::arg("x"), py::arg("y"), py::arg("z"),
        "Sets the coordinates of a node: 0, or -1 when refused.");

    py::class_<marker>(m, "marker", "One marker: x, y, z, value, active, number.")
        .def(py::init([](double x, double y, double z, double value, bool active, int number) {
                 return marker{x, y, z, value, active, number};
             }),
             py::arg("x") = 0.0, py::arg("y") = 0.0, py::arg("z") = 0.0, py::arg("value") = 0.0,
             py::arg("active") = false, py::arg("number") = 0)
        .def_readwrite("x", &marker::x)
        .def_readwrite("y", &marker::y)
        .def_readwrite("z", &marker::z)
        .def_readwrite("value", &marker::value)
        .def_readwrite("active", &marker::active)
        .def_readwrite("number", &marker::number)
        .def("__repr__", [](const marker& k) {
            return "marker(" + numberText(k.x) + ", " + numberText(k.y) + ", " + numberText(k.z) +
                   ", value=" + numberText(k.value) + ", active=" + (k.active ? "True" : "False") +
                   ", number=" + std::to_string(k.number) + ")";
        });
    py::class_<markers>(m, "markers", "A marker set: the field name, the markers and which of x, y, z, value "
                                      "the file supplied.")
        .def(py::init<>())
        .def_readwrite("name", &markers::name)
        .def_readwrite("hasX", &markers::hasX)
        .def_readwrite("hasY", &markers::hasY)
        .def_readwrite("hasZ", &markers::hasZ)
        .def_readwrite("hasValue", &markers::hasValue)
        .def("count", &markers::count, "Number of markers.")
        .def("__len__", &markers::count)
        .def(
            "at", [](const markers& s, int i) { return s.at(i); }, py::arg("i"),
            "A copy of the i-th marker (IndexError out of range).")
        .def("__getitem__", [](const markers& s, int i) { return s.at(i < 0 ? i + s.count() : i); })
        .def("__setitem__", [](markers& s, int i, const marker& k) { s.at(i < 0 ? i + s.count() : i) = k; })
        .def(
            "array",
            [](const markers& s) {
                py::array_t<double> a({static_cast<py::ssize_t>(s.count()), py::ssize_t{4}});
                auto w = a.mutable_unchecked<2>();
                for (int i = 0; i < s.count(); ++i) {
                    const marker& k = s.list[static_cast<std::size_t>(i)];
                    w(i, 0) = k.x;
                    w(i, 1) = k.y;
                    w(i, 2) = k.z;
                    w(i, 3) = k.value;
                }
                return a;
            },
            "x, y, z and value of every marker as an (n, 4) array (a copy).");
    m.def("addMarker", &addMarker, py::arg("set"), py::arg("m"),
          "Appends a copy of `m` (number 0: one more than the largest); returns the new count.");
    m.def(
        "importMarkers",
        [](const std::filesystem::path& file, markers& set, int imageHeight) {
            const auto held = hold(set);
            PythonHost host;
            underHost(host, [&] { importMarkers(file.string(), set, imageHeight); });
            settle(true, host.messages);
        },
        py::arg("file"), py::arg("set"), py::arg("imageHeight") = 0,
        "Reads a marker file by its extension (mpt, inm, apm, mrk; letter case counts) into `set`. A file that "
        "cannot be read raises FileError, whose `messages` hold the XML parser's report; a parser warning is "
        "issued as MessageWarning.");

    m.def(
        "self_illumination",
        [](FieldMasterD& fm, const std::string& fieldName, double ratio, bool checkVisibility,
           std::optional<std::string> name, double tolerance) {
            const auto held = hold(fm);
            requireFunction(fm, fieldName);
            requireFunction(fm, arrayWorks::kNormalsName);
            const SelfIlluminationParameters p{ratio, checkVisibility, name ? *name : fieldName + kSelfIlluminationSuffix,
                                               tolerance};
            PythonHost host;
            const SelfIlluminationResult r = underHost(host, [&] { return selfIlluminate(fm, fieldName, p); });
            return madeFunction(fm, r, host,
                                "self_illumination: \"" + fieldName + "\" is not a scalar field or \"$_N\" not a vector field");
        },
        py::arg("field"), py::arg("fieldName"), py::kw_only(), py::arg("ratio") = selfIlluminationDefaults("").ratio,
        py::arg("check_visibility") = selfIlluminationDefaults("").checkVisibility, py::arg("name") = py::none(),
        py::arg("tolerance") = selfIlluminationDefaults("").tolerance,
        "Corrects the scalar function `fieldName` for self-illumination (light reflected between the parts of "
        "the surface) and appends the result as a new function, which is returned.\n\n"
        "`ratio` is the diffuse reflection ratio, 0 to 1 (default 1.0); `check_visibility` tests every node pair "
        "for an obstruction by the surface (slow; default False); `name` is the new function's name (default "
        "fieldName + \"_si\"); `tolerance` 0 (default) computes every pair exactly, EPS > 0 takes far groups of "
        "nodes whole (for large models; error at most about EPS of the largest correction, 1e-3 is a good "
        "choice). These are the defaults of the C++ dialog's first call; unlike the dialog, a call "
        "never reuses the values of an earlier one. Only selected nodes take part when something is selected.\n\n"
        "MessageError carries the library's text when the operation refuses (\"The function name alredy "
        "exist\", \"Please enter a number between 0 and 1.\"); KeyError naming `fieldName` or \"$_N\" when "
        "absent; ValueError when `fieldName` is not a scalar field; KeyboardInterrupt when Ctrl-C stops the run "
        "(at its next progress step, the container unchanged). The GIL is released while it runs.");
    m.def(
        "unvisible_faces_remove",
        [](region_fe& reg_fe, std::array<double, 3> eye) {
            const auto held = hold(reg_fe);
            checkFaces(reg_fe);
            // The operation shrinks patches in place. It runs on copies, which
            // then take the patches' places, so that arrays viewing the
            // caller's patches stay valid.
            region_fe work(reg_fe);
            for (int k = 0; k < work.patchCount(); ++k)
                if (work.patches.exists(k)) work.patches.set(k, copyOf(work.patch(k)));
            PythonHost host;
            const int removed =
                underHost(host, [&] { return unvisible_faces_remove(work, z::zVec<double>(eye[0], eye[1], eye[2])); });
            for (int k = 0; k < work.patchCount() && k < reg_fe.patchCount(); ++k)
                if (work.patches.exists(k)) reg_fe.patches.set(k, work.patches.shared(k));
            settle(true, host.messages);
            return removed;
        },
        py::arg("reg_fe"), py::arg("eye"),
        "Hidden-face removal for a camera at `eye` (x, y, z): keeps in every face patch only the faces that face "
        "the camera and that no other face hides, and the nodes they use. Returns the number of faces removed.\n\n"
        "The patches are replaced by new, reduced ones (the C++ function changes them in place): patches and "
        "arrays taken from `reg_fe` before the call keep the old faces and values.");

    m.def(
        "pressure_ports",
        [](FieldMasterD& fm, const std::string& fieldName, std::optional<std::filesystem::path> markersFile,
           std::optional<markers> markerSet, int order, double maxDeflexion, std::optional<std::string> name,
           const std::string& direction, bool report, bool crossValidate) -> py::object {
            const auto held = hold(fm);
            if (markersFile.has_value() == markerSet.has_value())
                throw py::type_error("pressure_ports: give either markers_file or marker_set");
            if (direction != "normal" && direction != "reverse")
                throw py::value_error("direction must be \"normal\" or \"reverse\"");
            PressurePortsParameters p = pressurePortsDefaults(fieldName);
            if (name) p.newName = *name;
            if (markersFile) p.markersFile = markersFile->string();
            p.markerSet = std::move(markerSet);
            p.order = order;
            p.maxDeflexion = maxDeflexion;
            p.direction = direction == "normal";
            PythonHost host;
            PressurePortsResult r = underHost(host, [&] { return buildPressurePorts(fm, fieldName, p); });
            auto function = madeFunction(fm, r, host, "pressure_ports added no field");
            if (!report && !crossValidate) return py::cast(function);
            if (crossValidate) underHost(host, [&] { crossValidatePorts(r.facts.ports, p.order); });
            return py::make_tuple(function, portRecords(r.facts.ports));
        },
        py::arg("field"), py::arg("fieldName") = "", py::kw_only(), py::arg("markers_file") = py::none(),
        py::arg("marker_set") = py::none(), py::arg("order") = pressurePortsDefaults("").order,
        py::arg("max_deflexion") = pressurePortsDefaults("").maxDeflexion,
        py::arg("name") = py::none(), py::arg("direction") = "normal", py::arg("report") = false,
        py::arg("cross_validate") = false,
        "Builds a field from pressure ports: the markers are projected onto the surface and their values spread "
        "over the nodes by an approximation of order 0 to 2. The new function is appended and returned.\n\n"
        "The ports come from `markers_file` (read as importMarkers reads it) or from a `marker_set` already "
        "read; give one of them. `order` defaults to 0 and `max_deflexion`, the farthest a marker may lie from "
        "the surface, to 0.0, as the C++ dialog opens on its first call; `name` defaults to fieldName + \"_pp\"; "
        "markers with two coordinates are projected along the third, `direction` \"normal\" (default) or "
        "\"reverse\". A call never reuses the values of an earlier one. The marker set's field name must equal "
        "`fieldName`; the marker readers leave it empty, so `fieldName` is normally \"\".\n\n"
        "MessageError carries the library's text when the operation refuses (\"Deflextion has small value\", "
        "\"The function name alredy exist\", \"Please enter an integer between 0 and 2.\", ...); FileError "
        "when the marker file cannot be read; KeyboardInterrupt when Ctrl-C stops the run (at its next progress "
        "step, the container unchanged). The GIL is released while it runs.\n\n"
        "With `report` (or `cross_validate`) the call returns (function, records): a dict per marker with "
        "number, x, y, z, projected (x, y, z), distance, use (\"used\", \"inactive\", \"not projected\", "
        "\"beyond deflexion\", \"no value\"), value, field_value and difference; NaN where a number does not "
        "apply. `cross_validate` builds the field again for each used port with that port left out and adds "
        "predicted and prediction_error (predicted - value).");
}

}  // namespace tundrel::py_bind
