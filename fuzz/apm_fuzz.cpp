// The 3-D point marker reader ("apm") on arbitrary bytes: it always reads,
// records numbered from 1, all active, all four flags set exactly when
// something was read.
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzutil::quietHost();
    markers set;
    fuzzutil::check(fuzzutil::readMarkers(data, size, "apm", set, 0), "text always reads");
    fuzzutil::checkTextMarkers(set, size, 6);
    for (const marker& m : set.list) fuzzutil::check(m.active && m.value == 0, "active, value 0");
    return 0;
}
