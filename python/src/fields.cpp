// The field container: blocks, node positions and functions as NumPy views.
#include <unordered_map>

#include "common.h"

namespace tundrel::py_bind {

namespace {

using arrayWorks::BlockLayout;
using arrayWorks::FieldFunction;
using arrayWorks::FunctionKind;
using FunctionPtr = std::shared_ptr<FieldFunction>;
using Vec = z::zVec<double>;

// zVec has a virtual table: its three doubles sit at an offset inside a
// larger element.
std::size_t vecOffset() {
    static const Vec probe;
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&probe.x) - reinterpret_cast<const char*>(&probe));
}

py::array vecView(Vec* data, std::size_t n, py::handle owner) {
    static_assert(sizeof(double) * 3 <= sizeof(Vec));
    auto* first = reinterpret_cast<double*>(reinterpret_cast<char*>(data) + vecOffset());
    return view(first, {static_cast<py::ssize_t>(n), 3},
                {static_cast<py::ssize_t>(sizeof(Vec)), static_cast<py::ssize_t>(sizeof(double))}, owner);
}

// Views of the coordinate columns keep the container from adding blocks
// (which could move the columns): the count of live views per container.
std::unordered_map<const FieldMasterD*, int>& positionViews() {
    static auto* views = new std::unordered_map<const FieldMasterD*, int>();
    return *views;
}

struct PositionsOwner {
    py::object field;
    const FieldMasterD* key;
};

// A read-only view of one coordinate column (0 x, 1 y, 2 z). Read-only, as
// the container drops its derived normals on every position change, which a
// write through NumPy would bypass.
py::array columnView(py::object self, int axis) {
    auto& fm = self.cast<FieldMasterD&>();
    refuseWhileInUse(&fm);
    const std::span<const double> column = axis == 0 ? fm.x() : axis == 1 ? fm.y() : fm.z();
    auto* owner = new PositionsOwner{self, &fm};
    ++positionViews()[&fm];
    py::capsule base(owner, [](void* p) {
        auto* o = static_cast<PositionsOwner*>(p);
        auto& views = positionViews();
        if (--views[o->key] <= 0) views.erase(o->key);
        delete o;
    });
    py::array a = flatView(const_cast<double*>(column.data()), column.size(), base);
    a.attr("flags").attr("writeable") = false;
    return a;
}

// Every position as a new (n, 3) array.
py::array positionsCopy(const FieldMasterD& fm) {
    refuseWhileInUse(&fm);
    const std::size_t n = fm.totalNodes();
    py::array_t<double> a({static_cast<py::ssize_t>(n), py::ssize_t{3}});
    double* out = a.mutable_data();
    for (std::size_t k = 0; k < n; ++k) {
        out[3 * k] = fm.x()[k];
        out[3 * k + 1] = fm.y()[k];
        out[3 * k + 2] = fm.z()[k];
    }
    return a;
}

// The layout of block b as it was given: face blocks with their triangles in
// the block's own node numbers.
BlockLayout layoutOf(const FieldMasterD& fm, int b) {
    refuseWhileInUse(&fm);
    BlockLayout l = fm.layout(b);
    const auto first = static_cast<std::int32_t>(fm.offset(b));
    for (std::int32_t t : fm.blockTriangles(b))
        if (!l.structured()) l.triangles.push_back(t - first);
    return l;
}

// Values of node n of block b are at offset(b) + n; the views cover every block.
template <class V>
arrayWorks::BlockFunction<V>* as(FieldFunction& f) {
    return dynamic_cast<arrayWorks::BlockFunction<V>*>(&f);
}

py::array functionValues(py::object self) {
    auto& f = self.cast<FieldFunction&>();
    if (auto* s = as<double>(f)) return flatView(s->data(), s->size(), self);
    if (auto* s = as<unsigned char>(f)) return flatView(s->data(), s->size(), self);
    if (auto* s = as<Vec>(f)) return vecView(s->data(), s->size(), self);
    throw py::type_error("function \"" + f.name() + "\" holds values of a type without an array view");
}

py::array blockValues(py::object self, int b) {
    auto& f = self.cast<FieldFunction&>();
    if (auto* s = as<double>(f)) {
        const auto& a = s->values.block(b);
        return flatView(a.data, static_cast<std::size_t>(a.count), self);
    }
    if (auto* s = as<unsigned char>(f)) {
        const auto& a = s->values.block(b);
        return flatView(a.data, static_cast<std::size_t>(a.count), self);
    }
    if (auto* s = as<Vec>(f)) {
        const auto& a = s->values.block(b);
        return vecView(a.data, static_cast<std::size_t>(a.count), self);
    }
    throw py::type_error("function \"" + f.name() + "\" holds values of a type without an array view");
}

FunctionPtr functionAt(const FieldMasterD& fm, int i) {
    refuseWhileInUse(&fm);
    fm.functionAt(i);  // the checked index
    return fm.functions[static_cast<std::size_t>(i)];
}

FunctionPtr byKey(const FieldMasterD& fm, const py::object& key) {
    refuseWhileInUse(&fm);
    if (py::isinstance<py::str>(key)) {
        const std::string name = key.cast<std::string>();
        const int i = fm.findFunction(name);
        if (i < 0) throw py::key_error(name);
        return functionAt(fm, i);
    }
    int i = key.cast<int>();
    if (i < 0) i += fm.functionCount();
    return functionAt(fm, i);
}

void checkLayout(const BlockLayout& l, std::size_t positions) {
    if (l.nodes < 0 || static_cast<std::size_t>(l.nodes) != positions)
        throw py::value_error("the layout has " + std::to_string(l.nodes) + " nodes and " + std::to_string(positions) +
                              " positions were given");
    if (l.kind == BlockLayout::Kind::Structured) {
        if (l.rowLength < 0 || l.rows < 0 || l.layers < 0 ||
            static_cast<std::int64_t>(l.rowLength) * l.rows * l.layers != l.nodes)
            throw py::value_error("a structured block needs rowLength * rows * layers == nodes");
    } else {
        if (l.triangles.size() % 3 != 0) throw py::value_error("triangles must hold three node numbers each");
        for (std::int32_t n : l.triangles)
            if (n < 0 || n >= l.nodes)
                throw py::value_error("triangle node " + std::to_string(n) + " is outside 0.." +
                                      std::to_string(l.nodes - 1));
        if (l.faceIndex.size() % 4 != 0) throw py::value_error("faceIndex must hold four entries a face");
        for (std::int32_t n : l.faceIndex)
            if (n < -1 || n >= l.nodes)
                throw py::value_error("faceIndex entry " + std::to_string(n) + " is not -1 or a node below " +
                                      std::to_string(l.nodes));
    }
}

std::vector<Vec> toPositions(const py::array_t<double, py::array::c_style | py::array::forcecast>& a) {
    if (a.ndim() != 2 || a.shape(1) != 3) throw py::value_error("positions must be an (n, 3) array");
    std::vector<Vec> out(static_cast<std::size_t>(a.shape(0)));
    auto r = a.unchecked<2>();
    for (py::ssize_t n = 0; n < a.shape(0); ++n) out[static_cast<std::size_t>(n)] = Vec(r(n, 0), r(n, 1), r(n, 2));
    return out;
}

}  // namespace

void refuseWhilePositionsViewed(const FieldMasterD& fm) {
    refuseWhileInUse(&fm);
    if (positionViews().count(&fm) != 0)
        throw py::value_error(
            "a NumPy view of this container's positions is alive; set up every block before taking `x`, `y` or `z`");
}

void bindFields(py::module_& m) {
    py::class_<z::ambientFlow>(m, "ambientFlow", "Flow conditions: Mach number, angle of attack, sideslip angle.")
        .def(py::init([](double Mach, double alpha, double beta) { return z::ambientFlow{Mach, alpha, beta}; }),
             py::arg("Mach") = 0.0, py::arg("alpha") = 0.0, py::arg("beta") = 0.0)
        .def_readwrite("Mach", &z::ambientFlow::Mach)
        .def_readwrite("alpha", &z::ambientFlow::alpha)
        .def_readwrite("beta", &z::ambientFlow::beta)
        .def("__repr__", [](const z::ambientFlow& f) {
            return "ambientFlow(Mach=" + numberText(f.Mach) + ", alpha=" + numberText(f.alpha) +
                   ", beta=" + numberText(f.beta) + ")";
        });

    py::enum_<FunctionKind>(m, "FunctionKind")
        .value("Scalar", FunctionKind::Scalar)
        .value("Vector", FunctionKind::Vector)
        .value("Selection", FunctionKind::Selection);
    py::enum_<arrayWorks::SelectionState>(m, "SelectionState")
        .value("NothingSelected", arrayWorks::NothingSelected)
        .value("AllSelected", arrayWorks::AllSelected)
        .value("PartlySelected", arrayWorks::PartlySelected);

    py::class_<BlockLayout> layout(m, "BlockLayout", "How the nodes of a block are connected.");
    py::enum_<BlockLayout::Kind>(layout, "Kind")
        .value("Structured", BlockLayout::Kind::Structured)
        .value("Faces", BlockLayout::Kind::Faces);
    layout.def(py::init<>())
        .def_readwrite("kind", &BlockLayout::kind)
        .def_readwrite("nodes", &BlockLayout::nodes)
        .def_readwrite("rowLength", &BlockLayout::rowLength, "Structured blocks: nodes per row (the patch's I).")
        .def_readwrite("rows", &BlockLayout::rows, "Structured blocks: rows (the patch's J).")
        .def_readwrite("layers", &BlockLayout::layers, "Structured blocks: grids one after the other (the patch's K).")
        .def_readwrite("name", &BlockLayout::name)
        .def_property(
            "triangles",
            [](const BlockLayout& l) {
                py::array_t<std::int32_t> a({static_cast<py::ssize_t>(l.triangles.size() / 3), py::ssize_t{3}});
                std::copy(l.triangles.begin(), l.triangles.begin() + a.size(), a.mutable_data());
                return a;
            },
            [](BlockLayout& l, const py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>& a) {
                l.triangles.assign(a.data(), a.data() + a.size());
            },
            "Face blocks: an (n, 3) array of node numbers (a copy).")
        .def_property(
            "faceIndex",
            [](const BlockLayout& l) {
                py::array_t<std::int32_t> a(static_cast<py::ssize_t>(l.faceIndex.size()));
                std::copy(l.faceIndex.begin(), l.faceIndex.end(), a.mutable_data());
                return a;
            },
            [](BlockLayout& l, const py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>& a) {
                l.faceIndex.assign(a.data(), a.data() + a.size());
            },
            "Face blocks: the face index list of the patch, four entries a face (a copy); the way back to "
            "geometry uses it when set, the triangles otherwise.")
        .def("triangleCount", &BlockLayout::triangleCount, "Number of triangles of a face block.")
        .def_static(
            "structured",
            [](int rowLength, int rows, int layers, const std::string& name) {
                if (rowLength < 0 || rows < 0 || layers < 0 ||
                    static_cast<std::int64_t>(rowLength) * rows * layers > INT32_MAX)
                    throw py::value_error("rowLength, rows and layers must be non-negative, their product below 2**31");
                BlockLayout l;
                l.kind = BlockLayout::Kind::Structured;
                l.rowLength = rowLength;
                l.rows = rows;
                l.layers = layers;
                l.nodes = rowLength * rows * layers;
                l.name = name;
                return l;
            },
            py::arg("rowLength"), py::arg("rows"), py::arg("layers") = 1, py::arg("name") = "",
            "A structured block of rowLength x rows (x layers) nodes.")
        .def_static(
            "faces",
            [](int nodes, const py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>& triangles,
               const std::string& name) {
                BlockLayout l;
                l.kind = BlockLayout::Kind::Faces;
                l.nodes = nodes;
                l.triangles.assign(triangles.data(), triangles.data() + triangles.size());
                l.name = name;
                return l;
            },
            py::arg("nodes"), py::arg("triangles"), py::arg("name") = "", "A block of nodes joined by triangles.");

    py::class_<FieldFunction, FunctionPtr>(m, "FieldFunction",
                                           "One named function with one value per node of every block.")
        .def_property_readonly("name", &FieldFunction::name)
        .def("rename", &FieldFunction::rename, py::arg("name"), "Renames the function (names are not checked).")
        .def_property_readonly("kind", &FieldFunction::kind)
        .def("blockCount", &FieldFunction::blockCount, "Number of block arrays.")
        .def_property_readonly("values", &functionValues,
                               "Every value, block after block, as an array that views the library's memory: "
                               "float64 (n,) for scalars, float64 (n, 3) for vectors, uint8 (n,) for a selection.")
        .def("block", &blockValues, py::arg("b"), "The values of block b, as a view.")
        .def(
            "__array__",
            [](py::object self, py::object dtype) {
                py::array a = functionValues(self);
                return dtype.is_none() ? a : a.attr("astype")(dtype).cast<py::array>();
            },
            py::arg("dtype") = py::none())
        .def("__repr__", [](const FieldFunction& f) { return "<FieldFunction \"" + f.name() + "\">"; });

    py::class_<FieldMasterD, std::shared_ptr<FieldMasterD>>(
        m, "FieldMaster",
        "The field container: blocks of surface nodes (one per patch) and named functions with one value per node. "
        "\"$_selection\" is the node selection, \"$_N\" the node normals; a scalar -1e10 (kNoValue) means no value.")
        .def(py::init<>())
        .def("blockCount", guarded<&FieldMasterD::blockCount>, "Number of blocks (one per surface patch).")
        .def("nodeCount", guarded<&FieldMasterD::nodeCount>, py::arg("b"), "Number of nodes of block b.")
        .def("nodeCounts", guarded<&FieldMasterD::nodeCounts>, "Node count of every block, in order.")
        .def("totalNodes", guarded<&FieldMasterD::totalNodes>, "Nodes of all blocks together.")
        .def("offset", guarded<&FieldMasterD::offset>, py::arg("b"), "The first node of block b in the all-blocks arrays.")
        .def("layout", &layoutOf, py::arg("b"), "The layout of block b (a copy).")
        .def(
            "addBlock",
            [](FieldMasterD& fm, const BlockLayout& l,
               const py::array_t<double, py::array::c_style | py::array::forcecast>& positions) {
                refuseWhilePositionsViewed(fm);
                std::vector<Vec> p = toPositions(positions);
                checkLayout(l, p.size());
                return fm.addBlock(l, std::move(p));
            },
            py::arg("layout"), py::arg("positions"),
            "Appends a block with its (n, 3) node positions; blocks come before any function (StateError).")
        .def(
            "position",
            [](const FieldMasterD& fm, int b, int n) {
                refuseWhileInUse(&fm);
                const Vec v = fm.position(b, n);
                return py::make_tuple(v.x, v.y, v.z);
            },
            py::arg("b"), py::arg("n"), "The position (x, y, z) of node n of block b.")
        .def_property_readonly("positions", &positionsCopy,
                               "Every node position, block after block, as a new (n, 3) array (a copy: the "
                               "container keeps x, y and z as three columns, so an (n, 3) view of them is not "
                               "possible; use x, y, z for views).")
        .def_property_readonly(
            "x", [](py::object self) { return columnView(self, 0); },
            "The x coordinate of every node, block after block, as a read-only (n,) view of the container's "
            "column (positions change through addBlock only). While such a view is alive the container refuses "
            "new blocks.")
        .def_property_readonly(
            "y", [](py::object self) { return columnView(self, 1); }, "The y column, as x.")
        .def_property_readonly(
            "z", [](py::object self) { return columnView(self, 2); }, "The z column, as x.")
        .def("functionCount", guarded<&FieldMasterD::functionCount>, "Number of functions.")
        .def("functionAt", &functionAt, py::arg("i"), "The function at i (IndexError out of range).")
        .def("findFunction", guarded<&FieldMasterD::findFunction>, py::arg("name"),
             "Index of the first function of exactly that name, or -1.")
        .def("hasFunction", guarded<&FieldMasterD::hasFunction>, py::arg("name"), "True when a function has exactly that name.")
        .def("__getitem__", &byKey, py::arg("key"), "A function by name (KeyError when absent) or index.")
        .def("__contains__", guarded<&FieldMasterD::hasFunction>)
        .def("__len__", guarded<&FieldMasterD::functionCount>)
        .def_property_readonly(
            "functions",
            [](const FieldMasterD& fm) {
                refuseWhileInUse(&fm);
                py::list out;
                for (const auto& f : fm.functions) out.append(f ? py::cast(f) : py::none());
                return out;
            },
            "The functions, in order (a new list).")
        .def(
            "addScalar",
            [](FieldMasterD& fm, const std::string& name, double fill) {
                refuseWhileInUse(&fm);
                fm.addScalar(name, fill);
                return fm.functions.back();
            },
            py::arg("name"), py::arg("fill") = 0.0, "Appends a scalar function (names are not checked).")
        .def(
            "addVector",
            [](FieldMasterD& fm, const std::string& name) {
                refuseWhileInUse(&fm);
                fm.addVector(name);
                return fm.functions.back();
            },
            py::arg("name"), "Appends a vector function of zero vectors.")
        .def(
            "addSelection",
            [](FieldMasterD& fm, const std::string& name, unsigned char fill) {
                refuseWhileInUse(&fm);
                fm.addSelection(name, fill);
                return fm.functions.back();
            },
            py::arg("name") = arrayWorks::kSelectionName, py::arg("fill") = 0,
            "Appends a selection function (one byte a node).")
        .def(
            "selection",
            [](const FieldMasterD& fm) {
                refuseWhileInUse(&fm);
                const FieldFunction* s = &fm.selection();  // IndexError when absent
                for (const auto& f : fm.functions)
                    if (f.get() == s) return f;
                return FunctionPtr();
            },
            "The function \"$_selection\" (IndexError when absent).")
        .def("selectionState", guarded<&FieldMasterD::selectionState>,
             "NothingSelected, AllSelected (also when whole blocks are selected and others not) or PartlySelected.")
        .def("blockSelectionState", guarded<&FieldMasterD::blockSelectionState>, py::arg("b"),
             "NothingSelected, AllSelected or PartlySelected for block b.")
        .def("isSelected", guarded<&FieldMasterD::isSelected>, py::arg("b"), py::arg("n"),
             "The selection byte of node n of block b (nonzero: selected).")
        .def("__repr__", [](const FieldMasterD& fm) {
            return "<FieldMaster " + std::to_string(fm.blockCount()) + " blocks, " + std::to_string(fm.totalNodes()) +
                   " nodes, " + std::to_string(fm.functionCount()) + " functions>";
        });
}

}  // namespace tundrel::py_bind
