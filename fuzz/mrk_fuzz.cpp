// The XML marker reader on arbitrary bytes: it ends in markers or in
// FileError, and what it yields is consistent.
#include <iostream>

#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        std::cerr.setstate(std::ios::failbit);  // the reporter's lines
        return true;
    }();
    (void)quiet;
    fuzzutil::quietHost();
    const std::string path = fuzzutil::inputFile(data, size, "mrk");
    markers set;
    try {
        importMarkers(path, set, 0);
    } catch (const arrayWorks::FileError&) {
        return 0;
    }
    // No more markers than the file can declare.
    const std::size_t n = set.list.size();
    fuzzutil::check(n <= 65536 || n <= size);
    return 0;
}
