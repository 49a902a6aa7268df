// NodeVariable, structured and face patches, region and region_fe, and the
// file exchange.
#include <pybind11/stl/filesystem.h>

#include <filesystem>

#include "common.h"

namespace tundrel::py_bind {

namespace {

using VariablePtr = std::shared_ptr<NodeVariable>;

VariablePtr addVariable(PatchBase& p, const std::string& name) {
    NodeVariable& v = p.addVariable(name);
    return holderOf(p.variables, &v);
}

// Values as an array: 1-D over the nodes, or the grid (K, J, I) with i fastest.
py::array values1d(py::object self) {
    auto& v = self.cast<NodeVariable&>();
    return flatView(v.values.data(), v.values.size(), self);
}

py::array grid(py::object self) {
    auto& v = self.cast<NodeVariable&>();
    if (v.values.size() != static_cast<std::size_t>(v.I) * v.J * v.K)
        throw py::value_error("the variable's values do not fill its I x J x K grid");
    const auto d = static_cast<py::ssize_t>(sizeof(double));
    return view(v.values.data(), {v.K, v.J, v.I}, {d * v.I * v.J, d * v.I, d}, self);
}

void assignValues(NodeVariable& v, const py::array_t<double, py::array::c_style | py::array::forcecast>& a) {
    if (static_cast<std::size_t>(a.size()) != v.values.size())
        throw py::value_error("variable \"" + v.name + "\" holds " + std::to_string(v.values.size()) +
                              " values; got " + std::to_string(a.size()));
    std::copy(a.data(), a.data() + a.size(), v.values.begin());
}

template <class Region>
py::list patchList(const Region& r) {
    refuseWhileInUse(&r);
    py::list out;
    for (const auto& p : r.patches) out.append(p ? py::cast(p) : py::none());
    return out;
}

template <class Region, class Patch>
void bindRegion(py::class_<Region>& c, const char* patchKind) {
    c.def(py::init<>())
        .def("__copy__", [](const Region& r) { return Region(r); })
        .def(
            "copy", [](const Region& r) { return Region(r); },
            "A copy that shares the patches (as the C++ copy does); patches added later are its own.")
        .def_readwrite("name", &Region::name, "The title.")
        .def_readwrite("Mach", &Region::Mach)
        .def_readwrite("alpha", &Region::alpha)
        .def_readwrite("beta", &Region::beta)
        .def("patchCount", [](const Region& r) { return (refuseWhileInUse(&r), r.patchCount()); }, "Number of patches.")
        .def("__len__", [](const Region& r) { return (refuseWhileInUse(&r), r.patchCount()); })
        .def(
            "patch", [](const Region& r, int k) { return (refuseWhileInUse(&r), r.patches.shared(k)); }, py::arg("k"),
            (std::string("The ") + patchKind + " at position k (IndexError, or StateError for an empty slot).").c_str())
        .def(
            "__getitem__",
            [](const Region& r, int k) {
                refuseWhileInUse(&r);
                return r.patches.shared(k < 0 ? k + r.patchCount() : k);
            },
            py::arg("k"))
        .def_property_readonly("patches", &patchList<Region>, "The patches, in order (a new list).")
        .def(
            "append",
            [](Region& r, std::shared_ptr<Patch> p) {
                refuseWhileInUse(&r);
                if (!p) throw py::value_error("cannot append None");
                return r.append(std::move(p));
            },
            py::arg("patch"), "Appends a patch (shared, not copied) and returns its number.")
        .def("clear", [](Region& r) { (refuseWhileInUse(&r), r.patches.clear()); }, "Empties the patch list (the patches live on where held).")
        .def("__repr__", [patchKind](const Region& r) {
            return "<" + std::string(patchKind) + " \"" + r.name + "\" with " + std::to_string(r.patchCount()) +
                   " patches>";
        });
}

}  // namespace

void bindGeometry(py::module_& m) {
    py::class_<NodeVariable, VariablePtr>(m, "NodeVariable",
                                          "A named array of doubles, one per node; node (i, j, k) at i + I*j + I*J*k.")
        .def_readonly("name", &NodeVariable::name)
        .def_readonly("I", &NodeVariable::I)
        .def_readonly("J", &NodeVariable::J)
        .def_readonly("K", &NodeVariable::K)
        .def_readonly("count", &NodeVariable::count)
        .def_property("values", &values1d, &assignValues,
                      "The values as a 1-D float64 array that views the library's memory (no copy); assigning "
                      "an array of the same size copies into it.")
        .def_property_readonly("grid", &grid, "The values viewed as a (K, J, I) array, i fastest.")
        .def("__len__", [](const NodeVariable& v) { return v.values.size(); })
        .def(
            "__array__",
            [](py::object self, py::object dtype) {
                py::array a = values1d(self);
                return dtype.is_none() ? a : a.attr("astype")(dtype).cast<py::array>();
            },
            py::arg("dtype") = py::none())
        .def("__repr__",
             [](const NodeVariable& v) { return "<NodeVariable \"" + v.name + "\" of " + std::to_string(v.count) + ">"; });

    py::class_<PatchBase, std::shared_ptr<PatchBase>>(m, "PatchBase",
                                                      "What structured and face patches share: name, counts, variables.")
        .def_readwrite("name", &PatchBase::name)
        .def_readonly("I", &PatchBase::I)
        .def_readonly("J", &PatchBase::J)
        .def_readonly("K", &PatchBase::K)
        .def_readonly("N", &PatchBase::N, "Node count.")
        .def("addVariable", &addVariable, py::arg("name"),
             "The variable of that name, created with zeros when absent.")
        .def(
            "findVariable",
            [](const PatchBase& p, const std::string& name) { return holderOf(p.variables, p.findVariable(name)); },
            py::arg("name"), "The variable of that name, or None.")
        .def(
            "variable", [](const PatchBase& p, int k) { return p.variables.shared(k); }, py::arg("k"),
            "The variable at position k (IndexError, or StateError for an empty slot).")
        .def("variableCount", &PatchBase::variableCount, "Number of variables.")
        .def_property_readonly(
            "variables",
            [](const PatchBase& p) {
                py::list out;
                for (const auto& v : p.variables) out.append(v ? py::cast(v) : py::none());
                return out;
            },
            "The variables, in order (a new list).")
        .def(
            "__getitem__",
            [](const PatchBase& p, const std::string& name) {
                VariablePtr v = holderOf(p.variables, p.findVariable(name));
                if (!v) throw py::key_error(name);
                return v;
            },
            py::arg("name"), "The variable of that name (KeyError when absent).")
        .def("__contains__", [](const PatchBase& p, const std::string& name) { return p.findVariable(name) != nullptr; });

    py::class_<StructPatch, PatchBase, std::shared_ptr<StructPatch>>(
        m, "StructPatch", "A structured patch of I x J x K nodes, node (i, j, k) numbered i + I*j + I*J*k.")
        .def(py::init<int, int, int>(), py::arg("I"), py::arg("J"), py::arg("K") = 1)
        .def("nodeIndex", &StructPatch::nodeIndex, py::arg("i"), py::arg("j"), "Checked node number of (i, j).")
        .def("__repr__", [](const StructPatch& p) {
            return "<StructPatch \"" + p.name + "\" " + std::to_string(p.I) + " x " + std::to_string(p.J) + " x " +
                   std::to_string(p.K) + ", " + std::to_string(p.variableCount()) + " variables>";
        });

    py::class_<FacePatch, PatchBase, std::shared_ptr<FacePatch>>(
        m, "FacePatch",
        "A face patch: `nodes` nodes and `faces` faces of four entries each in faceIndex (a triangle is its three "
        "0-based node numbers and -1).")
        .def(py::init<int, int, int>(), py::arg("nodes"), py::arg("indexLength"), py::arg("faces"),
             "A patch with room for the faces; faceIndex starts filled with -1.")
        .def_readonly("nodes", &FacePatch::nodes)
        .def_readonly("faces", &FacePatch::faces)
        .def_readonly("indexLength", &FacePatch::indexLength)
        .def_property(
            "faceIndex",
            [](py::object self) {
                auto& p = self.cast<FacePatch&>();
                return flatView(p.faceIndex.data(), p.faceIndex.size(), self);
            },
            [](FacePatch& p, const py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>& a) {
                if (static_cast<std::size_t>(a.size()) != p.faceIndex.size())
                    throw py::value_error("faceIndex holds " + std::to_string(p.faceIndex.size()) + " entries; got " +
                                          std::to_string(a.size()));
                std::copy(a.data(), a.data() + a.size(), p.faceIndex.begin());
            },
            "The face index list as a 1-D int32 array that views the library's memory (no copy); reshape to "
            "(faces, 4) for one row a face.")
        .def("__repr__", [](const FacePatch& p) {
            return "<FacePatch \"" + p.name + "\" " + std::to_string(p.nodes) + " nodes, " + std::to_string(p.faces) +
                   " faces, " + std::to_string(p.variableCount()) + " variables>";
        });

    py::class_<region> reg(m, "region",
                           "Structured surface geometry: a title, structured patches and the flow conditions.");
    bindRegion<region, StructPatch>(reg, "region");
    py::class_<region_fe> regFe(m, "region_fe",
                                "Unstructured surface geometry: a title, face patches and the flow conditions.");
    bindRegion<region_fe, FacePatch>(regFe, "region_fe");

    m.def(
        "import_data",
        [](const std::filesystem::path& file, bool transpose, region& reg, region_fe& reg_fe) {
            const auto held = hold(reg, reg_fe);
            PythonHost host;
            const bool ok = underHost(host, [&] { return import_data(file.string(), transpose, reg, reg_fe); });
            settle(ok, host.messages);
            return ok;
        },
        py::arg("file"), py::arg("transpose"), py::arg("reg"), py::arg("reg_fe"),
        "Reads `file` by its extension (apt, fld, dat, wrl; any letter case), appending structured patches to `reg` "
        "and face patches to `reg_fe`; with `transpose`, every patch of `reg` is transposed afterwards.\n\n"
        "Returns True on success and False for a name whose extension chooses no format. A reader that fails "
        "raises MessageError with its message (the patches it appended before failing stay).");

    m.def(
        "export_data",
        [](const std::filesystem::path& file, int precision, bool split, bool scientific, region& reg,
           region_fe& reg_fe) {
            const auto held = hold(reg, reg_fe);
            checkPatches(reg);
            checkFaces(reg_fe);
            PythonHost host;
            const bool ok =
                underHost(host, [&] { return export_data(file.string(), precision, split, scientific, reg, reg_fe); });
            settle(ok, host.messages);
            return ok;
        },
        py::arg("file"), py::arg("precision"), py::arg("split"), py::arg("scientific"), py::arg("reg"),
        py::arg("reg_fe"),
        "Writes the patches of `reg` and (except for fld) the face patches of `reg_fe` to `file`, or with `split` "
        "one file per patch (name_1.ext, name_2.ext, ...). `precision` digits, fixed or `scientific` notation.\n\n"
        "Returns True on success and False for a name whose extension chooses no format. A writer that fails "
        "raises MessageError with its message.");

    m.def(
        "write_safely",
        [](const std::filesystem::path& file, region& reg, region_fe& reg_fe, int precision, bool split,
           bool scientific, bool binary) {
            const auto held = hold(reg, reg_fe);
            checkPatches(reg);
            checkFaces(reg_fe);
            PythonHost host;
            const SafeWriteResult r = underHost(
                host, [&] { return exportDataSafely(file.string(), {precision, scientific, split, binary}, reg, reg_fe); });
            if (!r) raiseMessages({r.message});
            settle(true, host.messages);
            return r.files;
        },
        py::arg("file"), py::arg("reg"), py::arg("reg_fe"), py::arg("precision") = 6, py::arg("split") = false,
        py::arg("scientific") = false, py::arg("binary") = false,
        "Writes what export_data writes, each file first into a hidden folder beside it and moved onto its name "
        "only when complete: a failed write leaves an earlier file untouched and nothing else behind. `binary` "
        "writes binary data where the format has them (VTK). Returns the files written; raises MessageError with "
        "the library's text, the file and the system's reason.");

    py::class_<GeometryFormat>(m, "GeometryFormat",
                               "One file format of the registry that import_data and export_data go through.")
        .def_property_readonly("name", [](const GeometryFormat& f) { return std::string(f.name); })
        .def_property_readonly(
            "extensions",
            [](const GeometryFormat& f) {
                std::vector<std::string> out;
                for (std::string_view e : f.extensions) out.emplace_back(e);
                return out;
            },
            "Lower-case extensions without the dot.")
        .def_property_readonly(
            "structured_patches", [](const GeometryFormat& f) { return f.structuredPatches; },
            "Holds the structured patches of a region.")
        .def_property_readonly(
            "face_patches", [](const GeometryFormat& f) { return f.facePatches; },
            "Holds the face patches of a region_fe.")
        .def("__repr__", [](const GeometryFormat& f) { return "<GeometryFormat " + std::string(f.name) + ">"; });
    m.def(
        "formats",
        [] {
            py::list out;
            for (const GeometryFormat& f : geometryFormats()) out.append(py::cast(&f, py::return_value_policy::reference));
            return out;
        },
        "The file formats, in the order the dispatch tests them.");
    m.def(
        "find_format",
        [](const std::string& extension) -> py::object {
            const GeometryFormat* f = findGeometryFormat(file_extension("." + extension));
            return f ? py::cast(f, py::return_value_policy::reference) : py::none();
        },
        py::arg("extension"), "The format of an extension (any letter case, without the dot), or None.");

    m.def("file_extension", &file_extension, py::arg("name"),
          "The lowered text after the last '.' of `name`, or '' when there is none or it is the last character.");
    m.def("transpose_patch", &transpose_patch, py::arg("patch"),
          "A new patch with the first and second directions exchanged.");
}

}  // namespace tundrel::py_bind
