#include "fuzz/fuzz_util.h"

// One VTK XML piece (.vts or .vtp, by its content), ASCII or appended raw.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzutil::readGeometry(data, size, "vts");
    return 0;
}
