// The XML marker reader on arbitrary bytes: it ends in markers or in
// FileError, and yields no more markers than the text can declare.
#include <iostream>

#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        std::cerr.setstate(std::ios::failbit);  // the reporter's lines
        return true;
    }();
    (void)quiet;
    fuzzutil::quietHost();
    markers set;
    if (!fuzzutil::readMarkers(data, size, "mrk", set, 0)) return 0;  // FileError by design
    const std::size_t n = set.list.size();
    fuzzutil::check(n <= 65536 || n <= size, "markers within the text");
    return 0;
}
