// DAT: the ASCII data format of the Tecplot plotting program. The writer puts
// every structured patch in an ordered zone (F= POINT) and every face patch in
// a finite-element zone of triangles (F= FEPOINT), with a text record carrying
// the flow conditions. The reader takes the classic zone keywords (I, J, K, N,
// E, F, ET, DT) and the current ones (ZONETYPE, NODES, ELEMENTS, DATAPACKING),
// point and block packing, triangles and quadrilaterals.
#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_set>

#include "api/detail/date.h"
#include "api/formats/formats.h"
#include "api/detail/items.h"
#include "api/detail/format_readers.h"
#include "api/detail/text.h"
#include "api/host.h"
#include "api/detail/geometry_rules.h"

namespace {

using tundrel::text::equalsIgnoreCase;
using tundrel::text::Scanner;

constexpr const char* kBadRange = "Dummy Error";
constexpr const char* kNegativeIndex = "Logical Error. Index has negative value";
constexpr const char* kCloseFailed = "It's impossible to close DAT file";
constexpr const char* kNoTitle = "Error in the Header of DAT file. Parameter TITLE is absent";
constexpr const char* kNoVariables = "Error in the Header of DAT file. Parameter VARIABLES is absent";
constexpr const char* kWrongNames = "Error in the Header of DAT file. Wrong names of variables";
constexpr const char* kFewVariables = "Error in the Header of DAT file. The number of variables <3";
constexpr const char* kUnreadableVariables =
    "Error in the Header of DAT file. It's impossible to read variables from header";
constexpr const char* kBadZone = "Error in DAT file. It's impossible to read attributes of ZONE";
constexpr const char* kNoSurfaces = "Error in DAT structure. No 3D surfaces are found";

constexpr const char* kTextRecord1 = "TEXT CS=FRAME,C=BLACK,S=LOCAL,X=1.,Y=1.,HU=POINT,LS=1,AN=LEFT,BXM=20,LT=0.1";
constexpr const char* kTextRecord2 = "BXO=BLACK,BXF=WHITE,F=HELV-BOLD,H=14,A=0,MFC=";

double clamped(double v) { return v < tundrel::kWrittenAsZeroBelow ? 0.0 : v; }

// ---------------------------------------------------------------------------
// Reading

// A failure with the message the user sees.
struct Failure {
    const char* message;
};

enum class Record { None, Title, Variables, FileType, Zone, Text, Geometry, CustomLabels, DataSetAuxData, VarAuxData };

Record recordOf(std::string_view word) {
    struct Entry {
        const char* name;
        Record record;
    };
    static constexpr Entry kRecords[] = {
        {"TITLE", Record::Title},          {"VARIABLES", Record::Variables},
        {"FILETYPE", Record::FileType},    {"ZONE", Record::Zone},
        {"TEXT", Record::Text},            {"GEOMETRY", Record::Geometry},
        {"CUSTOMLABELS", Record::CustomLabels}, {"DATASETAUXDATA", Record::DataSetAuxData},
        {"VARAUXDATA", Record::VarAuxData},
    };
    for (const Entry& e : kRecords)
        if (equalsIgnoreCase(word, e.name)) return e.record;
    return Record::None;
}

bool startsNumber(int c) { return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.'; }

bool containsIgnoreCase(std::string_view text, std::string_view word) {
    for (std::size_t k = 0; k + word.size() <= text.size(); ++k)
        if (equalsIgnoreCase(text.substr(k, word.size()), word)) return true;
    return false;
}

// "mach=<v>, alpha=<v>, beta=<v>" as write_dat puts it in its text record.
bool parseFlow(std::string_view text, double& mach, double& alpha, double& beta) {
    const std::string_view keys[] = {"mach=", ", alpha=", ", beta="};
    double* out[] = {&mach, &alpha, &beta};
    double values[3];
    for (int k = 0; k < 3; ++k) {
        if (text.substr(0, keys[k].size()) != keys[k]) return false;
        text.remove_prefix(keys[k].size());
        const std::size_t end = k < 2 ? text.find(',') : text.size();
        if (end == std::string_view::npos || !tundrel::text::parseDouble(text.substr(0, end), values[k])) return false;
        text.remove_prefix(end);
    }
    for (int k = 0; k < 3; ++k) *out[k] = values[k];
    return true;
}

enum class Shape { Unknown, Ordered, Triangle, Quadrilateral };
enum class Packing { Unknown, Point, Block };

struct ZoneHeader {
    std::string title;
    std::int64_t I = 1, J = 1, K = 1;
    std::int64_t nodes = -1, elements = -1;
    Shape zoneType = Shape::Unknown;  // ZONETYPE
    Shape elementType = Shape::Unknown;  // ET
    bool finiteElementPacking = false;  // F=FEPOINT / FEBLOCK
    bool orderedPacking = false;  // F=POINT / BLOCK
    bool currentStyle = false;  // ZONETYPE, NODES, ELEMENTS or DATAPACKING seen
    Packing packing = Packing::Unknown;
};

class DatReader {
public:
    DatReader(std::string_view data, region& reg, region_fe& fe)
        : in_(data, tundrel::text::Separators{true, true}), reg_(reg), fe_(fe),
          variableBudget_(static_cast<std::uint64_t>(data.size()) + 4096) {}

    void run() {
        for (;;) {
            in_.skipSpace();
            if (in_.atEnd()) break;
            const std::size_t at = in_.position();
            std::string_view word;
            const Record r = in_.readName(word) ? recordOf(word) : Record::None;
            switch (r) {
                case Record::None:
                    in_.seek(at);
                    throw Failure{(haveTitle_ || haveVariables_) ? kBadZone : kNoTitle};
                case Record::Title: readTitle(); break;
                case Record::Variables: readVariables(); break;
                case Record::FileType: readFileType(); break;
                case Record::Zone:
                    if (!haveVariables_) throw Failure{kNoVariables};
                    readZone();
                    break;
                case Record::Text: readText(); break;
                default: skipRecord(nullptr); break;
            }
        }
        if (!haveVariables_) throw Failure{haveTitle_ ? kNoVariables : kNoTitle};
        if (!anyZone_) throw Failure{kNoSurfaces};
    }

private:
    enum class Owner { None, Region, Faces };

    void readTitle() {
        std::string title;
        if (!in_.accept('=') || !in_.readQuoted(title)) throw Failure{kNoTitle};
        title_ = std::move(title);
        haveTitle_ = true;
    }

    void readVariables() {
        if (haveVariables_ || !in_.accept('=')) throw Failure{kUnreadableVariables};
        for (;;) {
            in_.skipSpace();
            if (in_.atEnd()) break;
            std::string name;
            if (in_.peek() == '"') {
                if (!in_.readQuoted(name)) throw Failure{kUnreadableVariables};
            } else {
                if (startsNumber(in_.peek())) break;
                const std::size_t at = in_.position();
                std::string_view word;
                if (!in_.readName(word)) throw Failure{kUnreadableVariables};
                if (recordOf(word) != Record::None) {
                    in_.seek(at);
                    break;
                }
                name.assign(word);
            }
            names_.push_back(std::move(name));
        }
        haveVariables_ = true;
        if (names_.size() < 3) throw Failure{kFewVariables};
        std::unordered_set<std::string_view> seen;
        for (const std::string& n : names_)
            if (n.empty() || !seen.insert(n).second) throw Failure{kWrongNames};
        // The library's geometry is a surface in space: x, y and z are needed.
        bool axes[3] = {false, false, false};
        for (const std::string& n : names_)
            if (const int axis = coordinateAxis(n); axis >= 0) axes[axis] = true;
        if (!(axes[0] && axes[1] && axes[2])) throw Failure{kNoSurfaces};
    }

    void readFileType() {
        std::string_view type;
        if (!in_.accept('=') || !in_.readName(type)) throw Failure{kUnreadableVariables};
        // A solution file holds values without a grid.
        if (equalsIgnoreCase(type, "SOLUTION")) throw Failure{kNoSurfaces};
        if (!equalsIgnoreCase(type, "FULL") && !equalsIgnoreCase(type, "GRID")) throw Failure{kUnreadableVariables};
    }

    // Reads the value after "name =": a quoted string, a parenthesised or
    // bracketed list (returned without its outer brackets), or a name.
    std::string readValue() {
        in_.skipSpace();
        const int c = in_.peek();
        std::string value;
        if (c == '"') {
            if (!in_.readQuoted(value)) throw Failure{kBadZone};
            return value;
        }
        if (c == '(' || c == '[') {
            const std::string_view rest = in_.rest();
            int depth = 0;
            for (std::size_t k = 0; k < rest.size(); ++k) {
                if (rest[k] == '(' || rest[k] == '[') ++depth;
                if (rest[k] == ')' || rest[k] == ']') --depth;
                if (depth == 0) {
                    in_.advance(k + 1);
                    return std::string(rest.substr(1, k - 1));
                }
            }
            throw Failure{kBadZone};
        }
        std::string_view word;
        if (!in_.readName(word)) throw Failure{kBadZone};
        return std::string(word);
    }

    static std::int64_t count(const std::string& value) {
        std::int32_t n = 0;
        if (!tundrel::text::parseInt(value, n) || n < 0) throw Failure{kBadZone};
        return n;
    }

    static Shape elementShape(const std::string& value) {
        if (equalsIgnoreCase(value, "TRIANGLE")) return Shape::Triangle;
        if (equalsIgnoreCase(value, "QUADRILATERAL")) return Shape::Quadrilateral;
        throw Failure{kBadZone};  // lines and volume cells are not surfaces
    }

    void attribute(ZoneHeader& z, std::string_view key, const std::string& value) {
        auto is = [&](const char* name) { return equalsIgnoreCase(key, name); };
        auto valueIs = [&](const char* name) { return equalsIgnoreCase(value, name); };
        if (is("T")) {
            z.title = value;
        } else if (is("I")) {
            z.I = count(value);
        } else if (is("J")) {
            z.J = count(value);
        } else if (is("K")) {
            z.K = count(value);
        } else if (is("N") || is("NODES")) {
            z.nodes = count(value);
            z.currentStyle = z.currentStyle || is("NODES");
        } else if (is("E") || is("ELEMENTS")) {
            z.elements = count(value);
            z.currentStyle = z.currentStyle || is("ELEMENTS");
        } else if (is("ZONETYPE")) {
            z.currentStyle = true;
            if (valueIs("ORDERED")) z.zoneType = Shape::Ordered;
            else if (valueIs("FETRIANGLE")) z.zoneType = Shape::Triangle;
            else if (valueIs("FEQUADRILATERAL")) z.zoneType = Shape::Quadrilateral;
            else throw Failure{kBadZone};
        } else if (is("ET")) {
            z.elementType = elementShape(value);
        } else if (is("F")) {
            if (valueIs("POINT") || valueIs("BLOCK")) z.orderedPacking = true;
            else if (valueIs("FEPOINT") || valueIs("FEBLOCK")) z.finiteElementPacking = true;
            else throw Failure{kBadZone};
            z.packing = (valueIs("POINT") || valueIs("FEPOINT")) ? Packing::Point : Packing::Block;
        } else if (is("DATAPACKING")) {
            z.currentStyle = true;
            if (valueIs("POINT")) z.packing = Packing::Point;
            else if (valueIs("BLOCK")) z.packing = Packing::Block;
            else throw Failure{kBadZone};
        } else if (is("VARLOCATION")) {
            // Values at cell centres have no place on the nodes.
            if (containsIgnoreCase(value, "CELLCENTERED")) throw Failure{kBadZone};
        } else if (is("FACENEIGHBORCONNECTIONS")) {
            if (count(value) != 0) throw Failure{kBadZone};
        } else if (is("VARSHARELIST") || is("PASSIVEVARLIST") || is("CONNECTIVITYSHAREZONE") || is("D") ||
                   is("NV") || is("FACES") || is("TOTALNUMFACENODES") || is("NUMCONNECTEDBOUNDARYFACES") ||
                   is("TOTALNUMBOUNDARYCONNECTIONS")) {
            // Data shared with other zones, passive variables and polyhedral
            // layouts change what the zone's data holds: not taken.
            throw Failure{kBadZone};
        }
        // Everything else (DT, C, STRANDID, SOLUTIONTIME, PARENTZONE, ...)
        // leaves the data as it is.
    }

    ZoneHeader readZoneHeader() {
        ZoneHeader z;
        for (;;) {
            in_.skipSpace();
            if (in_.atEnd() || startsNumber(in_.peek())) break;
            const std::size_t at = in_.position();
            std::string_view key;
            if (!in_.readName(key)) throw Failure{kBadZone};
            if (recordOf(key) != Record::None) {
                in_.seek(at);
                break;
            }
            if (equalsIgnoreCase(key, "AUXDATA")) {
                std::string_view name;
                if (!in_.readName(name) || !in_.accept('=')) throw Failure{kBadZone};
                readValue();
                continue;
            }
            const std::string keyText(key);
            if (!in_.accept('=')) {
                // Data may begin with a value written for a non-finite number.
                if (equalsIgnoreCase(key.substr(0, 3), "nan") || equalsIgnoreCase(key.substr(0, 3), "inf")) {
                    in_.seek(at);
                    break;
                }
                throw Failure{kBadZone};
            }
            attribute(z, keyText, readValue());
        }
        return z;
    }

    bool fits(std::uint64_t numbers) const { return in_.canHold(numbers); }

    // A value that is not a decimal number: what the writer prints for
    // non-finite numbers, or the end of the zone's data.
    double special() {
        const std::string_view rest = in_.rest();
        static constexpr std::pair<const char*, double> kSpecial[] = {
            {"-nan", -std::numeric_limits<double>::quiet_NaN()},
            {"nan", std::numeric_limits<double>::quiet_NaN()},
            {"-inf", -std::numeric_limits<double>::infinity()},
            {"inf", std::numeric_limits<double>::infinity()},
        };
        for (const auto& [word, v] : kSpecial) {
            const std::size_t n = std::strlen(word);
            if (rest.size() >= n && equalsIgnoreCase(rest.substr(0, n), word)) {
                in_.advance(n);
                return v;
            }
        }
        throw Failure{kBadZone};
    }

    // `count` values into a table of `width` columns, row by row.
    void readTable(double* const* columns, std::size_t width, std::size_t count) {
        for (std::size_t k = in_.readTable(columns, width, 0, count); k < count;) {
            in_.skipSpace();
            columns[k % width][k / width] = special();
            ++k;
            k += in_.readTable(columns, width, k, count - k);
        }
    }

    void readValues(const std::vector<double*>& columns, std::size_t points, Packing packing) {
        if (packing == Packing::Point) {
            readTable(columns.data(), columns.size(), points * columns.size());
        } else {
            for (double* column : columns) readTable(&column, 1, points);
        }
    }

    template <class Patch>
    std::vector<double*> addVariables(Patch& patch) {
        if (variableBudget_ < names_.size()) throw Failure{kBadZone};
        variableBudget_ -= names_.size();
        std::vector<double*> columns;
        columns.reserve(names_.size());
        // The names are distinct: no lookup of existing variables is needed.
        for (const std::string& name : names_) {
            auto v = std::make_shared<NodeVariable>(name, patch.I, patch.J, patch.K);
            columns.push_back(v->values.data());
            patch.variables.append(std::move(v));
        }
        return columns;
    }

    void readZone() {
        ZoneHeader z = readZoneHeader();
        const bool finiteElement = z.finiteElementPacking || z.elementType != Shape::Unknown ||
                                   z.zoneType == Shape::Triangle || z.zoneType == Shape::Quadrilateral;
        const Packing packing =
            z.packing != Packing::Unknown ? z.packing : (z.currentStyle ? Packing::Block : Packing::Point);
        const std::uint64_t V = names_.size();

        if (!finiteElement) {
            if (z.nodes >= 0 || z.elements >= 0) throw Failure{kBadZone};
            constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());
            std::uint64_t N = static_cast<std::uint64_t>(z.I) * static_cast<std::uint64_t>(z.J);
            if (N > kMax) throw Failure{kBadZone};
            N *= static_cast<std::uint64_t>(z.K);
            if (N > kMax || !fits(N * V)) throw Failure{kBadZone};
            auto patch = std::make_shared<StructPatch>(static_cast<int>(z.I), static_cast<int>(z.J),
                                                       static_cast<int>(z.K));
            patch->name = z.title;
            readValues(addVariables(*patch), N, packing);
            reg_.append(std::move(patch));
            if (haveTitle_) reg_.name = title_;
            owner_ = Owner::Region;
            anyZone_ = true;
            return;
        }

        if (z.zoneType == Shape::Ordered || z.orderedPacking || z.nodes < 0 || z.elements < 0) throw Failure{kBadZone};
        Shape shape = z.zoneType != Shape::Unknown ? z.zoneType : z.elementType;
        if (shape == Shape::Unknown || (z.elementType != Shape::Unknown && z.elementType != shape))
            throw Failure{kBadZone};
        const std::uint64_t N = static_cast<std::uint64_t>(z.nodes);
        const std::uint64_t E = static_cast<std::uint64_t>(z.elements);
        const std::uint64_t corners = shape == Shape::Triangle ? 3 : 4;
        if (!fits(N * V + E * corners)) throw Failure{kBadZone};

        auto patch = std::make_shared<FacePatch>(static_cast<int>(z.nodes), 0, 0);
        patch->name = z.title;
        readValues(addVariables(*patch), N, packing);

        // Node numbers count from 1; every face becomes triangles of 0-based
        // numbers ended by -1. A quadrilateral whose last node repeats its
        // third is a triangle.
        // Read into the front of the index list, then spread out from the
        // back, each element into its own one or two triangles.
        const std::size_t slots = corners == 3 ? 4 : 8;
        std::vector<std::int32_t> index(static_cast<std::size_t>(E) * slots);
        if (in_.readInts(index.data(), static_cast<std::size_t>(E * corners)) != E * corners)
            throw Failure{kBadZone};
        constexpr std::int32_t kUnused = std::numeric_limits<std::int32_t>::min();
        bool unused = false;
        for (std::size_t e = static_cast<std::size_t>(E); e-- > 0;) {
            std::int32_t node[4];
            for (std::size_t k = 0; k < corners; ++k) {
                node[k] = index[e * corners + k];
                if (node[k] < 1 || static_cast<std::uint64_t>(node[k]) > N) throw Failure{kBadZone};
                --node[k];
            }
            std::int32_t* out = &index[e * slots];
            out[0] = node[0], out[1] = node[1], out[2] = node[2], out[3] = -1;
            if (corners == 4) {
                if (node[3] != node[2]) {
                    out[4] = node[0], out[5] = node[2], out[6] = node[3], out[7] = -1;
                } else {
                    out[4] = kUnused;
                    unused = true;
                }
            }
        }
        if (unused) {
            std::size_t kept = 0;
            for (std::size_t f = 0; f < index.size(); f += 4)
                if (index[f] != kUnused) {
                    std::copy_n(&index[f], 4, &index[kept]);
                    kept += 4;
                }
            index.resize(kept);
        }
        if (index.size() / 4 > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
            throw Failure{kBadZone};
        patch->faces = static_cast<std::int32_t>(index.size() / 4);
        patch->indexLength = static_cast<std::int32_t>(index.size());
        patch->faceIndex = std::move(index);
        fe_.append(std::move(patch));
        if (haveTitle_) fe_.name = title_;
        owner_ = Owner::Faces;
        anyZone_ = true;
    }

    // A text record is skipped, except that the flow conditions write_dat
    // puts in one go to the object that owns the zone before it.
    void readText() {
        std::string text;
        skipRecord(&text);
        double mach = 0, alpha = 0, beta = 0;
        if (!parseFlow(text, mach, alpha, beta)) return;
        auto set = [&](auto& target) {
            target.Mach = mach;
            target.alpha = alpha;
            target.beta = beta;
        };
        if (owner_ != Owner::Faces) set(reg_);
        if (owner_ != Owner::Region) set(fe_);
    }

    // Skips a record up to the next record keyword. With `text`, keeps the
    // quoted value of its T attribute.
    void skipRecord(std::string* text) {
        bool afterT = false, afterEquals = false;
        for (;;) {
            in_.skipSpace();
            if (in_.atEnd()) return;
            const int c = in_.peek();
            if (c == '"') {
                std::string quoted;
                if (!in_.readQuoted(quoted)) throw Failure{kBadZone};
                if (text != nullptr && afterT && afterEquals) *text = std::move(quoted);
                afterT = afterEquals = false;
            } else if (c == '=') {
                in_.advance();
                afterEquals = true;
            } else if (c == '(' || c == ')' || c == '[' || c == ']') {
                in_.advance();
            } else {
                const std::size_t at = in_.position();
                std::string_view word;
                in_.readName(word);
                if (recordOf(word) != Record::None) {
                    in_.seek(at);
                    return;
                }
                afterT = equalsIgnoreCase(word, "T");
                afterEquals = false;
            }
        }
    }

    Scanner in_;
    region& reg_;
    region_fe& fe_;
    std::uint64_t variableBudget_;  // variables the file may still create
    std::vector<std::string> names_;
    std::string title_;
    bool haveTitle_ = false;
    bool haveVariables_ = false;
    bool anyZone_ = false;
    Owner owner_ = Owner::None;
};

}  // namespace

namespace tundrel::formats {

bool read_dat_text(std::string_view text, region& reg, region_fe& reg_fe) {
    try {
        DatReader(tundrel::text::withoutByteOrderMark(text), reg, reg_fe).run();
    } catch (const Failure& f) {
        tundrel::showMessage(f.message);
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Writing

bool write_dat(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific) {
    const int patches = reg.patchCount();
    if (!tundrel::checkItemRange(first, last, patches + reg_fe.patchCount(), kBadRange)) return false;
    tundrel::text::Writer out(file);
    out.setFormat(precision, scientific);

    int variables = 0;  // of the first item
    std::vector<const double*> columns;
    for (int idx = first; idx <= last; ++idx) {
        const bool structured = idx < patches;
        const PatchBase& p = structured ? static_cast<const PatchBase&>(reg.patch(idx))
                                        : static_cast<const PatchBase&>(reg_fe.patch(idx - patches));
        const FacePatch* faces = structured ? nullptr : &reg_fe.patch(idx - patches);
        const std::string& ownerName = structured ? reg.name : reg_fe.name;
        const double mach = structured ? reg.Mach : reg_fe.Mach;
        const double alpha = structured ? reg.alpha : reg_fe.alpha;
        const double beta = structured ? reg.beta : reg_fe.beta;

        if (idx == first) {
            out << "TITLE = \"" << (ownerName.empty() ? tundrel::strdate() : ownerName) << '"';
            out.endl();
            out << "VARIABLES = ";
            variables = p.variableCount();
            for (int k = 0; k < variables; ++k) {
                if (k > 0) out << ',';
                out << '"' << p.variable(k).name << '"';
            }
        }

        out.endl();
        out << "ZONE ";
        if (!p.name.empty()) out << " T=\"" << p.name << "\",";
        if (structured) {
            out << "I=" << p.I << ",J=" << p.J << ",K=" << p.K << ",F= POINT";
        } else {
            out << "N=" << faces->nodes << ",E=" << faces->faces << ",ET= TRIANGLE" << ",F= FEPOINT";
        }

        const std::int32_t rows = structured ? p.N : faces->nodes;
        columns.clear();
        for (int k = 0; k < variables; ++k) {
            const NodeVariable& v = p.variable(k);
            if (v.count < rows) throw arrayWorks::IndexError(structured ? arrayWorks::source::geo
                                                                        : arrayWorks::source::ngeo,
                                                             __LINE__);
            columns.push_back(v.values.data());
        }
        for (std::size_t n = 0; n < static_cast<std::size_t>(rows); ++n) {
            out.endl();
            for (const double* column : columns) out << "  " << clamped(column[n]);
        }

        if (faces != nullptr) {
            const std::vector<std::int32_t>& index = faces->faceIndex;
            std::size_t pos = 0;
            for (int face = 0; face < faces->faces; ++face) {
                std::int32_t corner[3];
                for (std::int32_t& c : corner) {
                    if (pos >= index.size()) throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
                    c = index[pos++];
                    if (c < 0) {
                        out.close();
                        tundrel::showMessage(kNegativeIndex);
                        return false;
                    }
                }
                out.endl();
                for (std::int32_t c : corner) out << "  " << static_cast<long long>(c) + 1;
                while (pos < index.size() && index[pos] == -1) ++pos;
            }
        }

        if (mach > 0) {
            out << kTextRecord1;
            out.endl();
            out << kTextRecord2 << "\"\"";
            out.endl();
            out << "T=\"mach=" << mach << ", alpha=" << alpha << ", beta=" << beta << '"';
            out.endl();
        }
    }
    if (!out.close()) {
        tundrel::showMessage(kCloseFailed);
        return false;
    }
    return true;
}

}  // namespace tundrel::formats
