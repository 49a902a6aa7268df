// FLD: a one-word title, the patch and extra-variable counts with the extra
// names, then per patch "A B" (B the fast direction), four boundary words and
// A*B points of x, y, z and the extras; Mach, alpha and beta close the file.
#include <limits>
#include <unordered_map>

#include "api/detail/date.h"
#include "api/formats/formats.h"
#include "api/detail/items.h"
#include "api/detail/format_readers.h"
#include "api/detail/text.h"
#include "api/host.h"
#include "api/detail/geometry_rules.h"

namespace {

constexpr const char* kCloseFailed = "It's impossible to close FLD file";
constexpr const char* kBadRange = "Dummy Error";
constexpr const char* kNoCoordinates = "Error in Header. No predefined variables X or Y or Z are found";

}  // namespace

namespace tundrel::formats {

bool read_fld_text(std::string_view text, region& reg) {
    tundrel::text::Scanner in(tundrel::text::withoutByteOrderMark(text));

    std::string title;
    if (in.readWord(title)) reg.name = std::move(title);
    std::int32_t patches = 0, extras = 0;
    in.readInt(patches);
    in.readInt(extras);
    // Every name takes at least two characters of what is left.
    if (in.good() && (extras < 0 || !in.canHold(static_cast<std::uint64_t>(extras)))) in.setFail();

    std::vector<std::string> names{"x", "y", "z"};
    for (std::int32_t k = 0; k < extras && in.good(); ++k) {
        std::string name;
        in.readWord(name);
        names.push_back(std::move(name));
    }
    const std::int64_t perPoint = static_cast<std::int64_t>(names.size());
    // Empty patches cost a few bytes of text but a full set of variables
    // each: the variables a file may create are bounded by its size, so that
    // memory stays proportional to it. A patch with points pays for its
    // variables with their values and never reaches the bound.
    std::uint64_t variableBudget = static_cast<std::uint64_t>(in.size()) + 4096;

    for (std::int32_t p = 0; p < patches && in.good(); ++p) {
        std::int32_t A = 0, B = 0;
        in.readInt(A);
        in.readInt(B);
        std::string_view boundary;
        for (int w = 0; w < 4; ++w) in.readWord(boundary);
        if (in.fail()) break;
        // Counts that are negative, too large for a patch, or larger than the
        // rest of the file can hold end the file like a short point list.
        const std::int64_t points = static_cast<std::int64_t>(A) * B;
        if (A < 0 || B < 0 || points > std::numeric_limits<std::int32_t>::max() ||
            !in.canHold(static_cast<std::uint64_t>(points * perPoint)) || variableBudget < names.size()) {
            in.setFail();
            break;
        }
        variableBudget -= names.size();
        auto patch = std::make_shared<StructPatch>(B, A, 1);
        patch->name = "Patch_" + std::to_string(p);
        // A name given twice is one variable; its later column wins, as the
        // reads land in it in file order.
        std::vector<double*> columns;
        std::unordered_map<std::string_view, double*> byName;
        for (const std::string& name : names) {
            auto [slot, added] = byName.try_emplace(name, nullptr);
            if (added) {
                auto v = std::make_shared<NodeVariable>(name, patch->I, patch->J, patch->K);
                slot->second = v->values.data();
                patch->variables.append(std::move(v));
            }
            columns.push_back(slot->second);
        }
        for (std::int64_t n = 0; n < points && in.good(); ++n)
            for (double* column : columns) in.readDouble(column[n]);
        reg.append(std::move(patch));
    }

    in.readDouble(reg.Mach);  // a failed read leaves the value as it was
    in.readDouble(reg.alpha);
    in.readDouble(reg.beta);
    if (in.fail()) {
        tundrel::showMessage(kCloseFailed);
        return false;
    }
    return true;
}

bool write_fld(const std::string& file, region& reg, int first, int last, int precision, bool scientific) {
    if (!tundrel::checkItemRange(first, last, reg.patchCount(), kBadRange)) return false;
    const StructPatch& p0 = reg.patch(0);
    const CoordinateSlots c = findCoordinates(p0.variables);
    if (p0.variableCount() == 0 || !c.complete()) {
        tundrel::showMessage(kNoCoordinates);
        return false;
    }

    tundrel::text::Writer out(file);
    out.setFormat(precision, scientific);
    int variables = -1;  // of the first patch written
    for (int idx = first; idx <= last; ++idx) {
        const StructPatch& p = reg.patch(idx);
        if (p.K >= 2) continue;  // surfaces only
        if (variables < 0) variables = p.variableCount();
        if (idx == first) {
            if (reg.name.empty()) reg.name = tundrel::strdate();
            out << reg.name;
            out.endl();
            out << "   " << (last - first + 1) << "   " << (p.variableCount() - 3);
            for (const auto& v : p.variables)
                if (v && !isCoordinateName(v->name)) out << "     " << v->name;
        }
        out.endl();
        out << p.J << ' ' << p.I << ' ' << "WALL  WALL  WALL  WALL";

        const NodeVariable& x = p.variable(c.x);
        const NodeVariable& y = p.variable(c.y);
        const NodeVariable& z = p.variable(c.z);
        std::vector<const NodeVariable*> extra;
        for (int k = 0; k < variables; ++k) {
            const NodeVariable& v = p.variable(k);
            if (!isCoordinateName(v.name)) extra.push_back(&v);
        }
        for (const NodeVariable* v : {&x, &y, &z})
            if (v->count < p.N) throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
        for (const NodeVariable* v : extra)
            if (v->count < p.N) throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
        for (std::size_t n = 0; n < static_cast<std::size_t>(p.N); ++n) {
            out.endl();
            out << x.values[n] << ' ' << y.values[n] << ' ' << z.values[n];
            for (const NodeVariable* v : extra) out << "  " << v->values[n];
        }
    }
    out.endl();
    out << reg.Mach << ' ' << reg.alpha << ' ' << reg.beta;
    if (!out.close()) {
        tundrel::showMessage(kCloseFailed);
        return false;
    }
    return true;
}

}  // namespace tundrel::formats
