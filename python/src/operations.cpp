// The exported operations on geometry and field containers.
#include "common.h"

namespace tundrel::py_bind {

void bindOperations(py::module_&) {}

}  // namespace tundrel::py_bind
