// The Xerces-C DOM parser behind readXmlMarkers, and the parse error reporter
// that shows every problem to the user. Internal: never installed.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <xercesc/sax/ErrorHandler.hpp>

#include "api/IOdom.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
class MemoryManager;
class SecurityManager;
class XercesDOMParser;
class XMLEntityResolver;
XERCES_CPP_NAMESPACE_END

// readXmlMarkers from a whole file's text; `source` names the file it came
// from in the messages of parse problems.
void readXmlMarkersText(std::string_view text, const std::string& source, markers& set);
// Ends the read of an XML marker file that cannot be loaded: a file that may
// be a regular one is handed to the parser, whose reporter shows why it
// cannot be read; then arrayWorks::FileError (IOdom, 65).
[[noreturn]] void xmlMarkerFileUnreadable(const std::string& file);

// Shows every parse problem in a message box ("Warning", "Error" or "Fatal
// Error" at file, line, column and message) and writes it to standard error.
// Warnings let the parse go on; errors and fatal errors end it by throwing
// the exception on.
class XmlErrorReporter : public xercesc::ErrorHandler {
public:
    void warning(const xercesc::SAXParseException& e) override;
    void error(const xercesc::SAXParseException& e) override;
    void fatalError(const xercesc::SAXParseException& e) override;
    void resetErrors() override;
};

// Holds the DOM parser (automatic validation, no namespaces, entity
// references expanded, ignorable whitespace dropped, at most 100 entity
// expansions so that nested entities can't blow up) and its reporter. The
// nodes that open() yields belong to the parser and live as long as it.
class DomDocumentReader {
public:
    DomDocumentReader();
    ~DomDocumentReader();
    DomDocumentReader(const DomDocumentReader&) = delete;
    DomDocumentReader& operator=(const DomDocumentReader&) = delete;

    // Parses `file` and gives the first top-level node named `root` (nullptr
    // when there is none). Throws arrayWorks::FileError when the parse fails.
    const xercesc::DOMNode* open(const std::string& file, const std::string& root);
    // The same for a file's text already in memory; `source` names the file.
    const xercesc::DOMNode* openText(std::string_view text, const std::string& source, const std::string& root);

private:
    std::unique_ptr<xercesc::MemoryManager> memory_;  // the parser's; outlives it
    std::unique_ptr<xercesc::SecurityManager> security_;
    std::unique_ptr<xercesc::XercesDOMParser> parser_;
    std::unique_ptr<XmlErrorReporter> reporter_;
    std::unique_ptr<xercesc::XMLEntityResolver> resolver_;  // external entities: local regular files only
};
