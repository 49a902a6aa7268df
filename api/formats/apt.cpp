// APT: structured patches of x, y, z points. A patch is a header "A B" (B the
// fast direction) and A*B points; patches follow one another to the end of
// the file. Face patches are written as one 2 x 2 patch a face.
#include <algorithm>
#include <limits>

#include "api/formats/formats.h"
#include "api/detail/items.h"
#include "api/detail/format_readers.h"
#include "api/detail/text.h"
#include "api/host.h"
#include "api/detail/geometry_rules.h"

namespace {

constexpr const char* kCloseFailed = "It's impossible to close APT file";
constexpr const char* kBadRange = "Dummy error";
constexpr const char* kFewVariables = "Error in Header. The number of variables <3";
constexpr const char* kNoCoordinates = "Error in Header. No predefined variables X or Y or Z are found";
constexpr const char* kNoFaceCoordinates = "Irregular structure of APT file. Variables X or Y or Z are absent";

double faceCoordinate(const NodeVariable& v, std::int32_t node) {
    if (node < 0 || node >= v.count) throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
    const double value = v.values[static_cast<std::size_t>(node)];
    return value < tundrel::kWrittenAsZeroBelow ? 0.0 : value;
}

}  // namespace

namespace tundrel::formats {

bool read_apt_text(std::string_view text, region& reg) {
    tundrel::text::Scanner in(tundrel::text::withoutByteOrderMark(text));
    for (;;) {
        std::int32_t A = 0, B = 0;
        if (!in.readInt(A) || !in.readInt(B)) return true;
        // Counts that are negative, overflow, or ask for more points than the
        // rest of the file can hold end like a short point list.
        const std::int64_t points = static_cast<std::int64_t>(A) * B;
        if (A < 0 || B < 0 || points > std::numeric_limits<std::int32_t>::max() ||
            !in.canHold(static_cast<std::uint64_t>(points) * 3)) {
            tundrel::showMessage(kCloseFailed);
            return false;
        }
        auto patch = std::make_shared<StructPatch>(B, A, 1);
        double* x = patch->addVariable("x").values.data();
        double* y = patch->addVariable("y").values.data();
        double* z = patch->addVariable("z").values.data();
        for (std::int64_t n = 0; n < points; ++n) {
            if (!in.readDouble(x[n]) || !in.readDouble(y[n]) || !in.readDouble(z[n])) break;
        }
        if (in.fail()) {
            tundrel::showMessage(kCloseFailed);
            return false;
        }
        reg.append(std::move(patch));
    }
}

bool write_apt(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific) {
    const int patches = reg.patchCount();
    if (!tundrel::checkItemRange(first, last, patches + reg_fe.patchCount(), kBadRange)) return false;
    tundrel::text::Writer out(file);
    out.setFormat(precision, scientific);

    CoordinateSlots c;
    for (int idx = first; idx <= last; ++idx) {
        if (idx < patches) {
            if (idx == first) {
                // The coordinates are looked up once, on the region's first patch.
                const StructPatch& p0 = reg.patch(0);
                if (p0.variableCount() < 3) {
                    out.close();
                    tundrel::showMessage(kFewVariables);
                    return false;
                }
                c = findCoordinates(p0.variables);
                if (!c.complete()) {
                    out.close();
                    tundrel::showMessage(kNoCoordinates);
                    return false;
                }
            }
            const StructPatch& p = reg.patch(idx);
            const NodeVariable& x = p.variable(c.x);
            const NodeVariable& y = p.variable(c.y);
            const NodeVariable& z = p.variable(c.z);
            if (x.count < p.N || y.count < p.N || z.count < p.N)
                throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
            out << p.J << ' ' << p.I;
            out.endl();
            for (std::size_t n = 0; n < static_cast<std::size_t>(p.N); ++n) {
                out << x.values[n] << ' ' << y.values[n] << ' ' << z.values[n];
                out.endl();
            }
            continue;
        }

        const FacePatch& f = reg_fe.patch(idx - patches);
        if (idx == first) {
            c = findCoordinates(f.variables);
            if (!c.complete()) {
                out.close();
                tundrel::showMessage(kNoFaceCoordinates);
                return false;
            }
        }
        const NodeVariable& x = f.variable(c.x);
        const NodeVariable& y = f.variable(c.y);
        const NodeVariable& z = f.variable(c.z);
        auto point = [&](std::int32_t node) {
            out << "  " << faceCoordinate(x, node) << "  " << faceCoordinate(y, node) << "  "
                << faceCoordinate(z, node);
            out.endl();
        };
        const std::size_t length = std::min(f.faceIndex.size(), static_cast<std::size_t>(std::max(f.indexLength, 0)));
        std::size_t pos = 0;
        for (int face = 0; face < f.faces; ++face) {
            out << "2 2";
            out.endl();
            int written = 0;
            std::int32_t lastNode = -1;
            for (; pos < length && f.faceIndex[pos] >= 0; ++pos) {
                if (written < 4) {
                    lastNode = f.faceIndex[pos];
                    point(lastNode);
                    ++written;
                }
            }
            ++pos;  // the end mark
            if (written == 0) {
                // A face without nodes: four points at the origin.
                for (int k = 0; k < 4; ++k) {
                    out << "  " << 0.0 << "  " << 0.0 << "  " << 0.0;
                    out.endl();
                }
            } else if (written < 4) {
                point(lastNode);
            }
        }
    }
    if (!out.close()) {
        tundrel::showMessage(kCloseFailed);
        return false;
    }
    return true;
}

}  // namespace tundrel::formats
