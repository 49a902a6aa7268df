// The image-point marker reader ("mpt", and "inm" with its rows flipped) on
// arbitrary bytes. Both readings of the same text must agree: the same
// records, y flipped in one of them, numbered from 1, all four flags set
// exactly when something was read.
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int kImageHeight = 480;
    fuzzutil::quietHost();
    markers plain, flipped;
    fuzzutil::check(fuzzutil::readMarkers(data, size, "mpt", plain, kImageHeight) &&
                        fuzzutil::readMarkers(data, size, "inm", flipped, kImageHeight),
                    "text always reads");
    fuzzutil::checkTextMarkers(plain, size, 10);
    fuzzutil::checkTextMarkers(flipped, size, 10);
    fuzzutil::check(plain.count() == flipped.count(), "as many records flipped");
    for (int i = 0; i < plain.count(); ++i) {
        const marker& a = plain.at(i);
        const marker& b = flipped.at(i);
        fuzzutil::check(a.x == b.x && a.active == b.active && a.number == b.number && a.z == 0 && a.value == 0,
                        "the same records");
        fuzzutil::check(b.y == static_cast<double>(kImageHeight) - a.y - 1.0, "rows flipped");
    }
    return 0;
}
