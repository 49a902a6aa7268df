// The image-point marker reader ("mpt", and "inm" with its rows flipped) on
// arbitrary bytes, through importMarkers as a user calls it. Both readings
// of the same file must agree: the same records, y flipped in one of them,
// numbered from 1, all four flags set exactly when something was read.
#include "fuzz/fuzz_util.h"

namespace {

constexpr int kImageHeight = 480;

bool read(const std::uint8_t* data, std::size_t size, const char* extension, markers& set) {
    const std::string path = fuzzutil::inputFile(data, size, extension);
    try {
        importMarkers(path, set, kImageHeight);
    } catch (const arrayWorks::GenericError&) {
        return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzutil::quietHost();
    markers plain, flipped;
    const bool readPlain = read(data, size, "mpt", plain);
    const bool readFlipped = read(data, size, "inm", flipped);
    fuzzutil::check(readPlain && readFlipped);  // a regular file always reads
    fuzzutil::checkTextMarkers(plain, size, 10);
    fuzzutil::checkTextMarkers(flipped, size, 10);
    fuzzutil::check(plain.count() == flipped.count());
    for (int i = 0; i < plain.count(); ++i) {
        const marker& a = plain.at(i);
        const marker& b = flipped.at(i);
        fuzzutil::check(a.x == b.x && a.active == b.active && a.number == b.number && a.z == 0 && a.value == 0);
        fuzzutil::check(b.y == static_cast<double>(kImageHeight) - a.y - 1.0);
    }
    return 0;
}
