// Hostile files for every geometry reader: files that cannot be read, byte
// order marks and line ends of other systems, binary garbage, counts and
// indices out of every range, non-finite numbers, deep and unbalanced VRML.
// Each read ends with the format's own message and result and leaves
// consistent geometry behind.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "api/TundrelApi.h"
#include "api/formats/text.h"
#include "tests/support/test_util.h"

using testutil::HostTest;

namespace {

struct Reader {
    const char* ext;
    std::string sample;                 // a small valid file, LF line ends
    std::vector<std::string> messages;  // the reader's messages; the first one for a file it can't open
};

void PrintTo(const Reader& r, std::ostream* os) { *os << r.ext; }

const Reader kApt{"apt", "2 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0.5\n",
                  {"It is impossible to open selected file", "It's impossible to close APT file"}};
const Reader kFld{"fld",
                  "wing 1 1 cp\n2 2 WALL  WALL  WALL  WALL\n0 0 0 1\n1 0 0 2\n0 1 0 3\n1 1 0.5 4\n0.8 4 0",
                  {"It is impossible to open selected FLD file", "It's impossible to close FLD file"}};
const Reader kDat{"dat",
                  "TITLE = \"wing\"\n# a comment\nVARIABLES = \"x\",\"y\",\"z\",\"cp\"\n"
                  "ZONE T=\"P\", I=2, J=1, K=1, F=POINT\n0 0 0 1\n1 0 0 2\n"
                  "ZONE N=3, E=1, ET=TRIANGLE, F=FEPOINT\n0 0 0 1\n1 0 0 2\n0 1 0 3\n1 2 3\n",
                  {"It's impossible to open DAT file",
                   "Error in the Header of DAT file. Parameter TITLE is absent",
                   "Error in the Header of DAT file. Parameter VARIABLES is absent",
                   "Error in the Header of DAT file. Wrong names of variables",
                   "Error in the Header of DAT file. The number of variables <3",
                   "Error in the Header of DAT file. It's impossible to read variables from header",
                   "Error in DAT file. It's impossible to read attributes of ZONE",
                   "Error in DAT structure. No 3D surfaces are found"}};
const Reader kWrl{"wrl",
                  "#VRML V2.0 utf8\n# a comment\nShape { geometry IndexedFaceSet {\n"
                  "coord Coordinate { point [ 0 0 0, 1 0 0, 0 1 0, 1 1 1 ] }\ncoordIndex [ 0 1 2 -1 1 3 2 -1 ] } }\n",
                  {"It is impossible to open VRML or identify it's header",
                   "Error in VRML structure. No 3D surfaces are found"}};

// Everything a read produced, for comparing two reads.
std::string describe(const region& reg, const region_fe& fe) {
    std::ostringstream s;
    s.precision(17);
    auto variables = [&](const PatchBase& p) {
        for (const auto& v : p.variables) {
            s << ' ' << v->name << ':';
            for (double d : v->values) s << d << ',';
        }
    };
    s << reg.name << ' ' << reg.Mach << ' ' << reg.alpha << ' ' << reg.beta << '\n';
    for (const auto& p : reg.patches) {
        s << p->name << ' ' << p->I << 'x' << p->J << 'x' << p->K;
        variables(*p);
        s << '\n';
    }
    s << fe.name << '\n';
    for (const auto& f : fe.patches) {
        s << f->name << ' ' << f->nodes << ' ' << f->faces << " [";
        for (std::int32_t i : f->faceIndex) s << i << ' ';
        s << ']';
        variables(*f);
        s << '\n';
    }
    return s.str();
}

// What every read leaves, whatever the file: each variable as long as its
// patch, each face entry -1 or a node of its patch.
::testing::AssertionResult consistent(const region& reg, const region_fe& fe) {
    for (const auto& p : reg.patches) {
        if (p->N != p->I * p->J * p->K) return ::testing::AssertionFailure() << "node count of " << p->name;
        for (const auto& v : p->variables)
            if (v->count != p->N || v->values.size() != static_cast<std::size_t>(p->N))
                return ::testing::AssertionFailure() << "variable " << v->name << " of " << p->name;
    }
    for (const auto& f : fe.patches) {
        if (f->faceIndex.size() != static_cast<std::size_t>(f->indexLength) || f->indexLength != 4 * f->faces)
            return ::testing::AssertionFailure() << "face list of " << f->name;
        for (std::int32_t i : f->faceIndex)
            if (i < -1 || i >= f->nodes) return ::testing::AssertionFailure() << "face entry " << i << " of " << f->name;
        for (const auto& v : f->variables)
            if (v->count != f->nodes || v->values.size() != static_cast<std::size_t>(f->nodes))
                return ::testing::AssertionFailure() << "variable " << v->name << " of " << f->name;
    }
    return ::testing::AssertionSuccess();
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t p = 0; (p = text.find(from, p)) != std::string::npos; p += to.size()) text.replace(p, from.size(), to);
    return text;
}

class EveryReader : public HostTest, public ::testing::WithParamInterface<Reader> {
protected:
    std::string path(const std::string& stem = "m") const { return dir.file(stem + "." + GetParam().ext); }

    // Reads `file` into fresh objects; the result, and the geometry in `out`.
    bool read(const std::string& file, std::string* out = nullptr) {
        region reg;
        region_fe fe;
        const bool ok = import_data(file, false, reg, fe);
        EXPECT_TRUE(consistent(reg, fe));
        if (out != nullptr) *out = describe(reg, fe);
        return ok;
    }

    // A failed read shows exactly one of the reader's messages, a
    // successful one none.
    void expectOwnEnding(bool ok) {
        if (ok) {
            EXPECT_EQ(messages(), std::vector<std::string>{});
            return;
        }
        ASSERT_EQ(messages().size(), 1u);
        const auto& own = GetParam().messages;
        EXPECT_NE(std::find(own.begin(), own.end(), messages()[0]), own.end()) << messages()[0];
    }
};

}  // namespace

// A missing file, one that vanished after it was chosen (a dangling link), a
// directory, a named pipe without a writer (opening it must not wait), and a
// file whose read fails (/proc/self/mem reads with EIO at offset 0).
TEST_P(EveryReader, FilesThatCannotBeReadEndWithTheOpenMessage) {
    const std::string missing = path("missing");
    const std::string vanished = path("vanished");
    testutil::writeFile(dir.file("target"), GetParam().sample);
    ASSERT_EQ(::symlink(dir.file("target").c_str(), vanished.c_str()), 0);
    ASSERT_EQ(::unlink(dir.file("target").c_str()), 0);
    const std::string directory = path("folder");
    ASSERT_EQ(::mkdir(directory.c_str(), 0755), 0);
    const std::string pipe = path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
    const std::string unreadable = path("unreadable");
    ASSERT_EQ(::symlink("/proc/self/mem", unreadable.c_str()), 0);

    for (const std::string& file : {missing, vanished, directory, pipe, unreadable}) {
        SCOPED_TRACE(file);
        host.messages.clear();
        EXPECT_FALSE(read(file));
        EXPECT_EQ(messages(), std::vector<std::string>{GetParam().messages[0]});
    }
}

// CRLF line ends and a UTF-8 byte-order mark change nothing of what is read.
TEST_P(EveryReader, ByteOrderMarkAndCrlfReadLikeThePlainFile) {
    const std::string& plain = GetParam().sample;
    std::string expected;
    testutil::writeFile(path("plain"), plain);
    ASSERT_TRUE(read(path("plain"), &expected));
    const std::string crlf = replaceAll(plain, "\n", "\r\n");
    const std::string bom = "\xEF\xBB\xBF";
    for (const std::string& text : {crlf, bom + plain, bom + crlf}) {
        SCOPED_TRACE(text.substr(0, 20));
        testutil::writeFile(path(), text);
        std::string got;
        EXPECT_TRUE(read(path(), &got));
        EXPECT_EQ(got, expected);
    }
    EXPECT_EQ(messages(), std::vector<std::string>{});
}

// Random bytes, the sample with bytes overwritten, and the sample cut short
// with garbage after it.
TEST_P(EveryReader, BinaryGarbageEndsWithTheReadersOwnMessage) {
    const std::string& sample = GetParam().sample;
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 150; ++round) {
        std::string text;
        if (round < 50) {
            text.resize(1 + random() % 2048);
            for (char& c : text) c = static_cast<char>(byte(random));
        } else if (round < 100) {
            text = sample;
            for (int k = 0; k < 1 + round % 5; ++k) text[random() % text.size()] = static_cast<char>(byte(random));
        } else {
            text = sample.substr(0, random() % sample.size());
            for (int k = 0; k < round % 7; ++k) text.push_back(static_cast<char>(byte(random)));
        }
        testutil::writeFile(path(), text);
        host.messages.clear();
        SCOPED_TRACE(round);
        expectOwnEnding(read(path()));
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, EveryReader, ::testing::Values(kApt, kFld, kDat, kWrl),
                         [](const auto& info) { return std::string(info.param.ext); });

// Counts and indices out of range, negative or beyond 32 bits, and numbers
// that are not finite: the result, the message and what was kept.
struct Hostile {
    const char* name;
    const char* ext;
    std::string text;
    bool result;
    const char* message;  // nullptr: none
    int patches;          // structured and face patches kept
};

void PrintTo(const Hostile& c, std::ostream* os) { *os << c.name; }

class HostileNumbers : public HostTest, public ::testing::WithParamInterface<Hostile> {};

TEST_P(HostileNumbers, EndAsTheFormatSays) {
    const Hostile& c = GetParam();
    const std::string file = dir.file(std::string("h.") + c.ext);
    testutil::writeFile(file, c.text);
    region reg;
    region_fe fe;
    EXPECT_EQ(import_data(file, false, reg, fe), c.result);
    EXPECT_TRUE(consistent(reg, fe));
    EXPECT_EQ(reg.patchCount() + fe.patchCount(), c.patches);
    EXPECT_EQ(messages(), c.message ? std::vector<std::string>{c.message} : std::vector<std::string>{});
}

const char* kAptClose = "It's impossible to close APT file";
const char* kFldClose = "It's impossible to close FLD file";
const char* kDatZone = "Error in DAT file. It's impossible to read attributes of ZONE";
const char* kVrmlNone = "Error in VRML structure. No 3D surfaces are found";
const std::string kDatHead = "TITLE=\"t\"\nVARIABLES=\"x\",\"y\",\"z\"\n";
const std::string kVrml = "#VRML V2.0 utf8\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileNumbers,
    ::testing::Values(
        // A count that is no 32-bit integer is no header: the normal end.
        Hostile{"aptCountBeyond32Bits", "apt", "4294967297 1\n1 2 3\n", true, nullptr, 0},
        Hostile{"aptCountsWhoseProductOverflows", "apt", "65536 65536\n1 2 3\n", false, kAptClose, 0},
        Hostile{"aptInfinity", "apt", "1 1\ninf 0 0\n", false, kAptClose, 0},
        Hostile{"fldNegativeNameCount", "fld", "w 1 -3\n1 1 W W W W\n0 0 0\n0 0 0\n", false, kFldClose, 0},
        Hostile{"fldNaN", "fld", "w 1 0\n1 1 W W W W\nnan 0 0\n0 0 0\n", false, kFldClose, 1},
        Hostile{"datCountBeyond32Bits", "dat", kDatHead + "ZONE I=4294967297\n1 2 3\n", false, kDatZone, 0},
        Hostile{"datNegativeNode", "dat", kDatHead + "ZONE N=3, E=1, ET=TRIANGLE, F=FEPOINT\n0 0 0 1 0 0 0 1 0\n1 -2 3\n",
                false, kDatZone, 0}),
    [](const auto& info) { return std::string(info.param.name); });

// Nesting far beyond what the reader follows, and brackets that never close
// or close what was never opened: the structure message, no exhausted stack.
class HostileVrml : public HostTest, public ::testing::WithParamInterface<std::pair<const char*, std::string>> {};

TEST_P(HostileVrml, EndsWithTheStructureMessage) {
    testutil::writeFile(dir.file("d.wrl"), kVrml + GetParam().second);
    region reg;
    region_fe fe;
    EXPECT_FALSE(import_data(dir.file("d.wrl"), false, reg, fe));
    EXPECT_EQ(fe.patchCount(), 0);
    EXPECT_EQ(messages(), std::vector<std::string>{kVrmlNone});
}

std::string repeated(const std::string& s, int n) {
    std::string r;
    r.reserve(s.size() * static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k) r += s;
    return r;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileVrml,
    ::testing::Values(std::make_pair("deepNodes", repeated("Group { children [ ", 200000)),
                      std::make_pair("deepBracketsInAField", "WorldInfo { info " + repeated("[ { ", 500000)),
                      std::make_pair("deepListsAndClosed", repeated("[", 300000) + repeated("]", 300000)),
                      std::make_pair("prototypeNeverClosed", "PROTO P [ field SFInt32 a 1 ] { Group { " +
                                                                 repeated("{ ", 100000))),
    [](const auto& info) { return std::string(info.param.first); });

// A file cut short by another program while it is read: the text that was
// read stays readable (a mapped file would end the process with SIGBUS).
TEST(HostileFiles, TextOfAFileCutShortWhileReadStaysReadable) {
    testutil::ScratchDir dir;
    const std::string file = dir.file("cut.dat");
    testutil::writeFile(file, repeated("1 2 3\n", 200000));
    tundrel::text::FileText text;
    ASSERT_TRUE(text.open(file));
    ASSERT_EQ(::truncate(file.c_str(), 0), 0);
    const std::string_view v = text.view();
    ASSERT_EQ(v.size(), 1200000u);
    EXPECT_EQ(std::count(v.begin(), v.end(), '\n'), 200000);
}
