// Hostile input that the fuzz corpora cannot stand for: line ends and
// byte-order marks of other systems (they must read like the plain files of
// tests/data/plain/), grammars from outside an XML file,
// and a file cut short while it is read. Random and damaged bytes, counts and
// indices out of range and deep nesting are corpus files (fuzz/corpus/),
// replayed through the fuzz targets by the fuzz_corpus_replay test.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "api/TundrelApi.h"
#include "api/detail/text.h"
#include "tests/formats/model_text.h"
#include "tests/markers/marker_util.h"
#include "tests/support/test_util.h"

namespace {

std::string crlf(const std::string& text) {
    std::string out;
    for (char c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return out;
}

const char* const kGeometry[] = {"apt", "fld", "dat", "wrl"};
const char* const kMarkers[] = {"mpt", "inm", "apm", "mrk"};

// Reads a marker file through importMarkers; false when it threw, which must
// be FileError from markersImport line 24.
bool readMarkers(const std::string& file, markers& set) {
    const int line = testutil::fileErrorLine([&] { importMarkers(file, set, 480); });
    EXPECT_TRUE(line == 0 || line == 24) << line;
    return line == 0;
}

std::string xml(const std::string& count, const std::string& body) {
    return "<ObjectMarkers><NodesNumber>" + count + "</NodesNumber>" + body + "</ObjectMarkers>";
}

class Hostile : public testutil::HostTest {};

}  // namespace

// A UTF-8 byte-order mark once made APT read nothing, DAT fail, FLD take it
// into the title and the marker readers read no marker.
TEST_F(Hostile, ByteOrderMarkAndCrlfReadLikeThePlainText) {
    const std::string kBom = "\xEF\xBB\xBF";
    for (const char* ext : kGeometry) {
        const tundrel::GeometryFormat& format = *tundrel::findGeometryFormat(ext);
        const std::string plain = testutil::readFile(testutil::dataFile(std::string("plain/wing.") + ext));
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
    for (const char* ext : kMarkers) {
        const std::string file = testutil::dataFile(std::string("plain/wing.") + ext), plain = testutil::readFile(file);
        markers expected;
        ASSERT_TRUE(readMarkers(file, expected));
        ASSERT_EQ(expected.count(), 2);
        for (const std::string& text : {crlf(plain), kBom + plain, kBom + crlf(plain)}) {
            testutil::writeFile(dir.file(std::string("m.") + ext), text);
            markers set;
            EXPECT_TRUE(readMarkers(dir.file(std::string("m.") + ext), set));
            EXPECT_EQ(testutil::describe(set), testutil::describe(expected)) << ext << ": " << text.substr(0, 12);
        }
    }
    EXPECT_EQ(messages(), std::vector<std::string>{});
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
