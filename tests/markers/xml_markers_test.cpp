// XML marker files ("mrk") parsed by Xerces-C from files on disk, and the
// reports of the parse-error handler.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <xercesc/dom/DOMNode.hpp>

#include "api/TundrelApi.h"
#include "tests/test_util.h"

using testutil::HostTest;

namespace {

std::string function(const char* id, const char* values) {
    return std::string("<Function id=\"") + id + "\">" + values + "</Function>\n";
}

std::string document(const std::string& body, const std::string& prolog = "<?xml version=\"1.0\"?>\n") {
    return prolog + "<ObjectMarkers>\n" + body + "</ObjectMarkers>\n";
}

const std::string kTwoMarkers = document("<NodesNumber>2</NodesNumber>\n" + function("x", "0.1 0.2") +
                                         function("y", "1 2") + function("z", "0 0") + function("f", "-0.5 0.3") +
                                         function("active", "1 0") + function("id", "11 12"));

// A grammar that the document keeps, with one attribute declared twice: a
// warning under automatic validation, not an error.
const char* kDoctypeWithRepeatedAttribute =
    "<?xml version=\"1.0\"?>\n"
    "<!DOCTYPE ObjectMarkers [\n"
    "<!ELEMENT ObjectMarkers (NodesNumber, Function*)>\n"
    "<!ELEMENT NodesNumber (#PCDATA)>\n"
    "<!ELEMENT Function (#PCDATA)>\n"
    "<!ATTLIST Function id CDATA #REQUIRED>\n"
    "<!ATTLIST Function id CDATA #IMPLIED>\n"
    "]>\n";

}  // namespace

class XmlMarkers : public HostTest {
protected:
    markers read(const std::string& text, const char* name = "m.mrk") {
        const std::string file = dir.file(name);
        testutil::writeFile(file, text);
        markers s;
        s.name = "P";
        importMarkers(file, s, 0);
        return s;
    }
};

TEST_F(XmlMarkers, ReadsEveryFunctionOfAValidFile) {
    markers s = read(kTwoMarkers);
    EXPECT_EQ(s.name, "P");  // left alone
    EXPECT_TRUE(s.hasX && s.hasY && s.hasZ && s.hasValue);
    ASSERT_EQ(s.count(), 2);
    EXPECT_EQ(s[0].x, 0.1);
    EXPECT_EQ(s[1].x, 0.2);
    EXPECT_EQ(s[1].y, 2.0);
    EXPECT_EQ(s[0].value, -0.5);
    EXPECT_EQ(s[1].value, 0.3);
    EXPECT_TRUE(s[0].active);
    EXPECT_FALSE(s[1].active);
    EXPECT_EQ(s[0].number, 11);
    EXPECT_EQ(s[1].number, 12);
    EXPECT_TRUE(messages().empty());
}

// Token counts, presence flags and token reading.
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
    EXPECT_EQ((std::vector<bool>{s.hasX, s.hasY, s.hasZ, s.hasValue}), c.flags);
    std::vector<double> x;
    std::vector<bool> active;
    std::vector<int> numbers;
    for (const marker& m : s.list) {
        x.push_back(m.x);
        active.push_back(m.active);
        numbers.push_back(m.number);
    }
    EXPECT_EQ(x, c.x);
    EXPECT_EQ(active, c.active);
    EXPECT_EQ(numbers, c.numbers);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, XmlMarkerCases,
    ::testing::Values(
        XmlCase{"noNodesNumber", function("x", "1 2"), {false, true, true, true}, {}, {}, {}},
        XmlCase{"zeroAndNoFunctions", "<NodesNumber>0</NodesNumber>", {true, true, true, true}, {}, {}, {}},
        XmlCase{"longList", "<NodesNumber>2</NodesNumber>" + function("x", "1 2 3") + function("y", "4 5"),
                {false, true, false, false}, {0, 0}, {true, true}, {1, 2}},
        XmlCase{"shortList", "<NodesNumber>3</NodesNumber>" + function("x", "1 2"), {false, false, false, false},
                {0, 0, 0}, {true, true, true}, {1, 2, 3}},
        XmlCase{"activeWrongCount", "<NodesNumber>2</NodesNumber>" + function("x", "1 2") + function("active", "0"),
                {true, false, false, false}, {1, 2}, {true, true}, {1, 2}},
        XmlCase{"firstOfEachIdCounts",
                "<NodesNumber>2</NodesNumber>" + function("x", "1 2") + function("x", "3 4") + function("id", "5 6 7") +
                    function("id", "8 9"),
                {true, false, false, false}, {1, 2}, {true, true}, {1, 2}},
        XmlCase{"firstNodesNumberCounts", "<NodesNumber>1</NodesNumber><NodesNumber>2</NodesNumber>" + function("x", "7"),
                {true, false, false, false}, {7}, {true}, {1}},
        XmlCase{"attributesOfNodesNumberIgnored", "<NodesNumber id=\"q\">1</NodesNumber>" + function("x", "7"),
                {true, false, false, false}, {7}, {true}, {1}},
        XmlCase{"otherElementsAndCommentsSkipped",
                "<!-- c --><Note id=\"x\">9</Note><NodesNumber>1</NodesNumber><Function>5</Function>" +
                    function("x", "7"),
                {true, false, false, false}, {7}, {true}, {1}},
        XmlCase{"tokensReadAsAStreamDoes",
                "<NodesNumber> 4abc </NodesNumber>" + function("x", "1.5e1x word -2 .5") +
                    function("active", "0 2 no 1") + function("id", "7 x 3.9 99999999999"),
                {true, false, false, false}, {15, 0, -2, 0.5}, {false, true, true, true}, {7, 2, 3, 4}},
        XmlCase{"whitespaceIsFree", "<NodesNumber>2</NodesNumber>" + function("x", "\n\t1\n\n  2\t"),
                {true, false, false, false}, {1, 2}, {true, true}, {1, 2}},
        XmlCase{"entitiesExpanded", "<NodesNumber>2</NodesNumber>" + function("x", "1&#32;&#x32;"),
                {true, false, false, false}, {1, 2}, {true, true}, {1, 2}},
        XmlCase{"cdataText", "<NodesNumber>2</NodesNumber>" + function("x", "<![CDATA[3 4]]>"),
                {true, false, false, false}, {3, 4}, {true, true}, {1, 2}},
        XmlCase{"negativeCount", "<NodesNumber>-2</NodesNumber>", {false, false, false, false}, {}, {}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(XmlMarkers, ARootOfAnotherNameGivesAnEmptySet) {
    markers s = read("<Other><NodesNumber>2</NodesNumber></Other>");
    EXPECT_EQ(s.count(), 0);
    EXPECT_TRUE(s.hasX && s.hasY && s.hasZ && s.hasValue);
}

TEST_F(XmlMarkers, AWarningIsShownAndTheMarkersAreStillRead) {
    const std::string file = dir.file("w.mrk");
    testutil::writeFile(file, document("<NodesNumber>2</NodesNumber>\n" + function("x", "1 2") + function("f", "3 4"),
                                       kDoctypeWithRepeatedAttribute));
    markers s;
    ::testing::internal::CaptureStderr();
    importMarkers(file, s, 0);
    const std::string err = ::testing::internal::GetCapturedStderr();

    ASSERT_EQ(messages().size(), 1u);
    const std::string expectedBox = "Warning at file \"" + file +
                                    "\"\nline 7\ncolumn 22\n"
                                    "Message: attribute 'id' has already been declared for element 'Function'";
    EXPECT_EQ(messages()[0], expectedBox);
    EXPECT_EQ(err, "Warning at file \"" + file +
                       "\", line 7, column 22\n   Message: attribute 'id' has already been declared for element "
                       "'Function'\n");
    ASSERT_EQ(s.count(), 2);
    EXPECT_TRUE(s.hasX && s.hasValue);
    EXPECT_FALSE(s.hasY || s.hasZ);
    EXPECT_EQ(s[1].value, 4.0);
}

// Malformed or invalid files: one report from the handler, then File error.
struct BadCase {
    const char* name;
    std::string text;
    const char* severity;
    int line;
    int column;
    const char* message;
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class XmlParseErrors : public XmlMarkers, public ::testing::WithParamInterface<BadCase> {};

TEST_P(XmlParseErrors, ReportThenFileError) {
    const BadCase& c = GetParam();
    const std::string file = dir.file("bad.mrk");
    testutil::writeFile(file, c.text);
    markers s;
    addMarker(s, marker{});

    ::testing::internal::CaptureStderr();
    try {
        importMarkers(file, s, 0);
        ADD_FAILURE() << "no error";
    } catch (const arrayWorks::FileError& e) {
        EXPECT_STREQ(e.message, "File error!");
        EXPECT_EQ(e.line, 24);
        EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
    }
    const std::string err = ::testing::internal::GetCapturedStderr();
    const std::string where = std::string(c.severity) + " at file \"" + file + "\"";
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0], where + "\nline " + std::to_string(c.line) + "\ncolumn " + std::to_string(c.column) +
                                 "\nMessage: " + c.message);
    EXPECT_EQ(err, where + ", line " + std::to_string(c.line) + ", column " + std::to_string(c.column) +
                       "\n   Message: " + c.message + "\n");
    EXPECT_EQ(s.count(), 1);  // the set is untouched

    // Called directly, the reader's own error is the parse failure.
    host.messages.clear();
    ::testing::internal::CaptureStderr();
    try {
        readXmlMarkers(file, s);
        ADD_FAILURE() << "no error";
    } catch (const arrayWorks::FileError& e) {
        EXPECT_EQ(e.line, 65);
        EXPECT_STREQ(e.file, arrayWorks::source::IOdom);
    }
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(messages().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, XmlParseErrors,
    ::testing::Values(
        BadCase{"unclosedTag", "<ObjectMarkers><NodesNumber>2</Nodes", "Fatal Error", 1, 32,
                "expected end of tag 'NodesNumber'"},
        BadCase{"empty", "", "Fatal Error", 1, 1, "invalid document structure"},
        BadCase{"secondRoot", "<ObjectMarkers/>\n<ObjectMarkers/>\n", "Fatal Error", 2, 1,
                "comment or processing instruction expected"},
        BadCase{"undeclaredElement",
                std::string(kDoctypeWithRepeatedAttribute).substr(0, 22) +
                    "<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers EMPTY>\n]>\n"
                    "<ObjectMarkers><NodesNumber>1</NodesNumber></ObjectMarkers>\n",
                "Error", 5, 28, "no declaration found for element 'NodesNumber'"},
        // Xerces leaves parts of the content model behind here; the parser's
        // memory must still all come back (LeakSanitizer checks).
        BadCase{"parameterEntityInAContentModel",
                "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers (Nod%sNumber, Function*)>\n"
                "]>\n<ObjectMarkers/>\n",
                "Fatal Error", 3, 30, "parameter entity references are not allowed inside markup in internal subset"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(XmlMarkers, AMissingFileIsReportedAndGivesFileError) {
    markers s;
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(importMarkers(dir.file("none.mrk"), s, 0), arrayWorks::FileError);
    const std::string err = ::testing::internal::GetCapturedStderr();
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].rfind("Fatal Error at file ", 0), 0u) << messages()[0];
    EXPECT_NE(messages()[0].find("none.mrk"), std::string::npos);
    EXPECT_EQ(err.rfind("Fatal Error at file ", 0), 0u) << err;
}

TEST_F(XmlMarkers, ACountBeyondWhatTheFileCanHoldIsRefused) {
    markers s;
    EXPECT_THROW(s = read(document("<NodesNumber>2000000000</NodesNumber>" + function("x", "1"))),
                 arrayWorks::FileError);
    // A small file may still declare markers without values.
    s = read(document("<NodesNumber>1000</NodesNumber>"));
    EXPECT_EQ(s.count(), 1000);
    EXPECT_EQ(s[999].number, 1000);
    EXPECT_FALSE(s.hasX);
}

TEST_F(XmlMarkers, NestedEntitiesEndInAFatalErrorNotInMemoryExhaustion) {
    std::string dtd = "<?xml version=\"1.0\"?>\n<!DOCTYPE ObjectMarkers [\n<!ELEMENT ObjectMarkers ANY>\n"
                      "<!ENTITY e0 \"1 2 3 4 5 6 7 8 9 \">\n";
    for (int i = 1; i < 10; ++i) {
        dtd += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k) dtd += "&e" + std::to_string(i - 1) + ";";
        dtd += "\">\n";
    }
    const std::string file = dir.file("bomb.mrk");
    testutil::writeFile(file, dtd + "]>\n<ObjectMarkers>&e9;</ObjectMarkers>\n");
    markers s;
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(importMarkers(file, s, 0), arrayWorks::FileError);
    ::testing::internal::GetCapturedStderr();
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].rfind("Fatal Error at file \"" + file + "\"\nline 15\n", 0), 0u) << messages()[0];
}

TEST_F(XmlMarkers, TheReaderFindsTheRootElementAndYieldsNodesOfTheParser) {
    const std::string file = dir.file("r.mrk");
    testutil::writeFile(file, std::string(kDoctypeWithRepeatedAttribute) + "<!-- a -->\n<ObjectMarkers><NodesNumber>0</NodesNumber></ObjectMarkers>\n");
    ::testing::internal::CaptureStderr();
    DomDocumentReader reader;
    const auto* root = reader.open(file, "ObjectMarkers");
    ::testing::internal::GetCapturedStderr();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getNodeType(), xercesc::DOMNode::ELEMENT_NODE);
    EXPECT_EQ(reader.open(file, "Other"), nullptr);  // the reader parses again
    EXPECT_EQ(messages().size(), 2u);                // one warning per parse
}

// The command line prints the set or the reporter's text.
TEST(MarkersCli, PrintsTheSetAsJsonAndFailsWithTheReportersText) {
    testutil::ScratchDir dir;
    testutil::writeFile(dir.file("m.mrk"), kTwoMarkers);
    testutil::CliRun r = testutil::runCli("markers --json " + dir.file("m.mrk"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out,
              "{\"name\": \"\", \"hasX\": true, \"hasY\": true, \"hasZ\": true, \"hasValue\": true, \"markers\": ["
              "{\"number\": 11, \"x\": 0.1, \"y\": 1, \"z\": 0, \"value\": -0.5, \"active\": true}, "
              "{\"number\": 12, \"x\": 0.2, \"y\": 2, \"z\": 0, \"value\": 0.3, \"active\": false}]}\n");

    testutil::writeFile(dir.file("m.inm"), "10 20 0 0 1\n");
    r = testutil::runCli("markers --image-height 480 " + dir.file("m.inm"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("hasX: 1  hasY: 1  hasZ: 1  hasValue: 1\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\n1 10 459 0 0 1\n"), std::string::npos) << r.out;

    testutil::writeFile(dir.file("bad.mrk"), "<ObjectMarkers>");
    r = testutil::runCli("markers " + dir.file("bad.mrk"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Fatal Error at file \"" + dir.file("bad.mrk") + "\"\nline 1\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("File error!"), std::string::npos) << r.out;

    EXPECT_EQ(testutil::runCli("markers " + dir.file("m.MRK")).status, 1);
}
