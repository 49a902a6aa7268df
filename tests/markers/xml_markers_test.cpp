// XML marker files ("mrk") parsed by Xerces-C from files on disk, and the
// reports of the parse-error handler.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "tests/formats/model_text.h"
#include "tests/markers/marker_util.h"
#include "tests/support/test_util.h"

namespace {

std::string function(const char* id, const char* values) {
    return std::string("<Function id=\"") + id + "\">" + values + "</Function>\n";
}

std::string document(const std::string& body, const std::string& prolog = "<?xml version=\"1.0\"?>\n") {
    return prolog + "<ObjectMarkers>\n" + body + "</ObjectMarkers>\n";
}

class XmlMarkers : public testutil::HostTest {
protected:
    std::string file = dir.file("m.mrk");
    // Reads `text` from a file into `s`, named "P" before: the FileError's line, 0 for none.
    int read(const std::string& text, markers& s, std::string* err = nullptr) {
        testutil::writeFile(file, text);
        s.name = "P";
        return testutil::fileErrorLine([&] { importMarkers(file, s, 0); }, err);
    }
};

}  // namespace

// The counts and the first matching elements decide; tokens read as a stream
// reads them, and one out of range or not finite reads as its default.
TEST_F(XmlMarkers, FollowTheCountsAndLookups) {
    const std::pair<std::string, const char*> rows[] = {
        {function("x", "1 2"), "P0111"},
        {"<NodesNumber>0</NodesNumber>", "P1111"},
        {"<NodesNumber>4294967297</NodesNumber>", "P1111"},
        {"<NodesNumber>2</NodesNumber>" + function("x", "1 2 3") + function("y", "4"),
         "P0000 (0 0 0 0 1 1) (0 0 0 0 1 2)"},
        {"<NodesNumber>2</NodesNumber>" + function("x", "1 2") + function("active", "0"),
         "P1000 (1 0 0 0 1 1) (2 0 0 0 1 2)"},
        {"<!-- c --><Note id=\"x\">9</Note><NodesNumber id=\"q\">2</NodesNumber><NodesNumber>1</NodesNumber>"
         "<Function>5 5</Function>" + function("x", "1 2") + function("x", "3 4") + function("id", "5 6 7") +
             function("id", "8 9"),
         "P1000 (1 0 0 0 1 1) (2 0 0 0 1 2)"},
        {"<NodesNumber> 4abc </NodesNumber>" + function("x", "\n1.5e1x\tword -2 .5 ") +
             function("active", "0 2 no 1") + function("id", "7 x 3.9 99999999999"),
         "P1000 (15 0 0 0 0 7) (0 0 0 0 1 2) (-2 0 0 0 1 3) (0.5 0 0 0 1 4)"},
        {"<NodesNumber>2</NodesNumber>" + function("x", "nan 1e400") + function("id", "-3 99999999999"),
         "P1000 (0 0 0 0 1 -3) (0 0 0 0 1 2)"},
    };
    for (const auto& [body, expected] : rows) {
        markers s;
        ASSERT_EQ(read(document(body), s), 0) << body;
        EXPECT_EQ(testutil::describe(s), expected) << body;
    }
}

// A grammar with one attribute declared twice: a warning under automatic
// validation, not an error.
TEST_F(XmlMarkers, AWarningIsShownAndTheMarkersAreStillRead) {
    const std::string grammar =
        "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers (NodesNumber, Function*)>\n"
        "<!ELEMENT NodesNumber (#PCDATA)>\n<!ELEMENT Function (#PCDATA)>\n<!ATTLIST Function id CDATA #REQUIRED>\n"
        "<!ATTLIST Function id CDATA #IMPLIED>\n]>\n";
    std::string err;
    markers s;
    ASSERT_EQ(read(document("<NodesNumber>2</NodesNumber>\n" + function("x", "1 2") + function("f", "3 4"), grammar), s,
                   &err),
              0);
    const std::string message = "attribute 'id' has already been declared for element 'Function'";
    EXPECT_EQ(messages(), std::vector<std::string>{"Warning at file \"" + file + "\"\nline 7\ncolumn 22\nMessage: " +
                                                   message});
    EXPECT_EQ(err, "Warning at file \"" + file + "\", line 7, column 22\n   Message: " + message + "\n");
    ASSERT_EQ(s.count(), 2);  // the document type node is not the root
    EXPECT_TRUE(s.hasX && s.hasValue && !s.hasY && !s.hasZ);
    EXPECT_EQ(s[1].value, 4.0);
}

// Malformed or invalid files: one report from the handler, then File error;
// called directly, the reader's own error is the failed parse.
TEST_F(XmlMarkers, ParseErrorsReportThenFileError) {
    const struct {
        std::string text;
        const char* severity;
        int line, column;
        const char* message;
    } rows[] = {
        {"<ObjectMarkers><NodesNumber>2</Nodes", "Fatal Error", 1, 32, "expected end of tag 'NodesNumber'"},
        {"<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers EMPTY>\n]>\n"
         "<ObjectMarkers><NodesNumber>1</NodesNumber></ObjectMarkers>\n",
         "Error", 4, 28, "no declaration found for element 'NodesNumber'"},
        // Xerces leaves parts of the content model behind here; the parser's
        // memory must still all come back (LeakSanitizer checks).
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers (Nod%sNumber, Function*)>\n"
         "]>\n<ObjectMarkers/>\n",
         "Fatal Error", 3, 30, "parameter entity references are not allowed inside markup in internal subset"},
    };
    for (const auto& c : rows) {
        SCOPED_TRACE(c.message);
        std::string err;
        markers s;
        EXPECT_EQ(read(c.text, s, &err), 24);
        const std::string where = std::string(c.severity) + " at file \"" + file + "\"";
        const std::string line = std::to_string(c.line), column = std::to_string(c.column);
        EXPECT_EQ(messages(), std::vector<std::string>{where + "\nline " + line + "\ncolumn " + column +
                                                       "\nMessage: " + c.message});
        EXPECT_EQ(err, where + ", line " + line + ", column " + column + "\n   Message: " + c.message + "\n");
        EXPECT_EQ(testutil::fileErrorLine([&] { readXmlMarkers(file, s); }, nullptr, arrayWorks::source::IOdom), 65);
        EXPECT_EQ(messages().size(), 2u);
        host.messages.clear();
    }
}

TEST_F(XmlMarkers, HostileCountsAndEntitiesEndInFileError) {
    markers s, many;
    EXPECT_EQ(read(document("<NodesNumber>2000000000</NodesNumber>" + function("x", "1")), s), 24);
    EXPECT_EQ(read(document("<NodesNumber>1000</NodesNumber>"), many), 0);
    EXPECT_EQ(many.count(), 1000);  // values may be absent

    std::string dtd = "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers ANY>\n"
                      "<!ENTITY e0 \"1 2 3 4 5 6 7 8 9 \">\n";
    for (int i = 1; i < 10; ++i) {
        dtd += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k) dtd += "&e" + std::to_string(i - 1) + ";";
        dtd += "\">\n";
    }
    EXPECT_EQ(read(dtd + "]>\n<ObjectMarkers>&e9;</ObjectMarkers>\n", s), 24);
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].rfind("Fatal Error at file \"" + file + "\"\nline 15\n", 0), 0u) << messages()[0];

    // A missing file: the parser's report of why, then File error.
    file = dir.file("none.mrk");
    EXPECT_EQ(testutil::fileErrorLine([&] { importMarkers(file, s, 0); }), 24);
    ASSERT_EQ(messages().size(), 2u);
    EXPECT_EQ(messages()[1], "Fatal Error at file \"\"\nline 0\ncolumn 0\nMessage: unable to open primary document "
                             "entity '" + file + "'");
}

TEST(MarkersCli, PrintsTheSetAsJsonAndFailsWithTheReportersText) {
    testutil::ScratchDir dir;
    testutil::CliRun r = testutil::runCli("markers --json " + testutil::dataFile("read/two.mrk"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, testutil::expected("markers.json"));

    testutil::writeFile(dir.file("bad.mrk"), "<ObjectMarkers>");
    r = testutil::runCli("markers " + dir.file("bad.mrk"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Fatal Error at file \"" + dir.file("bad.mrk") + "\"\nline 1\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("File error!"), std::string::npos) << r.out;
    EXPECT_EQ(testutil::runCli("markers " + dir.file("m.MRK")).status, 2);
}
