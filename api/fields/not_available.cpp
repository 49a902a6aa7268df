// Field operations that this library does not offer: each tells the user so
// and leaves the container as it is.
#include "api/fields/fields.h"
#include "api/host.h"

namespace {
void notAvailable() { tundrel::showMessage("Not available"); }
}  // namespace

void convert(FieldMasterD&) { notAvailable(); }
void IR_camera(FieldMasterD&) { notAvailable(); }
void temperature_gages(FieldMasterD&) { notAvailable(); }
