// Hostile input that the fuzz corpora cannot stand for: line ends and
// byte-order marks of other systems (they must read like the plain file),
// numbers out of range in marker files, grammars from outside an XML file,
// and a file cut short while it is read. Random and damaged bytes, counts and
// indices out of range and deep nesting are corpus files (fuzz/corpus/),
// replayed through the fuzz targets by the fuzz_corpus_replay test.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "api/TundrelApi.h"
#include "api/detail/text.h"
#include "tests/formats/model_text.h"
#include "tests/support/test_util.h"

namespace {

std::string describe(const markers& s) {
    std::ostringstream o;
    o.precision(17);
    o << s.name << s.hasX << s.hasY << s.hasZ << s.hasValue;
    for (const marker& m : s.list)
        o << " (" << m.x << ' ' << m.y << ' ' << m.z << ' ' << m.value << ' ' << m.active << ' ' << m.number << ')';
    return o.str();
}

std::string crlf(const std::string& text) {
    std::string out;
    for (char c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return out;
}

const std::string kBom = "\xEF\xBB\xBF";

// A small valid file of every format, LF line ends.
const std::pair<const char*, std::string> kGeometry[] = {
    {"apt", "2 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0.5\n"},
    {"fld", "wing 1 1 cp\n2 2 WALL  WALL  WALL  WALL\n0 0 0 1\n1 0 0 2\n0 1 0 3\n1 1 0.5 4\n0.8 4 0"},
    {"dat", "TITLE = \"wing\"\n# a comment\nVARIABLES = \"x\",\"y\",\"z\",\"cp\"\n"
            "ZONE T=\"P\", I=2, J=1, K=1, F=POINT\n0 0 0 1\n1 0 0 2\n"
            "ZONE N=3, E=1, ET=TRIANGLE, F=FEPOINT\n0 0 0 1\n1 0 0 2\n0 1 0 3\n1 2 3\n"},
    {"wrl", "#VRML V2.0 utf8\n# a comment\nShape { geometry IndexedFaceSet {\n"
            "coord Coordinate { point [ 0 0 0, 1 0 0, 0 1 0, 1 1 1 ] }\ncoordIndex [ 0 1 2 -1 1 3 2 -1 ] } }\n"},
};
const std::pair<const char*, std::string> kMarkers[] = {
    {"mpt", "10 20 0 0 1\n1.5 -2 3 4 0\n"},
    {"inm", "10 20 0 0 1\n1.5 -2 3 4 0\n"},
    {"apm", "1 2 3\n-4 5e-1 6\n"},
    {"mrk", "<?xml version=\"1.0\"?>\n<ObjectMarkers>\n<NodesNumber>2</NodesNumber>\n"
            "<Function id=\"x\">0.1 0.2</Function>\n<Function id=\"f\">-0.5 0.3</Function>\n"
            "<Function id=\"active\">1 0</Function>\n</ObjectMarkers>\n"},
};

// Reads a marker file through importMarkers; false when it threw, which must
// be FileError from markersImport line 24.
bool readMarkers(const std::string& file, markers& set) {
    ::testing::internal::CaptureStderr();  // the XML reporter's lines
    bool ok = true;
    try {
        importMarkers(file, set, 480);
    } catch (const arrayWorks::FileError& e) {
        EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
        EXPECT_EQ(e.line, 24);
        ok = false;
    }
    ::testing::internal::GetCapturedStderr();
    return ok;
}

std::string xml(const std::string& count, const std::string& body) {
    return "<ObjectMarkers><NodesNumber>" + count + "</NodesNumber>" + body + "</ObjectMarkers>";
}

class Hostile : public testutil::HostTest {};

}  // namespace

// A UTF-8 byte-order mark once made APT read nothing, DAT fail, FLD take it
// into the title and the marker readers read no marker.
TEST_F(Hostile, ByteOrderMarkAndCrlfReadLikeThePlainText) {
    for (const auto& [ext, plain] : kGeometry) {
        const tundrel::GeometryFormat& format = *tundrel::findGeometryFormat(ext);
        region reg;
        region_fe fe;
        ASSERT_TRUE(format.read(plain, reg, fe)) << ext;
        const std::string expected = testutil::modelText(reg, fe);
        for (const std::string& text : {crlf(plain), kBom + plain, kBom + crlf(plain)}) {
            region r;
            region_fe f;
            EXPECT_TRUE(format.read(text, r, f)) << ext;
            EXPECT_EQ(testutil::modelText(r, f), expected) << ext << ": " << text.substr(0, 12);
        }
    }
    for (const auto& [ext, plain] : kMarkers) {
        testutil::writeFile(dir.file(std::string("plain.") + ext), plain);
        markers expected;
        ASSERT_TRUE(readMarkers(dir.file(std::string("plain.") + ext), expected));
        ASSERT_EQ(expected.count(), 2);
        for (const std::string& text : {crlf(plain), kBom + plain, kBom + crlf(plain)}) {
            testutil::writeFile(dir.file(std::string("m.") + ext), text);
            markers set;
            EXPECT_TRUE(readMarkers(dir.file(std::string("m.") + ext), set));
            EXPECT_EQ(describe(set), describe(expected)) << ext << ": " << text.substr(0, 12);
        }
    }
    EXPECT_EQ(messages(), std::vector<std::string>{});
}

// Marker files that cannot be loaded: FileError, never a wait on a pipe.
TEST_F(Hostile, MarkerFilesThatCannotBeLoadedEndInFileError) {
    testutil::writeFile(dir.file("target"), "1 2 3\n");
    for (const auto& [ext, sample] : kMarkers) {
        const std::string stem = dir.file(ext);
        ASSERT_EQ(::symlink(dir.file("target").c_str(), (stem + "_vanished." + ext).c_str()), 0);
        ASSERT_EQ(::mkdir((stem + "_folder." + ext).c_str(), 0755), 0);
        ASSERT_EQ(::mkfifo((stem + "_pipe." + ext).c_str(), 0644), 0);
        ASSERT_EQ(::symlink("/proc/self/mem", (stem + "_unreadable." + ext).c_str()), 0);
    }
    ASSERT_EQ(::unlink(dir.file("target").c_str()), 0);
    for (const auto& [ext, sample] : kMarkers)
        for (const char* kind : {"_missing.", "_vanished.", "_folder.", "_pipe.", "_unreadable."}) {
            markers set;
            EXPECT_FALSE(readMarkers(dir.file(ext) + kind + ext, set)) << ext << kind;
        }
}

// Numbers out of range or not finite end a text file's records there, as a
// stream's failed read does; in XML such a token reads as its default.
TEST_F(Hostile, MarkerNumbersOutOfRangeReadAsAStreamWould) {
    const struct {
        const char* ext;
        std::string text;
        const char* expected;  // describe() of the set
    } cases[] = {
        {"mpt", "1 2 0 0 1\n3 4 2147483648 0 1\n", "1111 (1 2 0 0 1 1)"},
        {"mpt", "1e400 2 0 0 1\n", "0000"},
        {"inm", "1 2 0 0 1\nnan 2 0 0 1\n", "1111 (1 477 0 0 1 1)"},
        {"apm", "1 2 3\ninf 2 3\n", "1111 (1 2 3 0 1 1)"},
        {"mrk", xml("4294967297", ""), "1111"},
        {"mrk", xml("2", "<Function id=\"x\">nan 1e400</Function><Function id=\"id\">-3 99999999999</Function>"),
         "1000 (0 0 0 0 1 -3) (0 0 0 0 1 2)"},
    };
    for (const auto& c : cases) {
        const std::string file = dir.file(std::string("n.") + c.ext);
        testutil::writeFile(file, c.text);
        markers set;
        ASSERT_TRUE(readMarkers(file, set)) << c.text;
        EXPECT_EQ(describe(set), c.expected) << c.text;
    }
}

// A grammar from outside the file: a local regular file is read; a named pipe
// (which once kept the parser waiting) or a URL (a marker file does not reach
// out to the network) ends in FileError.
TEST_F(Hostile, ExternalGrammarOnlyFromLocalRegularFiles) {
    testutil::writeFile(dir.file("markers.dtd"),
                        "<!ELEMENT ObjectMarkers (NodesNumber, Function*)>\n<!ELEMENT NodesNumber (#PCDATA)>\n"
                        "<!ELEMENT Function (#PCDATA)>\n<!ATTLIST Function id CDATA #REQUIRED>\n");
    ASSERT_EQ(::mkfifo(dir.file("pipe.dtd").c_str(), 0644), 0);
    auto withGrammar = [&](const std::string& system) {
        testutil::writeFile(dir.file("g.mrk"), "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers SYSTEM \"" + system +
                                                   "\">\n" + xml("1", "<Function id=\"x\">7</Function>"));
        return dir.file("g.mrk");
    };
    markers set;
    ASSERT_TRUE(readMarkers(withGrammar("markers.dtd"), set));
    ASSERT_EQ(set.count(), 1);
    EXPECT_EQ(set[0].x, 7);
    for (const char* system : {"pipe.dtd", "http://127.0.0.1:9/markers.dtd", "ftp://example.invalid/m.dtd"}) {
        markers other;
        EXPECT_FALSE(readMarkers(withGrammar(system), other)) << system;
    }
}

// A file cut short by another program while it is read: the text that was
// loaded stays readable (a mapped file once ended the process with SIGBUS).
TEST_F(Hostile, TextOfAFileCutShortWhileReadStaysReadable) {
    const std::string file = dir.file("cut.dat");
    std::string lines;
    for (int k = 0; k < 200000; ++k) lines += "1 2 3\n";
    testutil::writeFile(file, lines);
    std::string text;
    ASSERT_TRUE(tundrel::text::loadFile(file, text));
    ASSERT_EQ(::truncate(file.c_str(), 0), 0);
    ASSERT_EQ(text.size(), 1200000u);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 200000);
}
