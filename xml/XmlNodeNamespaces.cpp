// Namespaces for node handles and documents: XPath requests with prefix bindings, the
// declarations in scope at a node, and a node printed as a fragment that carries them.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include "XPathSupport.h"

#include <libxml/tree.h>
#include <libxml/xpath.h>

namespace tarn {

namespace {

// Evaluates `xpath` with `ns` bound and hands a node-set result to `iterator`; anything else
// (a refused binding, a failed evaluation, another result type) leaves the iterator as it was.
void runBoundQuery(xmlDoc* doc, xmlNode* node, const std::string& xpath, const XmlNamespaceBindings& ns,
                   XPathNodeIterator* iterator)
{
    detail::XPathCall call(doc, node);
    if (!call.bind(ns))
        return;
    detail::keepNodeSet(xmlXPathEval(reinterpret_cast<const xmlChar*>(xpath.c_str()), call.get()), *iterator);
}

inline std::string textOf(const xmlChar* text)
{
    return text != nullptr ? std::string(reinterpret_cast<const char*>(text)) : std::string();
}

inline bool samePrefix(const xmlChar* a, const xmlChar* b) { return xmlStrEqual(a, b) != 0; }

// The declarations in scope at `node`, nearest first, each prefix once (the nearest wins).
// With `ancestorsOnly` the node's own declarations shadow but are not listed.
template <typename Visit>
void forEachInScope(const xmlNode* node, bool ancestorsOnly, Visit visit)
{
    std::vector<const xmlChar*> seen;
    for (const xmlNode* at = node; at != nullptr && at->type == XML_ELEMENT_NODE; at = at->parent) {
        for (const xmlNs* ns = at->nsDef; ns != nullptr; ns = ns->next) {
            bool shadowed = false;
            for (const xmlChar* prefix : seen)
                shadowed = shadowed || samePrefix(prefix, ns->prefix);
            if (shadowed)
                continue;
            seen.push_back(ns->prefix);
            if (at == node && ancestorsOnly)
                continue;
            visit(ns);
        }
    }
}

// Declarations appended to an element's own list for the time of one dump, then taken off.
class BorrowedDeclarations {
public:
    explicit BorrowedDeclarations(xmlNode* element) : element_(element) {}
    ~BorrowedDeclarations()
    {
        if (added_ == nullptr)
            return;
        if (tail_ != nullptr)
            tail_->next = nullptr;
        else
            element_->nsDef = nullptr;
        xmlFreeNsList(added_);
    }
    BorrowedDeclarations(const BorrowedDeclarations&) = delete;
    BorrowedDeclarations& operator=(const BorrowedDeclarations&) = delete;

    void add(const xmlNs* ns)
    {
        // xmlNewNs without a node makes a free-standing declaration.
        xmlNs* copy = xmlNewNs(nullptr, ns->href, ns->prefix);
        if (copy == nullptr)
            throw std::bad_alloc();
        if (added_ == nullptr) {
            tail_ = element_->nsDef;
            while (tail_ != nullptr && tail_->next != nullptr)
                tail_ = tail_->next;
            if (tail_ != nullptr)
                tail_->next = copy;
            else
                element_->nsDef = copy;
        } else {
            last_->next = copy;
        }
        if (added_ == nullptr)
            added_ = copy;
        last_ = copy;
    }

private:
    xmlNode* element_;
    xmlNs* tail_ = nullptr;   // the element's own last declaration (null: it had none)
    xmlNs* added_ = nullptr;  // the first borrowed one
    xmlNs* last_ = nullptr;
};

} // namespace

XPathNodeIterator* XmlNode::GetIterator(const std::string& xpath, const XmlNamespaceBindings& ns)
{
    if (node == nullptr)
        return nullptr;
    if (xpathIterator == nullptr)
        xpathIterator = new XPathNodeIterator;
    runBoundQuery(node->doc, node, xpath, ns, xpathIterator);
    return xpathIterator;
}

XPathNodeIterator* XmlDocument::GetIterator(const std::string& xpath, const XmlNamespaceBindings& ns)
{
    if (doc == nullptr)
        return nullptr;
    if (xpathIterator == nullptr)
        xpathIterator = new XPathNodeIterator;
    runBoundQuery(doc, nullptr, xpath, ns, xpathIterator);
    return xpathIterator;
}

XmlNamespaceBindings XmlNode::GetNamespacesInScope() const
{
    XmlNamespaceBindings result;
    const xmlNode* start = getlibXML2Node();
    // Text, comments and the like see the declarations of the element they sit in.
    if (start != nullptr && start->type != XML_ELEMENT_NODE)
        start = start->parent;
    if (start == nullptr)
        return result;
    forEachInScope(start, false, [&result](const xmlNs* ns) {
        if (ns->href == nullptr || ns->href[0] == 0)
            return;  // xmlns="": no default namespace here
        if (samePrefix(ns->prefix, reinterpret_cast<const xmlChar*>("xml")))
            return;
        result.emplace_back(textOf(ns->prefix), textOf(ns->href));
    });
    return result;
}

std::string XmlNode::FragmentXml() const
{
    xmlNode* const element = getlibXML2Node();
    if (element == nullptr || element->type != XML_ELEMENT_NODE)
        return getOuterXml();
    BorrowedDeclarations borrowed(element);
    forEachInScope(element, true, [&borrowed](const xmlNs* ns) {
        if (ns->href == nullptr || ns->href[0] == 0)
            return;
        if (samePrefix(ns->prefix, reinterpret_cast<const xmlChar*>("xml")))
            return;
        borrowed.add(ns);
    });
    return getOuterXml();
}

} // namespace tarn
