// VRML: surfaces for 3D viewers.
//
// The writer makes one VRML 2.0 world with a coloured Shape / IndexedFaceSet
// per export item; a structured patch is cut into two triangles a grid cell.
//
// The reader takes the face sets of VRML 1.0 and 2.0 files into the region_fe,
// one face patch per IndexedFaceSet, named "PatchVRML_" followed by the
// patch's 0-based position in the region_fe (so names stay unique when a file
// is read into a region_fe that already holds patches). A face patch holds
// only the points its faces use, renumbered in the order of the file's point
// list, as the variables "X", "Y", "Z"; polygons are split into triangles as
// fans from their first corner. Coordinates are taken as they stand in the
// file: transforms of the scene graph are walked through, not applied.
//
//   VRML 1.0: IndexedFaceSet uses the last Coordinate3 before it; a Separator
//   (or WWWAnchor) restores the coordinates that were current where it began; "USE name"
//   makes a DEF'd Coordinate3 current again.
//   VRML 2.0: IndexedFaceSet takes its points from its coord field
//   (Coordinate, DEF name Coordinate, or USE of a Coordinate DEF'd anywhere
//   before); field order inside the node does not matter.
//
// Every other node is walked for nested nodes (children, grouping nodes of
// both versions, fields of unknown nodes); PROTO and EXTERNPROTO declarations
// are skipped whole, so the face sets of a prototype's body are not read. The
// first line (the "#VRML V1.0" or "#VRML V2.0" header) is a comment, as VRML
// readers take it; that is also where the writer puts its WorldInfo, whose
// quoting would not survive a tokenizer.
//
// Anything the reader cannot take (an unbalanced or unclosed bracket or
// string, a number that is not one, a point list that is not made of
// triples, a coordinate index outside its point list, nesting deeper than
// kMaxDepth) ends reading with the structure message; the face patches read
// before stay in the region_fe.
#include <algorithm>
#include <limits>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "api/detail/date.h"
#include "api/formats/formats.h"
#include "api/detail/items.h"
#include "api/detail/format_readers.h"
#include "api/detail/text.h"
#include "api/host.h"
#include "api/detail/geometry_rules.h"

namespace {

constexpr const char* kBadRange = "Dummy Error";
constexpr const char* kOpenFailed = "It's impossible to open VRML file";
constexpr const char* kFewVariables = "Error in Header.Number of variables <3";
constexpr const char* kNoCoordinates = "Error in Header. No predefined variables X or Y or Z are found";
constexpr const char* kCloseFailed = "It's impossible to close VRML file";
constexpr const char* kNoHeader = "It is impossible to open VRML or identify it's header";
constexpr const char* kNoSurface = "Error in VRML structure. No 3D surfaces are found";

// ---------------------------------------------------------------- writer

struct Colour {
    double red, green, blue;
};

// Entries with red use 1.5: written as it stands, the viewer clamps it.
constexpr Colour kColours[8] = {{0, 0, 0},   {0, 0, 1},   {0, 1, 0},   {0, 1, 1},
                                {1.5, 0, 0}, {1.5, 0, 1}, {1.5, 1, 0}, {1.5, 1, 1}};

using tundrel::text::Writer;

void line(Writer& out, std::string_view text) {
    out << text;
    out.endl();
}

void writeHeader(Writer& out, const std::string& title) {
    out << "#VRML V2.0 utf8 WorldInfo { info " << '"' << "Quillon 2.0, export VRML,  Author: Rimvale   Date: "
        << tundrel::strdate() << " \ttitle " << '"' << title << '"' << "  }";
    out.endl();
}

void beginShape(Writer& out, const Colour& c) {
    line(out, "\tShape {");
    line(out, "\tappearance Appearance {");
    line(out, "\tmaterial Material {");
    out << "diffuseColor " << c.red << ' ' << c.green << ' ' << c.blue << "  shininess 0.1}}";
    out.endl();
    line(out, "\tgeometry IndexedFaceSet {");
    line(out, "\tcoordIndex [");
}

// The point list of `nodes` points and the end of the Shape.
void endShape(Writer& out, const NodeVariable& x, const NodeVariable& y, const NodeVariable& z, std::int32_t nodes,
              const char* source) {
    const std::size_t n = static_cast<std::size_t>(std::max(nodes, 0));
    for (const NodeVariable* v : {&x, &y, &z})
        if (v->count < nodes || v->values.size() < n) throw arrayWorks::IndexError(source, __LINE__);
    line(out, "\t\t]");
    line(out, "\t coord Coordinate{");
    line(out, "\tpoint [");
    for (std::size_t k = 0; k < n; ++k) {
        out << x.values[k] << ' ' << y.values[k] << ' ' << z.values[k];
        out.endl();
    }
    line(out, "\t\t]");
    line(out, "\t\t}");
    line(out, "\t\t} }");
}

void writeCells(Writer& out, const StructPatch& p) {
    const long long NI = p.I;
    for (long long i = 0; i + 1 < p.I; ++i)
        for (long long j = 0; j + 1 < p.J; ++j) {
            const long long q = NI * j + i;
            out << q << ' ' << q + 1 << ' ' << q + NI << ' ' << -1;
            out.endl();
            out << q + NI << ' ' << q + 1 << ' ' << q + NI + 1 << ' ' << -1;
            out.endl();
        }
}

void writeFaces(Writer& out, const FacePatch& f) {
    const std::size_t entries = static_cast<std::size_t>(f.faces) * 4;
    if (entries > f.faceIndex.size()) throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
    for (std::size_t k = 0; k < entries; ++k) {
        out << "  " << f.faceIndex[k];
        if (f.faceIndex[k] == -1) out.endl();
    }
}

// ---------------------------------------------------------------- reader

// Deeper nesting of nodes and lists than this is taken as a broken file.
constexpr int kMaxDepth = 512;

enum class Tok { End, Word, String, Open, Close, OpenList, CloseList, Bad };

// Splits VRML text into words, strings and the four brackets. Blanks, line
// ends and commas separate; "#" starts a comment to the end of the line.
class Lexer {
public:
    Lexer(std::string_view text, std::size_t start) : p_(text.data() + start), end_(text.data() + text.size()) {}

    Tok next(std::string_view& word) {
        skip();
        if (p_ >= end_) return Tok::End;
        const char c = *p_;
        switch (c) {
            case '{': ++p_; return Tok::Open;
            case '}': ++p_; return Tok::Close;
            case '[': ++p_; return Tok::OpenList;
            case ']': ++p_; return Tok::CloseList;
            case '"': return string(word);
            default: break;
        }
        const char* s = p_;
        while (p_ < end_ && !separator(*p_)) ++p_;
        word = std::string_view(s, static_cast<std::size_t>(p_ - s));
        return Tok::Word;
    }

private:
    static bool blank(char c) { return c == ' ' || c == ',' || (c >= '\t' && c <= '\r'); }
    static bool separator(char c) {
        return blank(c) || c == '{' || c == '}' || c == '[' || c == ']' || c == '"' || c == '#';
    }

    void skip() {
        while (p_ < end_) {
            if (blank(*p_)) {
                ++p_;
            } else if (*p_ == '#') {
                while (p_ < end_ && *p_ != '\n' && *p_ != '\r') ++p_;
            } else {
                break;
            }
        }
    }

    // A string with backslash escapes; the text between the quotes as it
    // stands. Unclosed at the end of the text: Bad.
    Tok string(std::string_view& word) {
        const char* s = ++p_;
        while (p_ < end_ && *p_ != '"') p_ += (*p_ == '\\' && p_ + 1 < end_) ? 2 : 1;
        if (p_ >= end_) return Tok::Bad;
        word = std::string_view(s, static_cast<std::size_t>(p_ - s));
        ++p_;
        return Tok::String;
    }

    const char* p_;
    const char* end_;
};

using Points = std::shared_ptr<const std::vector<double>>;

class Reader {
public:
    Reader(std::string_view text, std::size_t start, int version, region_fe& fe)
        : lex_(text, start), v1_(version == 1), fe_(fe) {}

    // False when the file breaks off or breaks a rule above.
    bool run() { return walk(Tok::End, 0); }
    int surfaces() const { return surfaces_; }

private:
    // Reads nodes up to `closer`: a node is a word (its type, after an
    // optional "DEF name") followed by a braced body.
    bool walk(Tok closer, int depth) {
        if (depth > kMaxDepth) return false;
        std::string_view type, def, pendingDef;
        bool typeLast = false;
        for (;;) {
            std::string_view w;
            const Tok t = lex_.next(w);
            const bool afterType = typeLast;
            typeLast = false;
            switch (t) {
                case Tok::Word:
                    if (w == "DEF") {
                        if (lex_.next(pendingDef) != Tok::Word) return false;
                    } else if (w == "USE") {
                        std::string_view name;
                        if (lex_.next(name) != Tok::Word) return false;
                        if (v1_) {
                            auto it = defs_.find(name);
                            if (it != defs_.end()) current_ = it->second;
                        }
                        pendingDef = {};
                    } else if (w == "PROTO" || w == "EXTERNPROTO") {
                        if (!skipDeclaration(w == "PROTO")) return false;
                    } else {
                        type = w;
                        def = pendingDef;
                        pendingDef = {};
                        typeLast = true;
                    }
                    break;
                case Tok::Open:
                    if (!(afterType ? node(type, def, depth + 1) : skipGroup(Tok::Open))) return false;
                    break;
                case Tok::OpenList:
                    if (!walk(Tok::CloseList, depth + 1)) return false;
                    break;
                case Tok::String:
                    break;
                case Tok::Close:
                case Tok::CloseList:
                case Tok::End:
                    return t == closer;
                case Tok::Bad:
                    return false;
            }
        }
    }

    bool node(std::string_view type, std::string_view def, int depth) {
        if (depth > kMaxDepth) return false;
        if (type == (v1_ ? "Coordinate3" : "Coordinate")) {
            Points points;
            if (!coordinateBody(points)) return false;
            if (!def.empty()) defs_[def] = points;
            if (v1_) current_ = std::move(points);
            return true;
        }
        if (type == "IndexedFaceSet") return v1_ ? faceSet1() : faceSet2(depth);
        if (v1_ && (type == "Separator" || type == "WWWAnchor")) {
            Points saved = current_;
            if (!walk(Tok::Close, depth)) return false;
            current_ = std::move(saved);
            return true;
        }
        return walk(Tok::Close, depth);
    }

    // Skips a bracketed group whose opening bracket has been read.
    bool skipGroup(Tok open) {
        std::vector<Tok> closers{open == Tok::Open ? Tok::Close : Tok::CloseList};
        while (!closers.empty()) {
            std::string_view w;
            const Tok t = lex_.next(w);
            if (t == Tok::Open) closers.push_back(Tok::Close);
            else if (t == Tok::OpenList) closers.push_back(Tok::CloseList);
            else if (t == Tok::Close || t == Tok::CloseList) {
                if (t != closers.back()) return false;
                closers.pop_back();
            } else if (t == Tok::End || t == Tok::Bad) {
                return false;
            }
        }
        return true;
    }

    // PROTO name [ interface ] { body }, EXTERNPROTO name [ interface ] url.
    bool skipDeclaration(bool proto) {
        std::string_view w;
        if (lex_.next(w) != Tok::Word || lex_.next(w) != Tok::OpenList || !skipGroup(Tok::OpenList)) return false;
        const Tok t = lex_.next(w);
        if (proto) return t == Tok::Open && skipGroup(Tok::Open);
        return t == Tok::String || (t == Tok::OpenList && skipGroup(Tok::OpenList));
    }

    // Reads the fields of a node body up to its closing brace. `field` is
    // called with each word that stands where a field name may stand and
    // may read that field's value; what it leaves is skipped.
    template <class Field>
    bool fields(Field&& field) {
        bool nameNext = false;
        for (;;) {
            std::string_view w;
            const Tok t = lex_.next(w);
            switch (t) {
                case Tok::Close:
                    return true;
                case Tok::Open:
                case Tok::OpenList:
                    if (!skipGroup(t)) return false;
                    nameNext = false;
                    break;
                case Tok::Word:
                    if (nameNext) nameNext = false;
                    else if (w == "DEF" || w == "USE") nameNext = true;
                    else if (!field(w)) return false;
                    break;
                case Tok::String:
                    nameNext = false;
                    break;
                default:
                    return false;
            }
        }
    }

    // A list of numbers: "[ a b ... ]", or a single value of `single` numbers.
    template <class T, class Parse>
    bool numbers(std::vector<T>& out, std::size_t single, Parse parse) {
        out.clear();
        std::string_view w;
        Tok t = lex_.next(w);
        if (t != Tok::OpenList) {
            for (std::size_t k = 0; k < single; ++k) {
                if (k > 0) t = lex_.next(w);
                T v{};
                if (t != Tok::Word || !parse(w, v)) return false;
                out.push_back(v);
            }
            return true;
        }
        while ((t = lex_.next(w)) == Tok::Word) {
            T v{};
            if (!parse(w, v)) return false;
            out.push_back(v);
        }
        return t == Tok::CloseList;
    }

    bool points(Points& out) {
        auto p = std::make_shared<std::vector<double>>();
        if (!numbers(*p, 3, tundrel::text::parseDouble) || p->size() % 3 != 0 ||
            p->size() / 3 > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
            return false;
        out = std::move(p);
        return true;
    }

    bool indices(std::vector<std::int32_t>& out) { return numbers(out, 1, tundrel::text::parseInt); }

    // Body of a Coordinate3 (1.0) or Coordinate (2.0) node.
    bool coordinateBody(Points& out) {
        out = std::make_shared<std::vector<double>>();
        return fields([&](std::string_view f) { return f != "point" || points(out); });
    }

    bool faceSet1() {
        std::vector<std::int32_t> index;
        if (!fields([&](std::string_view f) { return f != "coordIndex" || indices(index); })) return false;
        return addFaceSet(current_, index);
    }

    bool faceSet2(int depth) {
        std::vector<std::int32_t> index;
        Points coords;
        const bool ok = fields([&](std::string_view f) {
            if (f == "coordIndex") return indices(index);
            if (f == "coord") return coordField(coords, depth);
            return true;
        });
        return ok && addFaceSet(coords, index);
    }

    // The value of a 2.0 coord field: NULL, USE name, [DEF name] Coordinate
    // { ... }, or a node of another type (a prototype's), which gives no
    // points.
    bool coordField(Points& out, int depth) {
        if (depth + 1 > kMaxDepth) return false;
        std::string_view w, def;
        if (lex_.next(w) != Tok::Word) return false;
        if (w == "NULL") return true;
        if (w == "USE") {
            if (lex_.next(w) != Tok::Word) return false;
            auto it = defs_.find(w);
            if (it != defs_.end()) out = it->second;
            return true;
        }
        if (w == "DEF" && (lex_.next(def) != Tok::Word || lex_.next(w) != Tok::Word)) return false;
        std::string_view brace;
        if (lex_.next(brace) != Tok::Open) return false;
        if (w != "Coordinate") return skipGroup(Tok::Open);
        if (!coordinateBody(out)) return false;
        if (!def.empty()) defs_[def] = out;
        return true;
    }

    // One face patch of the polygons of `index` over `coords`; a face set
    // without a polygon of three corners gives none.
    bool addFaceSet(const Points& coords, const std::vector<std::int32_t>& index) {
        const std::int64_t count = coords ? static_cast<std::int64_t>(coords->size() / 3) : 0;
        std::vector<std::int32_t> triangles;
        std::size_t start = 0;
        for (std::size_t k = 0; k <= index.size(); ++k) {
            if (k < index.size() && index[k] != -1) {
                if (index[k] < -1 || index[k] >= count) return false;
                continue;
            }
            for (std::size_t c = start + 1; c + 1 < k; ++c)
                triangles.insert(triangles.end(), {index[start], index[c], index[c + 1], -1});
            start = k + 1;
        }
        if (triangles.empty()) return true;
        if (triangles.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) return false;

        // Number the used points in the order of the point list. remap_ is
        // kept between face sets, so that many small face sets over one long
        // shared point list cost only what they use.
        if (remap_.size() < static_cast<std::size_t>(count)) remap_.resize(static_cast<std::size_t>(count), -1);
        std::vector<std::int32_t> used;
        for (const std::int32_t n : triangles) {
            if (n < 0 || remap_[static_cast<std::size_t>(n)] != -1) continue;
            remap_[static_cast<std::size_t>(n)] = 0;
            used.push_back(n);
        }
        std::sort(used.begin(), used.end());
        for (std::size_t r = 0; r < used.size(); ++r) remap_[static_cast<std::size_t>(used[r])] = static_cast<std::int32_t>(r);

        const int length = static_cast<int>(triangles.size());
        auto patch = std::make_shared<FacePatch>(static_cast<int>(used.size()), length, length / 4);
        for (std::size_t k = 0; k < triangles.size(); ++k)
            patch->faceIndex[k] = triangles[k] < 0 ? -1 : remap_[static_cast<std::size_t>(triangles[k])];
        double* xyz[3] = {patch->addVariable("X").values.data(), patch->addVariable("Y").values.data(),
                          patch->addVariable("Z").values.data()};
        for (std::size_t r = 0; r < used.size(); ++r) {
            const std::size_t from = static_cast<std::size_t>(used[r]) * 3;
            for (std::size_t a = 0; a < 3; ++a) xyz[a][r] = (*coords)[from + a];
            remap_[static_cast<std::size_t>(used[r])] = -1;
        }
        patch->name = "PatchVRML_" + std::to_string(fe_.patchCount());
        fe_.append(std::move(patch));
        ++surfaces_;
        return true;
    }

    Lexer lex_;
    bool v1_;
    region_fe& fe_;
    Points current_;                                       // 1.0: the last Coordinate3
    std::unordered_map<std::string_view, Points> defs_;    // DEF'd coordinate nodes
    std::vector<std::int32_t> remap_;                      // -1: not used by the face set at hand
    int surfaces_ = 0;
};

// The VRML version of the header line (1 or 2), 0 for none. `body` is set to
// where the text after the header line begins.
int headerVersion(std::string_view text, std::size_t& body) {
    std::size_t p = text.substr(0, 3) == "\xEF\xBB\xBF" ? 3 : 0;
    if (text.substr(p, 5) != "#VRML") return 0;
    p += 5;
    const std::size_t blanks = p;
    while (p < text.size() && (text[p] == ' ' || text[p] == '\t')) ++p;
    if (p == blanks) return 0;
    const std::string_view version = text.substr(p, 4);
    const int v = version == "V1.0" ? 1 : version == "V2.0" ? 2 : 0;
    p += 4;
    if (v == 0 || (p < text.size() && text[p] != ' ' && text[p] != '\t' && text[p] != '\n' && text[p] != '\r'))
        return 0;
    const std::size_t eol = text.find_first_of("\r\n", p);
    body = eol == std::string_view::npos ? text.size() : eol;
    return v;
}

}  // namespace

namespace tundrel::formats {

bool read_vrml_text(std::string_view text, region& /*reg*/, region_fe& reg_fe) {
    std::size_t body = 0;
    const int version = headerVersion(text, body);
    if (version == 0) {
        tundrel::showMessage(kNoHeader);
        return false;
    }
    Reader reader(text, body, version, reg_fe);
    if (!reader.run() || reader.surfaces() == 0) {
        tundrel::showMessage(kNoSurface);
        return false;
    }
    return true;
}

bool write_vrml(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
                bool scientific) {
    const int patches = reg.patchCount();
    if (!tundrel::checkItemRange(first, last, patches + reg_fe.patchCount(), kBadRange)) return false;
    Writer out(file);
    if (!out.opened()) {
        tundrel::showMessage(kOpenFailed);
        return false;
    }
    out.setFormat(precision, scientific);

    auto fail = [&](const char* message) {
        out.close();
        tundrel::showMessage(message);
        return false;
    };
    int colour = 0;
    for (int idx = first; idx <= last; ++idx) {
        const bool structured = idx < patches;
        if (idx == first) {
            const PatchBase& item = structured ? static_cast<const PatchBase&>(reg.patch(idx))
                                               : static_cast<const PatchBase&>(reg_fe.patch(idx - patches));
            if (item.variableCount() < 3) return fail(kFewVariables);
            writeHeader(out, structured ? reg.name : reg_fe.name);
        }
        colour = (colour + 1) % 8;
        if (structured) {
            const StructPatch& p = reg.patch(idx);
            if (p.I < 2 || p.J < 2) continue;
            const CoordinateSlots c = findCoordinates(reg.patch(0).variables);
            if (!c.complete()) return fail(kNoCoordinates);
            beginShape(out, kColours[colour]);
            writeCells(out, p);
            endShape(out, p.variable(c.x), p.variable(c.y), p.variable(c.z), p.N, arrayWorks::source::geo);
        } else {
            const FacePatch& f = reg_fe.patch(idx - patches);
            if (f.faces <= 0) continue;
            const CoordinateSlots c = findCoordinates(reg_fe.patch(0).variables);
            if (!c.complete()) return fail(kNoCoordinates);
            beginShape(out, kColours[colour]);
            writeFaces(out, f);
            endShape(out, f.variable(c.x), f.variable(c.y), f.variable(c.z), f.nodes, arrayWorks::source::ngeo);
        }
    }
    out.endl();
    if (!out.close()) {
        tundrel::showMessage(kCloseFailed);
        return false;
    }
    return true;
}

}  // namespace tundrel::formats
