#include "api/fields/fields.h"
#include "api/host.h"

namespace tundrel {

bool acceptNewFunctionName(const FieldMasterD& field, const std::string& name) {
    if (field.findFunction(name) < 0) return true;
    showMessage(arrayWorks::kDuplicateNameMessage);
    return false;
}

}  // namespace tundrel
