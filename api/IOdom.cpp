#include "api/detail/xml_dom.h"

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/XMLEntityResolver.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLString.hpp>

#include "api/detail/text.h"
#include "api/host.h"

using arrayWorks::FileError;
using xercesc::DOMNode;
using xercesc::XMLString;
namespace src = arrayWorks::source;

namespace {

// The XML platform is initialised on first use and terminated when the
// library is unloaded (or the process ends), once.
struct XmlPlatform {
    XmlPlatform() { xercesc::XMLPlatformUtils::Initialize(); }
    ~XmlPlatform() { xercesc::XMLPlatformUtils::Terminate(); }
    XmlPlatform(const XmlPlatform&) = delete;
    XmlPlatform& operator=(const XmlPlatform&) = delete;
};

void ensurePlatform() { static XmlPlatform platform; }

// The memory of one parser. Xerces leaves a few blocks behind on some
// malformed grammars (a fatal error in the middle of a content model, say);
// whatever is still held when the parser is gone is released here.
class ParserMemory : public xercesc::MemoryManager {
public:
    ParserMemory() = default;
    ~ParserMemory() override {
        for (void* p : blocks_) ::operator delete(p);
    }
    ParserMemory(const ParserMemory&) = delete;
    ParserMemory& operator=(const ParserMemory&) = delete;

    xercesc::MemoryManager* getExceptionMemoryManager() override { return xercesc::XMLPlatformUtils::fgMemoryManager; }

    void* allocate(XMLSize_t size) override {
        void* p = ::operator new(size);
        try {
            blocks_.insert(p);
        } catch (...) {
            ::operator delete(p);
            throw xercesc::OutOfMemoryException();
        }
        return p;
    }

    void deallocate(void* p) override {
        if (p == nullptr) return;
        blocks_.erase(p);
        ::operator delete(p);
    }

private:
    std::unordered_set<void*> blocks_;
};

// A text in the parser's character type.
class XmlText {
public:
    explicit XmlText(const std::string& s) : text_(XMLString::transcode(s.c_str())) {}
    ~XmlText() { XMLString::release(&text_); }
    XmlText(const XmlText&) = delete;
    XmlText& operator=(const XmlText&) = delete;
    const XMLCh* get() const noexcept { return text_; }

private:
    XMLCh* text_;
};

// A parser text in the local 8-bit code page ("" for none).
std::string localText(const XMLCh* s) {
    if (s == nullptr) return {};
    char* c = XMLString::transcode(s);
    std::string r = c != nullptr ? c : "";
    XMLString::release(&c);
    return r;
}

void report(const char* severity, const xercesc::SAXParseException& e) {
    const std::string file = localText(e.getSystemId());
    const std::string message = localText(e.getMessage());
    const auto line = static_cast<std::uint64_t>(e.getLineNumber());
    const auto column = static_cast<std::uint64_t>(e.getColumnNumber());

    std::ostringstream box;
    box << severity << " at file \"" << file << "\"\nline " << line << "\ncolumn " << column
        << "\nMessage: " << message;
    tundrel::showMessage(box.str());

    std::cerr << severity << " at file \"" << file << "\", line " << line << ", column " << column
              << "\n   Message: " << message << std::endl;
}

// Whether a system id names a regular file, or may: one that isn't there is
// left to the parser, which reports it.
bool mayBeRegularFile(const std::string& path) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    return ec || !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

// External DTDs and entities come from local regular files only: a named pipe
// would keep the parser waiting, and a marker file has no business reaching
// out to the network. Anything else ends the parse.
class LocalFilesOnly : public xercesc::XMLEntityResolver {
public:
    xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* id) override {
        const XMLCh* system = id->getSystemId();
        if (system == nullptr || *system == 0) return nullptr;
        const std::string text = localText(system);
        const std::size_t colon = text.find(':');
        const std::size_t slash = text.find('/');
        if (colon != std::string::npos && (slash == std::string::npos || colon < slash))
            throw FileError(src::IOdom, 65);  // a URL
        const XMLCh* base = id->getBaseURI();
        auto source = base != nullptr && *base != 0 ? std::make_unique<xercesc::LocalFileInputSource>(base, system)
                                                    : std::make_unique<xercesc::LocalFileInputSource>(system);
        if (!mayBeRegularFile(localText(source->getSystemId()))) throw FileError(src::IOdom, 65);
        return source.release();
    }
};

// The first child of `parent` named `name` and, when `id` is not empty, with
// the attribute "id" equal to `id`.
const DOMNode* findChild(const DOMNode* parent, const XMLCh* name, const XMLCh* id) {
    if (parent == nullptr) return nullptr;
    static const XMLCh kId[] = {'i', 'd', 0};
    for (const DOMNode* n = parent->getFirstChild(); n != nullptr; n = n->getNextSibling()) {
        if (!XMLString::equals(n->getNodeName(), name)) continue;
        if (XMLString::stringLen(id) == 0) return n;
        const xercesc::DOMNamedNodeMap* attributes = n->getAttributes();
        const DOMNode* a = attributes != nullptr ? attributes->getNamedItem(kId) : nullptr;
        if (a != nullptr && XMLString::equals(a->getNodeValue(), id)) return n;
    }
    return nullptr;
}

// The text of an element: the value of its first child.
std::string elementText(const DOMNode* element) {
    if (element == nullptr || element->getFirstChild() == nullptr) return {};
    return localText(element->getFirstChild()->getNodeValue());
}

std::vector<std::string_view> splitTokens(std::string_view text) {
    std::vector<std::string_view> tokens;
    tundrel::text::Scanner in(text);
    std::string_view word;
    while (in.readWord(word)) tokens.push_back(word);
    return tokens;
}

// Tokens are read as a stream reads numbers: the leading number counts and
// anything after it is ignored; `fallback` when there is none.
double tokenDouble(std::string_view token, double fallback) {
    double v = 0.0;
    tundrel::text::Scanner in(token);
    return in.readDouble(v) ? v : fallback;
}

std::int32_t tokenInt(std::string_view token, std::int32_t fallback) {
    std::int32_t v = 0;
    tundrel::text::Scanner in(token);
    return in.readInt(v) ? v : fallback;
}

// A bool as a stream reads one: 0 is false, 1 true; anything else is true.
bool tokenBool(std::string_view token) { return tokenInt(token, 1) != 0; }

// The most markers a file may declare: its size in bytes, but at least 65536
// (a small file may list markers without values, which all come out zero).
std::int64_t markerLimit(std::string_view text) {
    return std::max<std::int64_t>(static_cast<std::int64_t>(text.size()), 65536);
}

}  // namespace

void XmlErrorReporter::warning(const xercesc::SAXParseException& e) { report("Warning", e); }

void XmlErrorReporter::error(const xercesc::SAXParseException& e) {
    report("Error", e);
    throw e;
}

void XmlErrorReporter::fatalError(const xercesc::SAXParseException& e) {
    report("Fatal Error", e);
    throw e;
}

void XmlErrorReporter::resetErrors() {}

DomDocumentReader::DomDocumentReader() {
    try {
        ensurePlatform();
        memory_ = std::make_unique<ParserMemory>();
        security_ = std::make_unique<xercesc::SecurityManager>();
        parser_ = std::make_unique<xercesc::XercesDOMParser>(nullptr, memory_.get());
    } catch (...) {
        throw FileError(src::IOdom, 65);
    }
    reporter_ = std::make_unique<XmlErrorReporter>();
    parser_->setValidationScheme(xercesc::XercesDOMParser::Val_Auto);
    parser_->setDoNamespaces(false);
    parser_->setErrorHandler(reporter_.get());
    resolver_ = std::make_unique<LocalFilesOnly>();
    parser_->setXMLEntityResolver(resolver_.get());
    // Marker files have no use for entities; a low limit keeps what nested
    // or repeated entities can expand to within a hundred times the file.
    security_->setEntityExpansionLimit(100);
    parser_->setSecurityManager(security_.get());
}

DomDocumentReader::~DomDocumentReader() = default;

const DOMNode* DomDocumentReader::open(const std::string& file, const std::string& root) {
    // Only regular files are loaded: a named pipe without a writer would keep
    // the reader waiting. A file that may be regular but cannot be loaded
    // (missing, unreadable) goes to the parser by name, which reports why.
    if (!mayBeRegularFile(file)) throw FileError(src::IOdom, 65);
    std::string text;
    if (tundrel::text::loadFile(file, text)) return openText(text, file, root);
    try {
        parser_->parse(file.c_str());
    } catch (...) {
    }
    throw FileError(src::IOdom, 65);
}

const DOMNode* DomDocumentReader::openText(std::string_view text, const std::string& source, const std::string& root) {
    parser_->setCreateEntityReferenceNodes(false);
    parser_->setIncludeIgnorableWhitespace(false);
    try {
        // The text is named as the parser names a local file (its full path),
        // which the messages show and relative entity paths start from.
        xercesc::MemBufInputSource input(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "",
                                         false, memory_.get());
        if (!source.empty()) {
            const xercesc::LocalFileInputSource named(XmlText(source).get(), memory_.get());
            input.setSystemId(named.getSystemId());
        }
        parser_->parse(input);
    } catch (...) {
        throw FileError(src::IOdom, 65);
    }
    const xercesc::DOMDocument* doc = parser_->getDocument();
    if (doc == nullptr || doc->getNodeType() != DOMNode::DOCUMENT_NODE) throw FileError(src::IOdom, 69);
    // The document type node carries the root's name too; the root is the
    // element.
    const XmlText name(root);
    for (const DOMNode* n = doc->getFirstChild(); n != nullptr; n = n->getNextSibling())
        if (n->getNodeType() == DOMNode::ELEMENT_NODE && XMLString::equals(n->getNodeName(), name.get())) return n;
    return nullptr;
}

void readXmlMarkers(const std::string& file, markers& set) {
    std::string text;
    if (!tundrel::text::loadFile(file, text)) xmlMarkerFileUnreadable(file);
    readXmlMarkersText(text, file, set);
}

void xmlMarkerFileUnreadable(const std::string& file) {
    DomDocumentReader reader;
    reader.open(file, "ObjectMarkers");
    throw FileError(src::IOdom, 65);  // loaded after all: still not this read's text
}

void readXmlMarkersText(std::string_view text, const std::string& source, markers& set) {
    DomDocumentReader reader;
    const DOMNode* root = reader.openText(text, source, "ObjectMarkers");
    const XmlText function("Function");
    const XmlText none("");

    const DOMNode* count = findChild(root, XmlText("NodesNumber").get(), none.get());
    const std::int32_t n = count != nullptr ? tokenInt(elementText(count), 0) : 0;
    if (n > markerLimit(text)) throw FileError(src::IOdom, __LINE__);

    set.list.clear();
    if (n > 0) set.list.reserve(static_cast<std::size_t>(n));
    for (std::int32_t i = 0; i < n; ++i) {
        marker m;
        m.number = i + 1;
        addMarker(set, m);
    }

    // The tokens of one function; `matches` when there are exactly n of them
    // (an absent element has none).
    std::string values;
    std::vector<std::string_view> tokens;
    auto load = [&](const char* id) {
        values = elementText(findChild(root, function.get(), XmlText(id).get()));
        tokens = splitTokens(values);
        return n >= 0 && tokens.size() == static_cast<std::size_t>(n);
    };

    struct Coordinate {
        const char* id;
        bool markers::*flag;
        double marker::*field;
    };
    static constexpr Coordinate kCoordinates[] = {{"x", &markers::hasX, &marker::x},
                                                  {"y", &markers::hasY, &marker::y},
                                                  {"z", &markers::hasZ, &marker::z},
                                                  {"f", &markers::hasValue, &marker::value}};
    for (const Coordinate& c : kCoordinates) {
        const bool matches = load(c.id);
        set.*c.flag = matches;
        if (!matches) continue;
        for (std::size_t i = 0; i < tokens.size(); ++i) set.list[i].*c.field = tokenDouble(tokens[i], 0.0);
    }

    const bool activeMatches = load("active");
    for (std::size_t i = 0; i < set.list.size(); ++i)
        set.list[i].active = activeMatches ? tokenBool(tokens[i]) : true;

    if (load("id"))
        for (std::size_t i = 0; i < tokens.size(); ++i)
            set.list[i].number = tokenInt(tokens[i], static_cast<std::int32_t>(i + 1));
}
