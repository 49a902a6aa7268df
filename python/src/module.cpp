// The tundrel Python module: the library's types and exported functions under
// their C++ names.
#include "common.h"

namespace tundrel::py_bind { void bindRender(py::module_& m); }

PYBIND11_MODULE(_tundrel, m) {
    namespace tb = tundrel::py_bind;
    m.doc() = "TundrelApi: surface geometry, fields and file formats of wind-tunnel measurements.";
    m.attr("__version__") = TUNDREL_VERSION;
    tb::bindErrors(m);
    tb::bindGeometry(m);
    tb::bindFields(m);
    tb::bindOperations(m);
    tb::bindRender(m);
}
