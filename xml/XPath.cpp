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

constexpr std::size_t kPrefetchDistance = 8;

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

// qualifiedName into `name` (empty before), without a temporary for the common unprefixed name.
void setQualifiedName(std::string& name, const xmlNs* ns, const xmlChar* local)
{
    if (ns != nullptr && ns->prefix != nullptr)
        name = qualifiedName(ns, local);
    else if (local != nullptr)
        name.assign(reinterpret_cast<const char*>(local));
}

// The handles of one node set, made in one allocation: every handle shares that block's count
// (boost's aliasing constructor), so a result of a few hundred thousand nodes costs one
// allocation and one free for its handles instead of one each.
class Handles {
public:
    explicit Handles(std::size_t count) : block_(boost::make_shared<XmlNode[]>(count)), next_(0) {}
    XmlNodePtr on(xmlNode* node)
    {
        XmlNode* const handle = &block_[next_++];
        handle->Initialize(node);
        return XmlNodePtr(block_, handle);
    }

private:
    boost::shared_ptr<XmlNode[]> block_;
    std::size_t next_;
};

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
        if (node->type == XML_ELEMENT_NODE) {
            text_.clear();
            if (elementText(node, text_))
                return text_;
        }
        xmlBufferEmpty(buffer_.get());
        if (xmlNodeBufGetContent(buffer_.get(), node) != 0)
            return takeText(xmlXPathCastNodeToString(node));
        return std::string(reinterpret_cast<const char*>(xmlBufferContent(buffer_.get())),
                           static_cast<std::size_t>(xmlBufferLength(buffer_.get())));
    }

private:
    // The text and CDATA content below `element` in document order, walked in the order and
    // with the descent rule of libxml2's xmlBufGetNodeContent, without its per-text length and
    // growth checks. False when an entity reference is met: those are left to libxml2, which
    // looks up the declaration and walks its replacement.
    static bool elementText(const xmlNode* element, std::string& out)
    {
        const xmlNode* node = element->children;
        while (node != nullptr) {
            if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
                if (node->content != nullptr)
                    out.append(reinterpret_cast<const char*>(node->content));
            } else if (node->type == XML_ENTITY_REF_NODE) {
                return false;
            }
            if (node->children != nullptr && node->children->type != XML_ENTITY_DECL) {
                node = node->children;
                continue;
            }
            while (node->next == nullptr) {
                node = node->parent;
                if (node == element || node == nullptr)
                    return true;
            }
            node = node->next;
        }
        return true;
    }

    std::unique_ptr<xmlBuffer, BufferDeleter> buffer_;
    std::string text_;
};

void describe(xmlNode* node, XPathNode& out, StringValues& values, Handles& handles)
{
    switch (node->type) {
    case XML_ELEMENT_NODE:
        out.kind = XPathNode::Element;
        setQualifiedName(out.name, node->ns, node->name);
        if (node->ns != nullptr && node->ns->href != nullptr)
            out.namespaceURI.assign(reinterpret_cast<const char*>(node->ns->href));
        out.value = values.of(node);
        out.node = handles.on(node);
        out.raw = node;
        return;
    case XML_ATTRIBUTE_NODE: {
        xmlAttr* const attribute = reinterpret_cast<xmlAttr*>(node);
        out.kind = XPathNode::Attribute;
        out.name = qualifiedName(attribute->ns, attribute->name);
        out.namespaceURI = attribute->ns != nullptr ? textOf(attribute->ns->href) : std::string();
        out.value = values.of(node);
        if (attribute->parent != nullptr)
            out.node = handles.on(attribute->parent);
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
        out.node = handles.on(node);
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
        const std::size_t count = static_cast<std::size_t>(set->nodeNr);
        result.nodes.reserve(count);
        StringValues values;
        Handles handles(count);
        bool namespaces = false;
        for (std::size_t i = 0; i < count; ++i) {
            xmlNode* const node = set->nodeTab[i];
            // The nodes lie scattered over the tree's memory: ask for the ones a few steps ahead
            // while this one is described.
            if (i + kPrefetchDistance < count)
                __builtin_prefetch(set->nodeTab[i + kPrefetchDistance]);
            namespaces = namespaces || node->type == XML_NAMESPACE_DECL;
            result.nodes.emplace_back();
            describe(node, result.nodes.back(), values, handles);
        }
        result.string = result.nodes.front().value;
        if (!namespaces) {
            // Every node belongs to the tree: only the set itself is freed. libxml2's own free
            // would read each node's type once more to find namespace copies, a cache miss per
            // node on large sets.
            object->nodesetval = nullptr;
            xmlFree(set->nodeTab);
            xmlFree(set);
        }
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
