// Typed XPath evaluation: compiled expressions, results of every XPath type, node text changes.
#include "tarnxml/XPath.h"

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlHelper.h"

#include "XPathSupport.h"

#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <boost/make_shared.hpp>

#include <memory>
#include <new>
#include <utility>

namespace tarn {

namespace {

struct ObjectDeleter {
    // The result came from a tree that is alive for the whole evaluation, so libxml2's own free
    // is right: it also frees the namespace nodes it copied into the set.
    void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
};

struct CharDeleter {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

constexpr const char* kStepLimitMessage = "XPath step limit reached";

inline std::string textOf(const xmlChar* text)
{
    return text != nullptr ? std::string(reinterpret_cast<const char*>(text)) : std::string();
}

// Takes a string libxml2 allocated for us.
std::string takeText(xmlChar* text)
{
    const std::unique_ptr<xmlChar, CharDeleter> owned(text);
    if (!owned)
        throw std::bad_alloc();
    return textOf(owned.get());
}

std::string qualifiedName(const xmlNs* ns, const xmlChar* local)
{
    std::string name;
    if (ns != nullptr && ns->prefix != nullptr) {
        name = textOf(ns->prefix);
        name += ':';
    }
    name += textOf(local);
    return name;
}

XmlNodePtr handleOn(xmlNode* node)
{
    // One allocation for the handle and its count.
    XmlNodePtr handle = boost::make_shared<XmlNode>();
    handle->Initialize(node);
    return handle;
}

struct BufferDeleter {
    void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
};

// The XPath string value of an element, document or attribute, gathered into one buffer that is
// reused for every node of a result (libxml2's own cast allocates a new string per node).
class StringValues {
public:
    StringValues() : buffer_(xmlBufferCreate())
    {
        if (!buffer_)
            throw std::bad_alloc();
    }
    std::string of(xmlNode* node)
    {
        xmlBufferEmpty(buffer_.get());
        if (xmlNodeBufGetContent(buffer_.get(), node) != 0)
            return takeText(xmlXPathCastNodeToString(node));
        return std::string(reinterpret_cast<const char*>(xmlBufferContent(buffer_.get())),
                           static_cast<std::size_t>(xmlBufferLength(buffer_.get())));
    }

private:
    std::unique_ptr<xmlBuffer, BufferDeleter> buffer_;
};

void describe(xmlNode* node, XPathNode& out, StringValues& values)
{
    switch (node->type) {
    case XML_ELEMENT_NODE:
        out.kind = XPathNode::Element;
        out.name = qualifiedName(node->ns, node->name);
        out.namespaceURI = node->ns != nullptr ? textOf(node->ns->href) : std::string();
        out.value = values.of(node);
        out.node = handleOn(node);
        out.raw = node;
        return;
    case XML_ATTRIBUTE_NODE: {
        xmlAttr* const attribute = reinterpret_cast<xmlAttr*>(node);
        out.kind = XPathNode::Attribute;
        out.name = qualifiedName(attribute->ns, attribute->name);
        out.namespaceURI = attribute->ns != nullptr ? textOf(attribute->ns->href) : std::string();
        out.value = values.of(node);
        if (attribute->parent != nullptr)
            out.node = handleOn(attribute->parent);
        out.raw = node;
        return;
    }
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
        out.kind = node->type == XML_TEXT_NODE            ? XPathNode::Text
                   : node->type == XML_CDATA_SECTION_NODE ? XPathNode::CData
                   : node->type == XML_COMMENT_NODE       ? XPathNode::Comment
                                                          : XPathNode::ProcessingInstruction;
        if (node->type == XML_PI_NODE)
            out.name = textOf(node->name);
        out.value = textOf(node->content);
        out.node = handleOn(node);
        out.raw = node;
        return;
    case XML_NAMESPACE_DECL: {
        // A copy made for this evaluation (freed with the result): only its text is kept.
        const xmlNs* const ns = reinterpret_cast<const xmlNs*>(node);
        out.kind = XPathNode::Namespace;
        out.name = textOf(ns->prefix);
        out.value = textOf(ns->href);
        return;
    }
    case XML_DOCUMENT_NODE:
    case XML_HTML_DOCUMENT_NODE:
        out.kind = XPathNode::Document;
        out.value = values.of(node);
        out.raw = node;
        return;
    default:
        out.kind = XPathNode::Other;
        out.value = takeText(xmlXPathCastNodeToString(node));
        out.raw = node;
        return;
    }
}

XPathResult failure(std::string message)
{
    XPathResult result;
    result.error = std::move(message);
    return result;
}

// XPath's string() of a number. libxml2 prints fractions with the C library under the process
// locale; a locale with a decimal comma is undone here (no other comma can appear).
std::string numberText(double number)
{
    std::string text = takeText(xmlXPathCastNumberToString(number));
    for (char& c : text)
        if (c == ',')
            c = '.';
    return text;
}

void fill(xmlXPathObject* object, XPathResult& result)
{
    switch (object->type) {
    case XPATH_NODESET: {
        result.type = XPathResult::NodeSet;
        xmlNodeSet* const set = object->nodesetval;
        if (set == nullptr || set->nodeNr == 0)
            return;
        // libxml2 hands node sets over in document order already (its compiler ends every
        // expression that yields nodes with a sort step); sorting again costs sibling walks.
        result.nodes.resize(static_cast<std::size_t>(set->nodeNr));
        StringValues values;
        for (int i = 0; i < set->nodeNr; ++i)
            describe(set->nodeTab[i], result.nodes[static_cast<std::size_t>(i)], values);
        result.string = result.nodes.front().value;
        return;
    }
    case XPATH_BOOLEAN:
        result.type = XPathResult::Boolean;
        result.boolean = object->boolval != 0;
        result.string = result.boolean ? "true" : "false";
        return;
    case XPATH_NUMBER:
        result.type = XPathResult::Number;
        result.number = object->floatval;
        result.string = numberText(object->floatval);
        return;
    case XPATH_STRING:
        result.type = XPathResult::String;
        result.string = textOf(object->stringval);
        return;
    default:
        result.error = "XPath result of an unsupported type";
        return;
    }
}

} // namespace

XPathExpression::XPathExpression(const std::string& expression) : compiled(nullptr)
{
    libXMLStartup();
    // Compiled without namespaces: prefixes stay names to resolve at each evaluation (libxml2
    // would otherwise bake the compile-time bindings into its streaming form of the path).
    detail::XPathCall call(nullptr, nullptr);
    compiled = xmlXPathCtxtCompile(call.get(), reinterpret_cast<const xmlChar*>(expression.c_str()));
    if (compiled == nullptr)
        message = call.message("Invalid expression");
}

XPathExpression::~XPathExpression()
{
    if (compiled != nullptr)
        xmlXPathFreeCompExpr(compiled);
}

XPathExpression::XPathExpression(XPathExpression&& other) noexcept
    : compiled(other.compiled), message(std::move(other.message))
{
    other.compiled = nullptr;
    other.message = "XPath expression was moved";
}

XPathExpression& XPathExpression::operator=(XPathExpression&& other) noexcept
{
    if (this != &other) {
        if (compiled != nullptr)
            xmlXPathFreeCompExpr(compiled);
        compiled = other.compiled;
        message = std::move(other.message);
        other.compiled = nullptr;
        other.message = "XPath expression was moved";
    }
    return *this;
}

bool XPathExpression::valid() const noexcept { return compiled != nullptr; }

const std::string& XPathExpression::error() const noexcept { return message; }

XPathResult XPathExpression::Evaluate(const XmlDocument& document, const XPathOptions& options) const
{
    if (document.doc == nullptr)
        return compiled == nullptr ? failure(message) : failure("no document loaded");
    return run(document.doc, nullptr, options);
}

XPathResult XPathExpression::Evaluate(const XmlNode& context, const XPathOptions& options) const
{
    xmlNode* const node = context.getlibXML2Node();
    if (node == nullptr)
        return compiled == nullptr ? failure(message) : failure("no node");
    return run(node->doc, node, options);
}

XPathResult XPathExpression::run(_xmlDoc* document, _xmlNode* node, const XPathOptions& options) const
{
    if (compiled == nullptr)
        return failure(message);
    detail::XPathCall call(document, node);
    if (!call.bind(options.namespaces))
        return failure(call.error);
    call.limit(options.maxSteps != 0 ? options.maxSteps : kDefaultXPathMaxSteps);
    const std::unique_ptr<xmlXPathObject, ObjectDeleter> object(xmlXPathCompiledEval(compiled, call.get()));
    if (!object) {
        XPathResult result;
        if (call.code == XPATH_OP_LIMIT_EXCEEDED) {
            result.stepLimitReached = true;
            result.error = kStepLimitMessage;
        } else {
            result.error = call.message("XPath evaluation failed");
        }
        return result;
    }
    XPathResult result;
    fill(object.get(), result);
    return result;
}

XPathResult EvaluateXPath(const XmlDocument& document, const std::string& expression, const XPathOptions& options)
{
    return XPathExpression(expression).Evaluate(document, options);
}

int SetNodeText(const XPathNode& target, const std::string& text)
{
    xmlNode* const node = target.raw;
    if (node == nullptr)
        return -1;
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(text, scratch);
    const std::string value(clean.data, clean.size);
    const xmlChar* const content = reinterpret_cast<const xmlChar*>(value.c_str());
    switch (node->type) {
    case XML_ELEMENT_NODE: {
        xmlNode* replacement = nullptr;
        if (!value.empty()) {
            replacement = xmlNewDocTextLen(node->doc, content, static_cast<int>(value.size()));
            if (replacement == nullptr)
                throw std::bad_alloc();
        }
        xmlNode* children = node->children;
        node->children = nullptr;
        node->last = nullptr;
        for (xmlNode* child = children; child != nullptr; child = child->next)
            child->parent = nullptr;
        xmlFreeNodeList(children);
        if (replacement != nullptr)
            xmlAddChild(node, replacement);
        return 0;
    }
    case XML_ATTRIBUTE_NODE: {
        xmlAttr* const attribute = reinterpret_cast<xmlAttr*>(node);
        if (attribute->parent == nullptr)
            return -1;
        return xmlSetNsProp(attribute->parent, attribute->ns, attribute->name, content) != nullptr ? 0 : -1;
    }
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
        xmlNodeSetContent(node, content);
        return 0;
    default:
        return -1;
    }
}

} // namespace tarn
