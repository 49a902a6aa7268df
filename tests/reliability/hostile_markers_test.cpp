// Hostile marker files, text and XML: files that cannot be read, byte-order
// marks and CRLF, numbers out of range, deep XML. Every failure is
// arrayWorks::FileError from importMarkers; everything else reads markers.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>


#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

struct MarkerFormat {
    const char* ext;
    std::string sample;  // LF line ends
};

void PrintTo(const MarkerFormat& f, std::ostream* os) { *os << f.ext; }

const MarkerFormat kFormats[] = {
    {"mpt", "10 20 0 0 1\n1.5 -2 3 4 0\n"},
    {"inm", "10 20 0 0 1\n1.5 -2 3 4 0\n"},
    {"apm", "1 2 3\n-4 5e-1 6\n"},
    {"mrk", "<?xml version=\"1.0\"?>\n<ObjectMarkers>\n<NodesNumber>2</NodesNumber>\n"
            "<Function id=\"x\">0.1 0.2</Function>\n<Function id=\"f\">-0.5 0.3</Function>\n"
            "<Function id=\"active\">1 0</Function>\n</ObjectMarkers>\n"},
};

std::string describe(const markers& s) {
    std::ostringstream o;
    o.precision(17);
    o << s.name << s.hasX << s.hasY << s.hasZ << s.hasValue;
    for (const marker& m : s.list) o << " (" << m.x << ' ' << m.y << ' ' << m.z << ' ' << m.value << ' ' << m.active << ' ' << m.number << ')';
    return o.str();
}

// Reads `file`; false when importMarkers threw. Any exception other than
// FileError from markersImport fails the test.
bool readMarkers(const std::string& file, markers& set) {
    ::testing::internal::CaptureStderr();  // the XML reporter's lines
    bool ok = true;
    try {
        importMarkers(file, set, 480);
    } catch (const arrayWorks::FileError& e) {
        EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
        EXPECT_EQ(e.line, 24);
        ok = false;
    } catch (...) {
        ADD_FAILURE() << "not a FileError";
        ok = false;
    }
    ::testing::internal::GetCapturedStderr();
    return ok;
}

class EveryMarkerReader : public testutil::HostTest, public ::testing::WithParamInterface<MarkerFormat> {
protected:
    std::string path(const std::string& stem = "m") const { return dir.file(stem + "." + GetParam().ext); }
};

}  // namespace

// Missing, vanished (a dangling link), a directory, a named pipe without a
// writer (must not wait) and a file whose read fails: FileError.
TEST_P(EveryMarkerReader, FilesThatCannotBeReadEndInFileError) {
    testutil::writeFile(dir.file("target"), GetParam().sample);
    ASSERT_EQ(::symlink(dir.file("target").c_str(), path("vanished").c_str()), 0);
    ASSERT_EQ(::unlink(dir.file("target").c_str()), 0);
    ASSERT_EQ(::mkdir(path("folder").c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0644), 0);
    ASSERT_EQ(::symlink("/proc/self/mem", path("unreadable").c_str()), 0);
    for (const char* stem : {"missing", "vanished", "folder", "pipe", "unreadable"}) {
        SCOPED_TRACE(stem);
        markers set;
        EXPECT_FALSE(readMarkers(path(stem), set));
    }
}

// CRLF line ends and a UTF-8 byte-order mark read as the plain file does.
TEST_P(EveryMarkerReader, ByteOrderMarkAndCrlfReadLikeThePlainFile) {
    testutil::writeFile(path("plain"), GetParam().sample);
    markers plain;
    ASSERT_TRUE(readMarkers(path("plain"), plain));
    ASSERT_EQ(plain.count(), 2);
    std::string crlf;
    for (char c : GetParam().sample) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    const std::string bom = "\xEF\xBB\xBF";
    for (const std::string& text : {crlf, bom + GetParam().sample, bom + crlf}) {
        testutil::writeFile(path(), text);
        markers set;
        EXPECT_TRUE(readMarkers(path(), set));
        EXPECT_EQ(describe(set), describe(plain)) << text.substr(0, 12);
    }
    EXPECT_EQ(messages(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Formats, EveryMarkerReader, ::testing::ValuesIn(kFormats),
                         [](const auto& info) { return std::string(info.param.ext); });

// Numbers out of range or not finite end a text file's records there, as a
// stream's failed read does; in XML such a token reads as its default.
struct NumberCase {
    const char* name;
    const char* ext;
    std::string text;
    std::string expected;  // describe() of the set
};

void PrintTo(const NumberCase& c, std::ostream* os) { *os << c.name; }

class HostileMarkerNumbers : public testutil::HostTest, public ::testing::WithParamInterface<NumberCase> {};

TEST_P(HostileMarkerNumbers, ReadAsAStreamWould) {
    const NumberCase& c = GetParam();
    const std::string file = dir.file(std::string("n.") + c.ext);
    testutil::writeFile(file, c.text);
    markers set;
    ASSERT_TRUE(readMarkers(file, set));
    EXPECT_EQ(describe(set), c.expected);
}

std::string xml(const std::string& count, const std::string& body) {
    return "<ObjectMarkers><NodesNumber>" + count + "</NodesNumber>" + body + "</ObjectMarkers>";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileMarkerNumbers,
    ::testing::Values(
        NumberCase{"mptIntegerBeyond32Bits", "mpt", "1 2 0 0 1\n3 4 2147483648 0 1\n", "1111 (1 2 0 0 1 1)"},
        NumberCase{"mptOutOfRange", "mpt", "1e400 2 0 0 1\n", "0000"},
        NumberCase{"inmNaN", "inm", "1 2 0 0 1\nnan 2 0 0 1\n", "1111 (1 477 0 0 1 1)"},
        NumberCase{"apmInfinity", "apm", "1 2 3\ninf 2 3\n", "1111 (1 2 3 0 1 1)"},
        NumberCase{"xmlCountBeyond32Bits", "mrk", xml("4294967297", ""), "1111"},
        NumberCase{"xmlValuesOutOfRange", "mrk",
                   xml("2", "<Function id=\"x\">nan 1e400</Function><Function id=\"id\">-3 99999999999</Function>"),
                   "1000 (0 0 0 0 1 -3) (0 0 0 0 1 2)"}),
    [](const auto& info) { return std::string(info.param.name); });

// Elements nested far deeper than any marker file: the markers directly under
// the root are still found, nothing else is walked.
TEST(HostileXmlMarkers, DeepNestingIsParsedWithoutExhaustingTheStack) {
    testutil::ScratchDir dir;
    tundrel::ScriptedHost host;
    tundrel::HostScope scope(host);
    std::string deep;
    for (int k = 0; k < 100000; ++k) deep += "<a>";
    for (int k = 0; k < 100000; ++k) deep += "</a>";
    testutil::writeFile(dir.file("d.mrk"), xml("1", deep + "<Function id=\"x\">7</Function>"));
    markers set;
    ASSERT_TRUE(readMarkers(dir.file("d.mrk"), set));
    ASSERT_EQ(set.count(), 1);
    EXPECT_EQ(set[0].x, 7);
}

// A grammar from outside the file: a local regular file is read; a named pipe
// (which would keep the parser waiting) or a URL (a marker file does not
// reach out to the network) ends in FileError.
TEST(HostileXmlMarkers, ExternalGrammarOnlyFromLocalRegularFiles) {
    testutil::ScratchDir dir;
    tundrel::ScriptedHost host;
    tundrel::HostScope scope(host);
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
