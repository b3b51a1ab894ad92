#pragma once
// Iterators over element children, attributes and XPath results.
//
// Ownership and lifetime
//   Iterators are never made by callers: XmlNode::GetIterator, XmlNode::GetAttributeIterator
//   and XmlDocument::GetIterator return a plain pointer to an iterator that the handle or the
//   document owns, made on the first request and re-aimed (not rewound) on later ones. Never
//   delete it. It lives as long as its handle; a document's XPath iterator lives until the
//   document's next reset or load, and XmlDocument::GetIterator() without an expression hands
//   out the root handle's child iterator.
//
// One reused item
//   Each iterator owns exactly one item (a node handle or an attribute view) and yields that
//   same item, re-pointed, at every step: stepping allocates nothing. A yielded item is a view
//   of the current step; copy out what you need (read its values, or XmlNode::Clone). At the end
//   of a walk the child iterator's item refers to no node and the attribute iterator's view to
//   no attribute, while the XPath iterator's item stays on the last node yielded.
//   Two loops over the same handle's children share one iterator; nest walks on the yielded
//   handle instead, which owns iterators of its own.
//
// Usage
//   for (XmlNodePtr child = node->GetIterator()->GetFirst(); child;
//        child = node->GetIterator()->GetNext()) { ... }
//   Only element nodes are yielded by the node iterators.
//
// XPath errors
//   A failed expression (syntax error, unknown function, unbound prefix) keeps the previous
//   result. libxml2 reports the error through its generic error handler, which prints to
//   standard error by default. To silence it for the calling thread:
//       static void quiet(void*, const char*, ...) {}
//       xmlSetGenericErrorFunc(nullptr, quiet);     // and xmlSetStructuredErrorFunc(nullptr, nullptr)
//   and restore it with xmlSetGenericErrorFunc(nullptr, nullptr).
//
// Threads
//   An iterator is used by one thread at a time, with the handle or document that owns it.
//   Items are shared pointers with atomic counts, so a kept item may be released elsewhere.
//
// Errors
//   None are reported: the end of a walk and every missing piece show as an empty shared pointer
//   or a null iterator pointer. Only std::bad_alloc can leave these classes (on first request).
#include <string>

#include <boost/shared_ptr.hpp>

#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

namespace tarn {

// Walks the element children of one node.
class TARNXML_API XmlNodeIterator {
public:
    XmlNodeIterator();
    virtual ~XmlNodeIterator();
    XmlNodeIterator(const XmlNodeIterator&) = delete;
    XmlNodeIterator& operator=(const XmlNodeIterator&) = delete;

    // Aims at `parent`'s children; the same parent again keeps the position.
    virtual void Initialize(_xmlNode* parent);
    // The first element child (the item), or an empty pointer.
    virtual XmlNodePtr GetFirst();
    // The next element child (the same item, re-pointed), or an empty pointer at the end.
    virtual XmlNodePtr GetNext();

protected:
    _xmlNode* current;
    _xmlNode* parent;
    XmlNodePtr item;
};

// A view of one attribute.
class TARNXML_API XmlAttribute {
public:
    XmlAttribute();
    void AttributeSet(_xmlAttr* attribute) noexcept;
    // "" for an empty view.
    std::string GetName() const;
    // The text of the attribute's first child (the whole value); "" for an empty view.
    std::string GetValue() const;

private:
    _xmlAttr* attribute;
};

typedef boost::shared_ptr<XmlAttribute> XmlAttributePtr;

// Walks the attributes of one element.
class TARNXML_API XmlAttributeIterator {
public:
    XmlAttributeIterator();
    ~XmlAttributeIterator();
    XmlAttributeIterator(const XmlAttributeIterator&) = delete;
    XmlAttributeIterator& operator=(const XmlAttributeIterator&) = delete;

    void Initialize(_xmlNode* element);
    void setItrPtr(_xmlAttr* attribute);
    XmlAttributePtr GetFirst();
    XmlAttributePtr GetNext();

private:
    _xmlAttr* current;
    _xmlNode* element;
    XmlAttributePtr item;
};

// Walks the element nodes of an XPath result. Only elements are yielded: attributes, text and
// other nodes in a node set are skipped. Right after a query GetNext yields the first element
// as GetFirst would.
class TARNXML_API XPathNodeIterator : public XmlNodeIterator {
public:
    XPathNodeIterator();
    ~XPathNodeIterator() override;

    using XmlNodeIterator::Initialize;
    // Takes ownership of `result` (which must hold a node set) and drops the previous one. The
    // previous result's node set is cleared before it is freed, so freeing never touches nodes
    // of a tree that may already be gone.
    void Initialize(_xmlXPathObject* result);
    XmlNodePtr GetFirst() override;
    XmlNodePtr GetNext() override;

private:
    _xmlXPathObject* xpathResult;
    int resultIndex;
    XmlNodePtr resultItem;
};

} // namespace tarn
