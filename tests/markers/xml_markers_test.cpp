// XML marker files ("mrk") parsed by Xerces-C from files on disk, and the
// reports of the parse-error handler.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

std::string function(const char* id, const char* values) {
    return std::string("<Function id=\"") + id + "\">" + values + "</Function>\n";
}

std::string document(const std::string& body, const std::string& prolog = "<?xml version=\"1.0\"?>\n") {
    return prolog + "<ObjectMarkers>\n" + body + "</ObjectMarkers>\n";
}

// A grammar that the documents keep, with one attribute declared twice: a
// warning under automatic validation, not an error.
const std::string kRepeatedAttribute =
    "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers (NodesNumber, Function*)>\n"
    "<!ELEMENT NodesNumber (#PCDATA)>\n<!ELEMENT Function (#PCDATA)>\n<!ATTLIST Function id CDATA #REQUIRED>\n"
    "<!ATTLIST Function id CDATA #IMPLIED>\n]>\n";

}  // namespace

class XmlMarkers : public testutil::HostTest {
protected:
    // Reads `text` from a file; the reporter's standard-error lines go to `err`.
    markers read(const std::string& text, std::string* err = nullptr) {
        testutil::writeFile(file, text);
        markers s;
        s.name = "P";
        ::testing::internal::CaptureStderr();
        try {
            importMarkers(file, s, 0);
        } catch (...) {
            stderrText(err);
            throw;
        }
        stderrText(err);
        return s;
    }
    static void stderrText(std::string* err) {
        const std::string e = ::testing::internal::GetCapturedStderr();
        if (err) *err = e;
    }
    std::string file = dir.file("m.mrk");
};

struct XmlCase {
    const char* name;
    std::string body;
    std::vector<bool> flags;  // hasX, hasY, hasZ, hasValue
    std::vector<double> x;
    std::vector<bool> active;
    std::vector<int> numbers;
};

void PrintTo(const XmlCase& c, std::ostream* os) { *os << c.name; }

class XmlMarkerCases : public XmlMarkers, public ::testing::WithParamInterface<XmlCase> {};

TEST_P(XmlMarkerCases, FollowTheCountsAndLookups) {
    const XmlCase& c = GetParam();
    markers s = read(document(c.body));
    EXPECT_EQ(s.name, "P");
    EXPECT_EQ((std::vector<bool>{s.hasX, s.hasY, s.hasZ, s.hasValue}), c.flags);
    std::vector<double> x;
    std::vector<bool> active;
    std::vector<int> numbers;
    for (const marker& m : s.list) x.push_back(m.x), active.push_back(m.active), numbers.push_back(m.number);
    EXPECT_EQ(x, c.x);
    EXPECT_EQ(active, c.active);
    EXPECT_EQ(numbers, c.numbers);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, XmlMarkerCases,
    ::testing::Values(
        XmlCase{"noNodesNumber", function("x", "1 2"), {false, true, true, true}, {}, {}, {}},
        XmlCase{"zeroAndNoFunctions", "<NodesNumber>0</NodesNumber>", {true, true, true, true}, {}, {}, {}},
        XmlCase{"longAndShortLists", "<NodesNumber>2</NodesNumber>" + function("x", "1 2 3") + function("y", "4"),
                {false, false, false, false}, {0, 0}, {true, true}, {1, 2}},
        XmlCase{"activeWrongCount", "<NodesNumber>2</NodesNumber>" + function("x", "1 2") + function("active", "0"),
                {true, false, false, false}, {1, 2}, {true, true}, {1, 2}},
        XmlCase{"firstMatchingElementCounts",
                "<!-- c --><Note id=\"x\">9</Note><NodesNumber id=\"q\">2</NodesNumber><NodesNumber>1</NodesNumber>"
                "<Function>5 5</Function>" + function("x", "1 2") + function("x", "3 4") + function("id", "5 6 7") +
                    function("id", "8 9"),
                {true, false, false, false}, {1, 2}, {true, true}, {1, 2}},
        XmlCase{"tokensReadAsAStreamDoes",
                "<NodesNumber> 4abc </NodesNumber>" + function("x", "\n1.5e1x\tword -2 .5 ") +
                    function("active", "0 2 no 1") + function("id", "7 x 3.9 99999999999"),
                {true, false, false, false}, {15, 0, -2, 0.5}, {false, true, true, true}, {7, 2, 3, 4}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(XmlMarkers, AWarningIsShownAndTheMarkersAreStillRead) {
    std::string err;
    markers s = read(document("<NodesNumber>2</NodesNumber>\n" + function("x", "1 2") + function("f", "3 4"),
                              kRepeatedAttribute),
                     &err);
    const std::string message = "attribute 'id' has already been declared for element 'Function'";
    EXPECT_EQ(messages(), std::vector<std::string>{"Warning at file \"" + file + "\"\nline 7\ncolumn 22\nMessage: " +
                                                   message});
    EXPECT_EQ(err, "Warning at file \"" + file + "\", line 7, column 22\n   Message: " + message + "\n");
    ASSERT_EQ(s.count(), 2);  // the document type node is not the root
    EXPECT_TRUE(s.hasX && s.hasValue && !s.hasY && !s.hasZ);
    EXPECT_EQ(s[1].value, 4.0);
}

// Malformed or invalid files: one report from the handler, then File error.
struct BadCase {
    const char* name;
    std::string text;
    const char* severity;
    int line, column;
    const char* message;
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class XmlParseErrors : public XmlMarkers, public ::testing::WithParamInterface<BadCase> {};

TEST_P(XmlParseErrors, ReportThenFileError) {
    const BadCase& c = GetParam();
    std::string err;
    try {
        read(c.text, &err);
        ADD_FAILURE() << "no error";
    } catch (const arrayWorks::FileError& e) {
        EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
        EXPECT_EQ(e.line, 24);
    }
    const std::string where = std::string(c.severity) + " at file \"" + file + "\"";
    const std::string line = std::to_string(c.line), column = std::to_string(c.column);
    EXPECT_EQ(messages(), std::vector<std::string>{where + "\nline " + line + "\ncolumn " + column +
                                                   "\nMessage: " + c.message});
    EXPECT_EQ(err, where + ", line " + line + ", column " + column + "\n   Message: " + c.message + "\n");

    // Called directly, the reader's own error is the failed parse.
    markers s;
    ::testing::internal::CaptureStderr();
    int line65 = -1;
    try {
        readXmlMarkers(file, s);
    } catch (const arrayWorks::FileError& e) {
        line65 = e.line;
    }
    EXPECT_EQ(line65, 65);
    stderrText(nullptr);
    EXPECT_EQ(messages().size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, XmlParseErrors,
    ::testing::Values(
        BadCase{"unclosedTag", "<ObjectMarkers><NodesNumber>2</Nodes", "Fatal Error", 1, 32,
                "expected end of tag 'NodesNumber'"},
        BadCase{"undeclaredElement",
                "<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers EMPTY>\n]>\n"
                "<ObjectMarkers><NodesNumber>1</NodesNumber></ObjectMarkers>\n",
                "Error", 4, 28, "no declaration found for element 'NodesNumber'"},
        // Xerces leaves parts of the content model behind here; the parser's
        // memory must still all come back (LeakSanitizer checks).
        BadCase{"parameterEntityInAContentModel",
                "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers (Nod%sNumber, Function*)>\n"
                "]>\n<ObjectMarkers/>\n",
                "Fatal Error", 3, 30, "parameter entity references are not allowed inside markup in internal subset"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(XmlMarkers, HostileCountsAndEntitiesEndInFileError) {
    EXPECT_THROW(read(document("<NodesNumber>2000000000</NodesNumber>" + function("x", "1"))), arrayWorks::FileError);
    EXPECT_EQ(read(document("<NodesNumber>1000</NodesNumber>")).count(), 1000);  // values may be absent

    std::string dtd = "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers ANY>\n"
                      "<!ENTITY e0 \"1 2 3 4 5 6 7 8 9 \">\n";
    for (int i = 1; i < 10; ++i) {
        dtd += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k) dtd += "&e" + std::to_string(i - 1) + ";";
        dtd += "\">\n";
    }
    EXPECT_THROW(read(dtd + "]>\n<ObjectMarkers>&e9;</ObjectMarkers>\n"), arrayWorks::FileError);
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].rfind("Fatal Error at file \"" + file + "\"\nline 15\n", 0), 0u) << messages()[0];

    // A missing file: the parser's report of why, then File error.
    file = dir.file("none.mrk");
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(importMarkers(file, *std::make_unique<markers>(), 0), arrayWorks::FileError);
    ::testing::internal::GetCapturedStderr();
    ASSERT_EQ(messages().size(), 2u);
    EXPECT_EQ(messages()[1], "Fatal Error at file \"\"\nline 0\ncolumn 0\nMessage: unable to open primary document "
                             "entity '" + file + "'");
}

TEST(MarkersCli, PrintsTheSetAsJsonAndFailsWithTheReportersText) {
    testutil::ScratchDir dir;
    testutil::writeFile(dir.file("m.mrk"), document("<NodesNumber>2</NodesNumber>\n" + function("x", "0.1 0.2") +
                                                    function("y", "1 2") + function("z", "0 0") +
                                                    function("f", "-0.5 0.3") + function("active", "1 0") +
                                                    function("id", "11 12")));
    testutil::CliRun r = testutil::runCli("markers --json " + dir.file("m.mrk"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out,
              "{\"name\": \"\", \"hasX\": true, \"hasY\": true, \"hasZ\": true, \"hasValue\": true, \"markers\": ["
              "{\"number\": 11, \"x\": 0.1, \"y\": 1, \"z\": 0, \"value\": -0.5, \"active\": true}, "
              "{\"number\": 12, \"x\": 0.2, \"y\": 2, \"z\": 0, \"value\": 0.3, \"active\": false}]}\n");

    testutil::writeFile(dir.file("bad.mrk"), "<ObjectMarkers>");
    r = testutil::runCli("markers " + dir.file("bad.mrk"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Fatal Error at file \"" + dir.file("bad.mrk") + "\"\nline 1\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("File error!"), std::string::npos) << r.out;
    EXPECT_EQ(testutil::runCli("markers " + dir.file("m.MRK")).status, 1);
}
