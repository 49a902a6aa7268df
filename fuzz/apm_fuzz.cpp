// The 3-D point marker reader ("apm") on arbitrary bytes, through
// importMarkers as a user calls it: records numbered from 1, all active,
// all four flags set exactly when something was read.
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzutil::quietHost();
    const std::string path = fuzzutil::inputFile(data, size, "apm");
    markers set;
    try {
        importMarkers(path, set, 0);
    } catch (const arrayWorks::GenericError&) {
        std::abort();  // a regular file always reads
    }
    fuzzutil::checkTextMarkers(set, size, 6);
    for (const marker& m : set.list) fuzzutil::check(m.active && m.value == 0);
    return 0;
}
