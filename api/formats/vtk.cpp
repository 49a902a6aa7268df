// VTK XML files: a .vts holds one structured patch, a .vtp one face patch,
// and a .vtm multiblock lists a model's pieces, which sit in a folder beside
// it (out/wingbody.vtm lists out/wingbody/patch_0.vts, ...). Every node
// variable is Float64 point data in the patch's order, coordinates included,
// so that a file reads back to the same variables; a value below the no-value
// threshold is written as NaN and read back as the no-value mark. The title,
// the flow conditions and the patch name are field data. Data are ASCII or
// appended raw binary (little endian, 64-bit block sizes).
//
// The reader takes what the writer writes and the uncompressed ASCII or raw
// appended files VTK itself writes (32- or 64-bit block sizes, either byte
// order). Its XML layer is a small hand parser: the appended raw data are
// bytes, not XML, and it reads them in place. Every count is checked against
// the bytes that could hold it before anything is allocated for it.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "api/detail/format_readers.h"
#include "api/detail/geometry_rules.h"
#include "api/detail/items.h"
#include "api/detail/text.h"
#include "api/formats/formats.h"
#include "api/host.h"

namespace tundrel::formats {

namespace {

static_assert(std::endian::native == std::endian::little, "the binary VTK data are written in host byte order");

using text::Writer;

constexpr const char* kNothingToWrite = "Nothing to write to the VTK file";
constexpr const char* kOneItemPerFile =
    "A .vts file holds one structured patch and a .vtp file one face patch: write a .vtm file for a whole model";

// What ends a read: the reason, shown once after "Error in VTK file: ".
struct Failure {
    std::string reason;
};
[[noreturn]] void fail(std::string reason) { throw Failure{std::move(reason)}; }

// ---------------------------------------------------------------- XML layer

struct Element {
    std::string_view name;
    std::vector<std::pair<std::string_view, std::string>> attributes;
    std::string_view text;  // the character data before the first child or the end tag
    std::vector<Element> children;

    const std::string* attribute(std::string_view key) const {
        for (const auto& [k, v] : attributes)
            if (k == key) return &v;
        return nullptr;
    }
    const Element* child(std::string_view key) const {
        for (const Element& c : children)
            if (c.name == key) return &c;
        return nullptr;
    }
};

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

void appendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// The document element of an XML text. Parsing stops at an AppendedData
// start tag: what follows its '_' is raw data, kept in appended().
class XmlParser {
public:
    explicit XmlParser(std::string_view text) : s_(text::withoutByteOrderMark(text)) {}

    Element document() {
        skipMisc();
        if (!at("<")) fail("no XML element");
        return element(0);
    }
    bool hasAppended() const { return stopped_; }
    std::string_view appended() const { return appended_; }

private:
    static constexpr int kMaxDepth = 32;

    bool at(std::string_view what) const { return s_.substr(p_, what.size()) == what; }
    void skipSpace() {
        while (p_ < s_.size() && isSpace(s_[p_])) ++p_;
    }
    void skipPast(std::string_view end) {
        const std::size_t q = s_.find(end, p_);
        if (q == std::string_view::npos) fail("unclosed markup");
        p_ = q + end.size();
    }
    // Whitespace, the XML declaration, processing instructions, comments and
    // a document type declaration.
    void skipMisc() {
        for (;;) {
            skipSpace();
            if (at("<?")) skipPast("?>");
            else if (at("<!--")) skipPast("-->");
            else if (at("<!")) skipPast(">");
            else return;
        }
    }
    std::string_view name() {
        const std::size_t start = p_;
        while (p_ < s_.size() && !isSpace(s_[p_]) && s_[p_] != '/' && s_[p_] != '>' && s_[p_] != '=' &&
               s_[p_] != '<')
            ++p_;
        if (p_ == start) fail("a tag or attribute without a name");
        return s_.substr(start, p_ - start);
    }
    std::string attributeValue() {
        if (p_ >= s_.size() || (s_[p_] != '"' && s_[p_] != '\'')) fail("an attribute value without quotes");
        const char quote = s_[p_++];
        const std::size_t end = s_.find(quote, p_);
        if (end == std::string_view::npos) fail("an unclosed attribute value");
        std::string value;
        for (std::size_t i = p_; i < end; ++i) {
            if (s_[i] != '&') {
                value += s_[i];
                continue;
            }
            const std::size_t semi = s_.substr(0, end).find(';', i);  // within the value: linear
            if (semi == std::string_view::npos) fail("an unclosed character reference");
            const std::string_view ref = s_.substr(i + 1, semi - i - 1);
            if (ref == "lt") value += '<';
            else if (ref == "gt") value += '>';
            else if (ref == "amp") value += '&';
            else if (ref == "quot") value += '"';
            else if (ref == "apos") value += '\'';
            else {
                std::uint32_t code = 0;
                const bool hex = ref.size() > 2 && ref[0] == '#' && ref[1] == 'x';
                const std::string_view digits = ref.substr(hex ? 2 : 1);
                const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
                if (ref.empty() || ref[0] != '#' || digits.empty() || r.ec != std::errc() ||
                    r.ptr != digits.data() + digits.size() || code == 0 || code > 0x10FFFF)
                    fail("an unknown character reference");
                appendUtf8(value, code);
            }
            i = semi;
        }
        p_ = end + 1;
        return value;
    }

    Element element(int depth) {
        if (depth > kMaxDepth) fail("elements nested too deep");
        ++p_;  // '<'
        Element e;
        e.name = name();
        for (;;) {
            skipSpace();
            if (at("/>")) {
                p_ += 2;
                return e;
            }
            if (at(">")) {
                ++p_;
                break;
            }
            if (p_ >= s_.size()) fail("an unclosed tag");
            const std::string_view key = name();
            skipSpace();
            if (!at("=")) fail("an attribute without a value");
            ++p_;
            skipSpace();
            e.attributes.emplace_back(key, attributeValue());
        }
        if (e.name == "AppendedData") {
            skipSpace();
            if (!at("_")) fail("appended data that do not start with '_'");
            appended_ = s_.substr(p_ + 1);
            stopped_ = true;
            return e;
        }
        bool textDone = false;
        for (;;) {
            const std::size_t lt = s_.find('<', p_);
            if (lt == std::string_view::npos) fail("an unclosed element");
            if (!textDone) e.text = s_.substr(p_, lt - p_);
            textDone = true;
            p_ = lt;
            if (at("</")) {
                p_ += 2;
                if (name() != e.name) fail("mismatched end tag");
                skipPast(">");
                return e;
            }
            if (at("<!--")) skipPast("-->");
            else if (at("<?")) skipPast("?>");
            else if (at("<!")) fail("CDATA or declarations inside an element");
            else {
                e.children.push_back(element(depth + 1));
                if (stopped_) return e;
            }
        }
    }

    std::string_view s_;
    std::size_t p_ = 0;
    bool stopped_ = false;
    std::string_view appended_;
};

// ---------------------------------------------------------------- data arrays

enum class Kind { Signed, Unsigned, Float, String };
struct TypeInfo {
    std::string_view name;
    unsigned size;
    Kind kind;
};
constexpr TypeInfo kTypes[] = {
    {"Int8", 1, Kind::Signed},    {"UInt8", 1, Kind::Unsigned},  {"Int16", 2, Kind::Signed},
    {"UInt16", 2, Kind::Unsigned}, {"Int32", 4, Kind::Signed},   {"UInt32", 4, Kind::Unsigned},
    {"Int64", 8, Kind::Signed},    {"UInt64", 8, Kind::Unsigned}, {"Float32", 4, Kind::Float},
    {"Float64", 8, Kind::Float},   {"String", 1, Kind::String},  {"Char", 1, Kind::Signed}};

const TypeInfo& typeOf(const Element& e) {
    const std::string* t = e.attribute("type");
    if (t != nullptr)
        for (const TypeInfo& info : kTypes)
            if (*t == info.name) return info;
    fail("a data array of unknown type");
}

template <class T>
T loadAs(const unsigned char* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// One element's bytes (in file order) as a double.
double decode(const unsigned char* p, const TypeInfo& t, bool swap) {
    unsigned char b[8];
    for (unsigned k = 0; k < t.size; ++k) b[k] = p[swap ? t.size - 1 - k : k];
    switch (t.size) {
    case 1: return t.kind == Kind::Unsigned ? b[0] : static_cast<double>(static_cast<signed char>(b[0]));
    case 2: return t.kind == Kind::Unsigned ? loadAs<std::uint16_t>(b) : loadAs<std::int16_t>(b);
    case 4:
        if (t.kind == Kind::Float) return loadAs<float>(b);
        return t.kind == Kind::Unsigned ? loadAs<std::uint32_t>(b) : loadAs<std::int32_t>(b);
    default:
        if (t.kind == Kind::Float) return loadAs<double>(b);
        return t.kind == Kind::Unsigned ? static_cast<double>(loadAs<std::uint64_t>(b))
                                        : static_cast<double>(loadAs<std::int64_t>(b));
    }
}

std::uint64_t parseCount(const std::string* s, const char* what) {
    std::uint64_t v = 0;
    if (s == nullptr) fail(std::string("no ") + what);
    const auto r = std::from_chars(s->data(), s->data() + s->size(), v);
    if (r.ec != std::errc() || r.ptr != s->data() + s->size()) fail(std::string("a bad ") + what);
    return v;
}

// The file's conventions for binary data.
struct DataLayout {
    std::string_view appended;  // the raw bytes after the '_' of AppendedData
    bool hasAppended = false;
    bool raw = true;            // AppendedData encoding="raw"
    unsigned header = 4;        // bytes of a block's size
    bool swap = false;          // big-endian data
    bool compressed = false;

    explicit DataLayout(const Element& root) {
        if (const std::string* order = root.attribute("byte_order")) {
            if (*order == "BigEndian") swap = true;
            else if (*order != "LittleEndian") fail("an unknown byte order");
        }
        if (const std::string* h = root.attribute("header_type")) {
            if (*h == "UInt64") header = 8;
            else if (*h != "UInt32") fail("an unknown header type");
        }
        compressed = root.attribute("compressor") != nullptr && !root.attribute("compressor")->empty();
    }

    // The raw bytes of an appended array.
    std::string_view block(const Element& e) const {
        if (!hasAppended) fail("appended data are missing");
        if (!raw) fail("base64-encoded appended data are not read (write them raw or as ASCII)");
        if (compressed) fail("compressed data are not read (write them uncompressed)");
        const std::uint64_t offset = parseCount(e.attribute("offset"), "offset");
        if (offset > appended.size() || appended.size() - offset < header) fail("an offset beyond the data");
        const auto* p = reinterpret_cast<const unsigned char*>(appended.data() + offset);
        std::uint64_t size = 0;
        for (unsigned k = 0; k < header; ++k)  // byte j of a little-endian size counts 256^j
            size |= std::uint64_t{p[swap ? k : header - 1 - k]} << (8 * (header - 1 - k));
        if (size > appended.size() - offset - header) fail("a data block longer than the file");
        return appended.substr(static_cast<std::size_t>(offset + header), static_cast<std::size_t>(size));
    }
};

bool isAscii(const Element& e) {
    const std::string* f = e.attribute("format");
    if (f == nullptr) fail("a data array without a format");
    if (*f == "ascii") return true;
    if (*f == "appended") return false;
    if (*f == "binary") fail("inline base64 data are not read (write them appended raw or as ASCII)");
    fail("an unknown data format");
}

// The numbers of a data array; `expected` values exactly, or any number
// when it is nullopt.
std::vector<double> numbers(const Element& e, const DataLayout& layout, std::optional<std::uint64_t> expected) {
    const TypeInfo& t = typeOf(e);
    if (t.kind == Kind::String) fail("a string array where numbers belong");
    std::vector<double> out;
    if (isAscii(e)) {
        // Each number takes at least one character and a separator.
        if (expected && *expected > e.text.size() / 2 + 1) fail("fewer values than the array needs");
        if (expected) out.reserve(static_cast<std::size_t>(*expected));
        const char* p = e.text.data();
        const char* end = p + e.text.size();
        for (;;) {
            while (p < end && isSpace(*p)) ++p;
            if (p == end) break;
            double v = 0;
            const auto r = std::from_chars(p, end, v);
            if (r.ec == std::errc::result_out_of_range) {
                v = std::strtod(std::string(p, static_cast<std::size_t>(r.ptr - p)).c_str(), nullptr);
            } else if (r.ec != std::errc()) {
                fail("a value that is not a number");
            }
            if (r.ptr < end && !isSpace(*r.ptr)) fail("a value that is not a number");
            p = r.ptr;
            out.push_back(v);
        }
    } else {
        const std::string_view bytes = layout.block(e);
        if (bytes.size() % t.size != 0) fail("a data block that does not hold whole values");
        out.resize(bytes.size() / t.size);
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
        if (t.kind == Kind::Float && t.size == 8 && !layout.swap) {  // our own files: copied as they are
            std::memcpy(out.data(), p, bytes.size());
        } else {
            for (std::size_t k = 0; k < out.size(); ++k) out[k] = decode(p + k * t.size, t, layout.swap);
        }
    }
    if (expected && out.size() != *expected) fail("a data array with the wrong number of values");
    return out;
}

// The first string of a String array.
std::string firstString(const Element& e, const DataLayout& layout) {
    if (typeOf(e).kind != Kind::String) fail("a number array where a string belongs");
    std::string s;
    if (isAscii(e)) {
        for (double v : numbers(Element{"", {{"type", "UInt8"}, {"format", "ascii"}}, e.text, {}}, layout, {})) {
            if (v == 0) break;
            if (!(v > 0 && v < 256)) fail("a character code out of range");
            s += static_cast<char>(static_cast<unsigned char>(v));
        }
    } else {
        const std::string_view bytes = layout.block(e);
        s = std::string(bytes.substr(0, bytes.find('\0')));
    }
    return s;
}

int componentsOf(const Element& e) {
    const std::string* c = e.attribute("NumberOfComponents");
    if (c == nullptr) return 1;
    const std::uint64_t n = parseCount(c, "component count");
    if (n < 1 || n > 64) fail("a component count out of range");
    return static_cast<int>(n);
}

bool isArray(const Element& e) { return e.name == "DataArray" || e.name == "Array"; }

// ---------------------------------------------------------------- pieces

// The field data: title, flow conditions, patch name.
struct Meta {
    std::optional<std::string> title, patch;
    std::optional<double> mach, alpha, beta;

    void read(const Element* fieldData, const DataLayout& layout) {
        if (fieldData == nullptr) return;
        for (const Element& a : fieldData->children) {
            if (!isArray(a)) continue;
            const std::string* n = a.attribute("Name");
            if (n == nullptr) continue;
            auto scalar = [&] {
                const std::vector<double> v = numbers(a, layout, {});
                if (v.empty()) fail("an empty flow condition");
                return v[0];
            };
            if (*n == "title") title = firstString(a, layout);
            else if (*n == "patch") patch = firstString(a, layout);
            else if (*n == "Mach") mach = scalar();
            else if (*n == "alpha") alpha = scalar();
            else if (*n == "beta") beta = scalar();
        }
    }
    template <class Region>
    void applyTo(Region& r) const {
        if (title) r.name = *title;
        if (mach) r.Mach = *mach;
        if (alpha) r.alpha = *alpha;
        if (beta) r.beta = *beta;
    }
};

// The node variables of a piece: its point data, then x, y, z from the points
// where the point data have no coordinate of that name.
template <class Patch>
void fillVariables(Patch& patch, const Element& piece, const DataLayout& layout, std::uint64_t nodes) {
    struct Column {
        std::string name;
        std::vector<double> values;
    };
    std::vector<Column> columns;
    bool axis[3] = {false, false, false};
    if (const Element* pd = piece.child("PointData")) {
        for (const Element& a : pd->children) {
            if (!isArray(a) || typeOf(a).kind == Kind::String) continue;
            const std::string* n = a.attribute("Name");
            const std::string name = n != nullptr ? *n : "";
            const int c = componentsOf(a);
            const std::vector<double> all = numbers(a, layout, nodes * static_cast<std::uint64_t>(c));
            for (int k = 0; k < c; ++k) {
                Column col{c == 1 ? name : name + "_" + std::to_string(k), {}};
                col.values.resize(static_cast<std::size_t>(nodes));
                for (std::size_t i = 0; i < col.values.size(); ++i) {
                    const double v = all[i * static_cast<std::size_t>(c) + static_cast<std::size_t>(k)];
                    col.values[i] = std::isnan(v) ? kNoValue : v;
                }
                if (const int ax = coordinateAxis(col.name); ax >= 0) axis[ax] = true;
                columns.push_back(std::move(col));
            }
        }
    }
    // The points are read (and so checked) even where the point data carry
    // the coordinates.
    const Element* points = piece.child("Points");
    const Element* array = nullptr;
    if (points != nullptr)
        for (const Element& a : points->children)
            if (isArray(a)) array = &a;
    if (array == nullptr) {
        if (nodes > 0 && !(axis[0] && axis[1] && axis[2])) fail("a piece without points");
    } else {
        if (componentsOf(*array) != 3) fail("points without three components");
        const std::vector<double> xyz = numbers(*array, layout, 3 * nodes);
        std::vector<Column> coords;
        for (int ax = 0; ax < 3; ++ax) {
            if (axis[ax]) continue;
            Column col{std::string(1, static_cast<char>('x' + ax)), {}};
            col.values.resize(static_cast<std::size_t>(nodes));
            for (std::size_t i = 0; i < col.values.size(); ++i)
                col.values[i] = xyz[3 * i + static_cast<std::size_t>(ax)];
            coords.push_back(std::move(col));
        }
        columns.insert(columns.begin(), std::make_move_iterator(coords.begin()),
                       std::make_move_iterator(coords.end()));
    }
    for (Column& c : columns) patch.addVariable(c.name).values = std::move(c.values);
}

constexpr std::uint64_t kMaxCount = static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());

void readStructured(const Element& grid, const DataLayout& layout, const std::string& fallbackName,
                    region& reg) {
    Meta meta;
    meta.read(grid.child("FieldData"), layout);
    std::vector<std::shared_ptr<StructPatch>> made;
    for (const Element& piece : grid.children) {
        if (piece.name != "Piece") continue;
        const std::string* extent = piece.attribute("Extent");
        if (extent == nullptr) fail("a piece without an extent");
        std::int64_t e[6];
        const char* p = extent->data();
        const char* end = p + extent->size();
        for (std::int64_t& v : e) {
            while (p < end && isSpace(*p)) ++p;
            const auto r = std::from_chars(p, end, v);
            if (r.ec != std::errc()) fail("a bad extent");
            p = r.ptr;
        }
        std::uint64_t dims[3];
        std::uint64_t nodes = 1;
        for (int d = 0; d < 3; ++d) {
            const std::int64_t lo = e[2 * d], hi = e[2 * d + 1];
            if (lo < -static_cast<std::int64_t>(kMaxCount) || lo > static_cast<std::int64_t>(kMaxCount) ||
                hi < lo - 1 || hi - lo >= static_cast<std::int64_t>(kMaxCount))
                fail("a bad extent");
            dims[d] = static_cast<std::uint64_t>(hi - lo + 1);
            nodes = dims[d] == 0 ? 0 : (nodes > kMaxCount / dims[d] ? kMaxCount + 1 : nodes * dims[d]);
        }
        if (dims[0] == 0 || dims[1] == 0 || dims[2] == 0) nodes = 0;
        if (nodes > kMaxCount) fail("more nodes than a patch holds");
        auto patch = std::make_shared<StructPatch>(static_cast<int>(dims[0]), static_cast<int>(dims[1]),
                                                   static_cast<int>(dims[2]));
        patch->name = meta.patch ? *meta.patch : fallbackName;
        fillVariables(*patch, piece, layout, nodes);
        made.push_back(std::move(patch));
    }
    for (auto& p : made) reg.append(std::move(p));
    meta.applyTo(reg);
}

void readPolyData(const Element& poly, const DataLayout& layout, const std::string& fallbackName,
                  region_fe& fe) {
    Meta meta;
    meta.read(poly.child("FieldData"), layout);
    std::vector<std::shared_ptr<FacePatch>> made;
    for (const Element& piece : poly.children) {
        if (piece.name != "Piece") continue;
        const std::uint64_t nodes = parseCount(piece.attribute("NumberOfPoints"), "point count");
        if (nodes > kMaxCount) fail("more nodes than a patch holds");
        const std::string* polyCount = piece.attribute("NumberOfPolys");
        const std::uint64_t cells = polyCount == nullptr ? 0 : parseCount(polyCount, "polygon count");
        std::vector<double> connectivity, offsets;
        if (cells > 0) {
            const Element* polys = piece.child("Polys");
            if (polys == nullptr) fail("polygons without connectivity");
            const Element *conn = nullptr, *offs = nullptr;
            for (const Element& a : polys->children) {
                const std::string* n = a.attribute("Name");
                if (!isArray(a) || n == nullptr) continue;
                if (*n == "connectivity") conn = &a;
                if (*n == "offsets") offs = &a;
            }
            if (conn == nullptr || offs == nullptr) fail("polygons without connectivity");
            offsets = numbers(*offs, layout, cells);
            connectivity = numbers(*conn, layout, {});
        }
        // Faces of up to four corners as they are, larger polygons as fans.
        std::uint64_t faces = 0;
        double start = 0;
        for (double o : offsets) {
            if (!(o >= start && o <= static_cast<double>(connectivity.size()))) fail("bad polygon offsets");
            const double corners = o - start;
            faces += corners > 4 ? static_cast<std::uint64_t>(corners) - 2 : 1;
            start = o;
        }
        if (faces > kMaxCount / 4) fail("more faces than a patch holds");
        for (double c : connectivity)
            if (!(c >= 0 && c < static_cast<double>(nodes))) fail("a polygon corner that is not a node");
        auto patch = std::make_shared<FacePatch>(static_cast<int>(nodes), static_cast<int>(4 * faces),
                                                 static_cast<int>(faces));
        patch->name = meta.patch ? *meta.patch : fallbackName;
        std::size_t slot = 0, from = 0;
        for (double o : offsets) {
            const auto to = static_cast<std::size_t>(o);
            auto corner = [&](std::size_t k) { return static_cast<std::int32_t>(connectivity[k]); };
            if (to - from <= 4) {
                for (std::size_t k = from; k < to; ++k) patch->faceIndex[slot + k - from] = corner(k);
                slot += 4;
            } else {
                for (std::size_t k = from + 1; k + 1 < to; ++k, slot += 4) {
                    patch->faceIndex[slot] = corner(from);
                    patch->faceIndex[slot + 1] = corner(k);
                    patch->faceIndex[slot + 2] = corner(k + 1);
                }
            }
            from = to;
        }
        fillVariables(*patch, piece, layout, nodes);
        made.push_back(std::move(patch));
    }
    for (auto& p : made) fe.append(std::move(p));
    meta.applyTo(fe);
}

using PieceLoader = VtkPieceLoader;

void readDocument(std::string_view text, const std::string& fallbackName, const PieceLoader* load, int depth,
                  region& reg, region_fe& fe);

void readBlocks(const Element& block, const PieceLoader& load, region& reg, region_fe& fe) {
    for (const Element& c : block.children) {
        if (c.name == "Block") {
            readBlocks(c, load, reg, fe);
        } else if (c.name == "DataSet" || c.name == "Piece") {
            const std::string* file = c.attribute("file");
            if (file == nullptr || file->empty()) continue;  // an empty block
            const std::string ext = file_extension(*file);
            if (ext != "vts" && ext != "vtp") fail("a multiblock piece that is not a .vts or .vtp file: " + *file);
            std::string pieceText;
            if (!load(*file, pieceText)) fail("cannot open the piece " + *file);
            const std::string* name = c.attribute("name");
            readDocument(pieceText, name != nullptr ? *name : std::string(), nullptr, 1, reg, fe);
        }
    }
}

void readDocument(std::string_view text, const std::string& fallbackName, const PieceLoader* load, int depth,
                  region& reg, region_fe& fe) {
    XmlParser parser(text);
    const Element root = parser.document();
    if (root.name != "VTKFile") fail("no VTKFile element");
    DataLayout layout(root);
    layout.hasAppended = parser.hasAppended();
    layout.appended = parser.appended();
    for (const Element& c : root.children)
        if (c.name == "AppendedData") {
            const std::string* enc = c.attribute("encoding");
            layout.raw = enc == nullptr || *enc == "raw";
        }
    const std::string* type = root.attribute("type");
    const std::string kind = type != nullptr ? *type : "";
    const Element* body = root.child(kind);
    if (body == nullptr) fail("no " + (kind.empty() ? std::string("data set") : kind) + " element");
    if (kind == "StructuredGrid") {
        readStructured(*body, layout, fallbackName, reg);
    } else if (kind == "PolyData") {
        readPolyData(*body, layout, fallbackName, fe);
    } else if (kind == "vtkMultiBlockDataSet") {
        if (depth > 0) fail("a multiblock file inside a multiblock file");
        if (load == nullptr) fail("the pieces of a multiblock file are read with the file");
        readBlocks(*body, *load, reg, fe);
    } else {
        fail("data of type " + kind + " are not read (structured grids, poly data and multiblocks are)");
    }
}

bool guarded(const std::function<void()>& read) {
    try {
        read();
        return true;
    } catch (const Failure& f) {
        showMessage("Error in VTK file: " + f.reason);
    } catch (const arrayWorks::GenericError&) {
        showMessage("Error in VTK file: a patch it describes cannot be built");
    } catch (const std::bad_alloc&) {
        showMessage("Error in VTK file: not enough memory for it");
    } catch (const std::exception& e) {
        showMessage(std::string("Error in VTK file: ") + e.what());
    }
    return false;
}

// ---------------------------------------------------------------- writer

std::string escaped(std::string_view s) {
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) out += "&#" + std::to_string(static_cast<int>(c)) + ";";
            else out += c;
        }
    }
    return out;
}

// One piece file. Arrays are written as they come (ASCII) or announced with
// their offset and queued for the appended section (binary).
class PieceWriter {
public:
    PieceWriter(const std::string& file, int precision, bool scientific, bool binary)
        : out_(file), binary_(binary) {
        out_.setFormat(precision, scientific);
    }
    Writer& out() { return out_; }
    bool opened() const { return out_.opened(); }

    void begin(std::string_view type) {
        out_ << "<?xml version=\"1.0\"?>\n<VTKFile type=\"" << type
             << "\" version=\"1.0\" byte_order=\"LittleEndian\" header_type=\"UInt64\">\n";
    }
    void string(std::string_view name, const std::string& value) {
        out_ << "      <Array type=\"String\" Name=\"" << name << "\" NumberOfTuples=\"1\"";
        if (binary_) {
            std::string bytes = value;
            bytes += '\0';
            appendedTag(bytes.size());
            queue_.push_back([this, bytes] { out_ << std::string_view(bytes); });
            out_ << "/>\n";
            return;
        }
        out_ << " format=\"ascii\">\n       ";
        for (char c : value) out_ << ' ' << static_cast<int>(static_cast<unsigned char>(c));
        out_ << " 0\n      </Array>\n";
    }
    // `count` values of `components` components, value k given by get(k).
    // Field data state their tuple count, which VTK's readers need there.
    template <class Get>
    void doubles(std::string_view indent, std::string_view name, int components, std::size_t count, Get get,
                 bool fieldData = false) {
        out_ << indent << "<DataArray type=\"Float64\"";
        if (!name.empty()) out_ << " Name=\"" << escaped(name) << "\"";
        if (fieldData) out_ << " NumberOfTuples=\"" << static_cast<long long>(count) << "\"";
        if (components != 1) out_ << " NumberOfComponents=\"" << components << "\"";
        if (binary_) {
            appendedTag(count * sizeof(double));
            queue_.push_back([this, count, get] {
                double chunk[1024];
                for (std::size_t k = 0; k < count;) {
                    const std::size_t n = std::min<std::size_t>(1024, count - k);
                    for (std::size_t m = 0; m < n; ++m) chunk[m] = get(k + m);
                    out_ << std::string_view(reinterpret_cast<const char*>(chunk), n * sizeof(double));
                    k += n;
                }
            });
            out_ << "/>\n";
            return;
        }
        out_ << " format=\"ascii\">";
        for (std::size_t k = 0; k < count; ++k) {
            if (k % 6 == 0) out_ << '\n' << indent << "  ";
            else out_ << ' ';
            const double v = get(k);
            if (std::isnan(v)) out_ << "NaN";
            else out_ << v;
        }
        out_ << '\n' << indent << "</DataArray>\n";
    }
    void ints(std::string_view name, const std::vector<std::int32_t>& values) {
        out_ << "        <DataArray type=\"Int32\" Name=\"" << name << "\"";
        if (binary_) {
            appendedTag(values.size() * sizeof(std::int32_t));
            queue_.push_back([this, &values] {
                out_ << std::string_view(reinterpret_cast<const char*>(values.data()),
                                         values.size() * sizeof(std::int32_t));
            });
            out_ << "/>\n";
            return;
        }
        out_ << " format=\"ascii\">";
        for (std::size_t k = 0; k < values.size(); ++k) {
            if (k % 12 == 0) out_ << "\n          ";
            else out_ << ' ';
            out_ << values[k];
        }
        out_ << "\n        </DataArray>\n";
    }
    bool finish() {
        if (binary_) {
            out_ << "  <AppendedData encoding=\"raw\">\n   _";
            for (std::size_t k = 0; k < queue_.size(); ++k) {
                const std::uint64_t size = sizes_[k];
                out_ << std::string_view(reinterpret_cast<const char*>(&size), sizeof size);
                queue_[k]();
            }
            out_ << "\n  </AppendedData>\n";
        }
        out_ << "</VTKFile>\n";
        return out_.close();
    }

private:
    void appendedTag(std::size_t bytes) {
        out_ << " format=\"appended\" offset=\"" << static_cast<long long>(offset_) << "\"";
        sizes_.push_back(bytes);
        offset_ += sizeof(std::uint64_t) + bytes;
    }

    Writer out_;
    bool binary_;
    std::uint64_t offset_ = 0;
    std::vector<std::uint64_t> sizes_;
    std::vector<std::function<void()>> queue_;
};

// Point data and points of a patch of `nodes` nodes.
void writeNodes(PieceWriter& w, const PatchBase& p, std::size_t nodes) {
    w.out() << "      <PointData>\n";
    for (const auto& v : p.variables) {
        if (!v) continue;
        const double* values = v->values.data();
        w.doubles("        ", v->name, 1, nodes, [values](std::size_t k) {
            return values[k] < kNoValueBelow ? std::numeric_limits<double>::quiet_NaN() : values[k];
        });
    }
    w.out() << "      </PointData>\n      <Points>\n";
    const CoordinateSlots c = findCoordinates(p.variables);
    const double* axes[3] = {c.x >= 0 ? p.variable(c.x).values.data() : nullptr,
                             c.y >= 0 ? p.variable(c.y).values.data() : nullptr,
                             c.z >= 0 ? p.variable(c.z).values.data() : nullptr};
    w.doubles("        ", "Points", 3, 3 * nodes, [axes](std::size_t k) {
        const double* a = axes[k % 3];
        return a != nullptr ? a[k / 3] : 0.0;
    });
    w.out() << "      </Points>\n";
}

// Mach, alpha and beta as one-value arrays, written as any other array.
template <class Region>
void writeFlow(PieceWriter& w, const Region& owner) {
    const double flow[3] = {owner.Mach, owner.alpha, owner.beta};
    const char* names[3] = {"Mach", "alpha", "beta"};
    for (int k = 0; k < 3; ++k) {
        const double v = flow[k];
        w.doubles("      ", names[k], 1, 1, [v](std::size_t) { return v; }, true);
    }
}

template <class Region>
void writeMeta(PieceWriter& w, const Region& owner, const PatchBase& p) {
    w.out() << "    <FieldData>\n";
    w.string("title", owner.name);
    w.string("patch", p.name);
    writeFlow(w, owner);
    w.out() << "    </FieldData>\n";
}

bool writeStructuredPiece(const std::string& file, const region& reg, const StructPatch& p, int precision,
                          bool scientific, bool binary) {
    PieceWriter w(file, precision, scientific, binary);
    if (!w.opened()) return false;
    const std::string extent = "0 " + std::to_string(p.I - 1) + " 0 " + std::to_string(p.J - 1) + " 0 " +
                               std::to_string(p.K - 1);
    w.begin("StructuredGrid");
    w.out() << "  <StructuredGrid WholeExtent=\"" << extent << "\">\n";
    writeMeta(w, reg, p);
    w.out() << "    <Piece Extent=\"" << extent << "\">\n";
    writeNodes(w, p, static_cast<std::size_t>(std::max(p.N, 0)));
    w.out() << "    </Piece>\n  </StructuredGrid>\n";
    return w.finish();
}

bool writeFacePiece(const std::string& file, const region_fe& fe, const FacePatch& p, int precision,
                    bool scientific, bool binary) {
    // Each face: its entries up to the first -1, at most four.
    std::vector<std::int32_t> connectivity, offsets;
    const std::size_t faces = std::min<std::size_t>(static_cast<std::size_t>(std::max(p.faces, 0)),
                                                    p.faceIndex.size() / 4);
    connectivity.reserve(3 * faces);
    offsets.reserve(faces);
    for (std::size_t f = 0; f < faces; ++f) {
        for (std::size_t k = 0; k < 4 && p.faceIndex[4 * f + k] >= 0; ++k)
            connectivity.push_back(p.faceIndex[4 * f + k]);
        offsets.push_back(static_cast<std::int32_t>(connectivity.size()));
    }
    PieceWriter w(file, precision, scientific, binary);
    if (!w.opened()) return false;
    w.begin("PolyData");
    w.out() << "  <PolyData>\n";
    writeMeta(w, fe, p);
    w.out() << "    <Piece NumberOfPoints=\"" << std::max(p.nodes, 0)
            << "\" NumberOfVerts=\"0\" NumberOfLines=\"0\" NumberOfStrips=\"0\" NumberOfPolys=\""
            << static_cast<long long>(faces) << "\">\n";
    writeNodes(w, p, static_cast<std::size_t>(std::max(p.nodes, 0)));
    w.out() << "      <Polys>\n";
    w.ints("connectivity", connectivity);
    w.ints("offsets", offsets);
    w.out() << "      </Polys>\n    </Piece>\n  </PolyData>\n";
    return w.finish();
}

bool writeItem(const std::string& file, region& reg, region_fe& fe, int item, int precision, bool scientific,
               bool binary) {
    const int patches = reg.patchCount();
    if (item < patches) return writeStructuredPiece(file, reg, reg.patch(item), precision, scientific, binary);
    return writeFacePiece(file, fe, fe.patch(item - patches), precision, scientific, binary);
}

bool writeVtk(const std::string& file, region& reg, region_fe& fe, int first, int last, int precision,
              bool scientific, bool binary) {
    const int patches = reg.patchCount();
    if (!checkItemRange(first, last, patches + fe.patchCount(), kNothingToWrite)) return false;
    const std::string ext = file_extension(file);
    if (ext != "vtm") {
        if (first != last || (ext == "vts") != (first < patches)) {
            showMessage(kOneItemPerFile);
            return false;
        }
        if (!writeItem(file, reg, fe, first, precision, scientific, binary)) {
            showMessage("It is impossible to write VTK file " + file);
            return false;
        }
        return true;
    }
    // out/wingbody.vtm lists out/wingbody/patch_N.vts|vtp, N the item number.
    namespace fs = std::filesystem;
    const fs::path index(file);
    const fs::path folder = fs::path(file).replace_extension();
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec || !fs::is_directory(folder, ec)) {
        showMessage("It is impossible to make the folder " + folder.string() + " for the VTK pieces");
        return false;
    }
    Writer out(file);
    out << "<?xml version=\"1.0\"?>\n<VTKFile type=\"vtkMultiBlockDataSet\" version=\"1.0\" "
           "byte_order=\"LittleEndian\" header_type=\"UInt64\">\n  <vtkMultiBlockDataSet>\n";
    for (int item = first; item <= last; ++item) {
        const bool structured = item < patches;
        const std::string piece = "patch_" + std::to_string(item) + (structured ? ".vts" : ".vtp");
        if (!writeItem((folder / piece).string(), reg, fe, item, precision, scientific, binary)) {
            out.close();
            showMessage("It is impossible to write VTK file " + (folder / piece).string());
            return false;
        }
        const std::string& name = structured ? reg.patch(item).name : fe.patch(item - patches).name;
        out << "    <DataSet index=\"" << item - first << "\" name=\"" << escaped(name) << "\" file=\""
            << escaped((folder.filename() / piece).generic_string()) << "\"/>\n";
    }
    out << "  </vtkMultiBlockDataSet>\n</VTKFile>\n";
    if (!out.close()) {
        showMessage("It is impossible to write VTK file " + file);
        return false;
    }
    return true;
}

}  // namespace

bool read_vtk_text(std::string_view text, region& reg, region_fe& reg_fe) {
    return guarded([&] { readDocument(text, {}, nullptr, 0, reg, reg_fe); });
}

bool read_vtk_multiblock_text(std::string_view text, const VtkPieceLoader& load, region& reg, region_fe& reg_fe) {
    return guarded([&] { readDocument(text, {}, &load, 0, reg, reg_fe); });
}

bool read_vtk_file(const std::string& file, region& reg, region_fe& reg_fe) {
    std::string content;
    if (!text::loadFile(file, content)) {
        showMessage(kVtkCannotOpen);
        return false;
    }
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    const PieceLoader load = [&folder](const std::string& piece, std::string& out) {
        return text::loadFile((folder / piece).string(), out);
    };
    return read_vtk_multiblock_text(content, load, reg, reg_fe);
}

bool write_vtk(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific) {
    return writeVtk(file, reg, reg_fe, first, last, precision, scientific, false);
}

bool write_vtk_binary(const std::string& file, region& reg, region_fe& reg_fe, int first, int last) {
    return writeVtk(file, reg, reg_fe, first, last, 6, false, true);
}

}  // namespace tundrel::formats
