// The Xerces-C DOM parser behind readXmlMarkers, and the parse error reporter
// that shows every problem to the user. Internal: never installed.
#pragma once

#include <memory>
#include <string>

#include <xercesc/sax/ErrorHandler.hpp>

#include "api/IOdom.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
class MemoryManager;
class SecurityManager;
class XercesDOMParser;
class XMLEntityResolver;
XERCES_CPP_NAMESPACE_END

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

private:
    std::unique_ptr<xercesc::MemoryManager> memory_;  // the parser's; outlives it
    std::unique_ptr<xercesc::SecurityManager> security_;
    std::unique_ptr<xercesc::XercesDOMParser> parser_;
    std::unique_ptr<XmlErrorReporter> reporter_;
    std::unique_ptr<xercesc::XMLEntityResolver> resolver_;  // external entities: local regular files only
};
