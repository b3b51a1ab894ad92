// Non-recursive subtree copy and document change; see TreeWalk.h.
#include "TreeWalk.h"

#include <string>

namespace tarn {
namespace detail {

namespace {

// The children that belong to the tree: an entity reference's children link holds its
// declaration, which is shared, not copied or re-pointed.
xmlNode* treeChildren(const xmlNode* node)
{
    return node->type == XML_ENTITY_REF_NODE ? nullptr : node->children;
}

const xmlChar* bytes(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

// libxml2's answer when an element's namespace is declared neither in the copy's scope nor in
// the original's: a declaration of the same URI in scope, or a new one on the element under the
// original prefix (or "default"), numbered until it is free.
xmlNs* reconciledNamespace(xmlDoc* doc, xmlNode* tree, const xmlNs* ns)
{
    if (xmlNs* inScope = xmlSearchNsByHref(doc, tree, ns->href))
        return inScope;
    const std::string base =
        ns->prefix != nullptr ? std::string(reinterpret_cast<const char*>(ns->prefix)).substr(0, 20) : "default";
    std::string prefix = base;
    for (int counter = 1; xmlSearchNs(doc, tree, bytes(prefix.c_str())) != nullptr; ++counter) {
        if (counter > 1000)
            return nullptr;
        prefix = base + std::to_string(counter);
    }
    return xmlNewNs(tree, ns->href, bytes(prefix.c_str()));
}

// What libxml2's copy does for one element once its copy `copy` hangs under its copied parent:
// namespace declarations, the element's namespace looked up in the new scope, attributes.
void copyElementExtras(const xmlNode* source, xmlNode* copy, xmlDoc* doc)
{
    if (source->nsDef != nullptr)
        copy->nsDef = xmlCopyNamespaceList(source->nsDef);
    if (const xmlNs* ns = source->ns) {
        const xmlNode* sourceParent = source->parent;
        const xmlNode* copyParent = copy->parent;
        const bool isXml = ns->prefix != nullptr && xmlStrEqual(ns->prefix, bytes("xml"));
        if (source->nsDef == nullptr && !isXml && sourceParent != nullptr && sourceParent->type == XML_ELEMENT_NODE
            && sourceParent->ns == ns && copyParent != nullptr && copyParent->type == XML_ELEMENT_NODE
            && copyParent->ns != nullptr) {
            // Same namespace as the parent and nothing declared here: the lookup from here would
            // find what the parent's found. Taking it keeps a deep chain linear, where a lookup
            // per element would walk up to the top every time.
            copy->ns = copyParent->ns;
        } else if (xmlNs* found = xmlSearchNs(doc, copy, ns->prefix)) {
            copy->ns = found;
        } else if (xmlNs* original = xmlSearchNs(source->doc, const_cast<xmlNode*>(source), ns->prefix)) {
            // Declared outside the copied part: declare it at the top of the copy.
            xmlNode* top = copy;
            while (top->parent != nullptr)
                top = top->parent;
            copy->ns = xmlNewNs(top, original->href, original->prefix);
        } else {
            copy->ns = reconciledNamespace(doc, copy, ns);
        }
    }
    if (source->properties != nullptr)
        copy->properties = xmlCopyPropList(copy, source->properties);
}

// Copies `source` alone (an element without its children) and appends it to `parent` (may be
// null). Returns the node that stands in the copy: a text node appended after a text node is
// merged into it, as libxml2's copy does. Null when libxml2 could not allocate.
xmlNode* copyOne(xmlNode* source, xmlDoc* doc, xmlNode* parent)
{
    const bool element = source->type == XML_ELEMENT_NODE;
    // Nodes other than elements have no children in the tree (an entity reference's declaration
    // is linked, not copied), so libxml2's full copy of them does not recurse.
    xmlNode* copy = xmlDocCopyNode(source, doc, element ? 0 : 1);
    if (copy == nullptr)
        return nullptr;
    if (parent != nullptr) {
        xmlNode* placed = xmlAddChild(parent, copy);
        if (placed == nullptr) {
            xmlFreeNode(copy);
            return nullptr;
        }
        copy = placed;
    }
    if (element)
        copyElementExtras(source, copy, doc);
    return copy;
}

// Copies the subtree of `source` under `parent` (null: detached), in document order, with a
// loop over the parent links of both trees. Null when an allocation failed; what was copied is
// then freed.
xmlNode* copySubtree(xmlNode* source, xmlDoc* doc, xmlNode* parent)
{
    xmlNode* const top = copyOne(source, doc, parent);
    if (top == nullptr)
        return nullptr;
    xmlNode* from = source;
    xmlNode* to = top;
    for (;;) {
        xmlNode* next = from->type == XML_ELEMENT_NODE ? treeChildren(from) : nullptr;
        xmlNode* into = to;
        if (next == nullptr) {
            // Climb until a node has a next sibling, or back at the top.
            while (from != source && from->next == nullptr) {
                from = from->parent;
                to = to->parent;
            }
            if (from == source)
                return top;
            next = from->next;
            into = to->parent;
        }
        xmlNode* copied = copyOne(next, doc, into);
        if (copied == nullptr) {
            xmlUnlinkNode(top);
            xmlFreeNode(top);
            return nullptr;
        }
        from = next;
        to = copied;
    }
}

} // namespace

bool deeperThan(const xmlNode* node, int limit)
{
    if (node == nullptr)
        return false;
    int depth = 1;
    const xmlNode* at = node;
    for (;;) {
        if (depth > limit)
            return true;
        if (const xmlNode* child = treeChildren(at)) {
            at = child;
            ++depth;
            continue;
        }
        while (at != node && at->next == nullptr) {
            at = at->parent;
            --depth;
        }
        if (at == node)
            return false;
        at = at->next;
    }
}

xmlNode* copyTree(xmlNode* node, xmlDoc* doc)
{
    if (node == nullptr)
        return nullptr;
    if (!deeperThan(node, kRecursionSafeDepth))
        return xmlDocCopyNode(node, doc, 1);
    return copySubtree(node, doc, nullptr);
}

xmlDoc* copyDocument(xmlDoc* doc)
{
    if (doc == nullptr)
        return nullptr;
    bool deep = false;
    for (const xmlNode* child = doc->children; child != nullptr && !deep; child = child->next)
        deep = deeperThan(child, kRecursionSafeDepth);
    if (!deep)
        return xmlCopyDoc(doc, 1);

    // xmlCopyDoc's steps, with the children copied by the loop above.
    xmlDoc* copy = xmlCopyDoc(doc, 0);
    if (copy == nullptr)
        return nullptr;
    xmlNode* const copyNode = reinterpret_cast<xmlNode*>(copy);
    if (doc->intSubset != nullptr) {
        copy->intSubset = xmlCopyDtd(doc->intSubset);
        if (copy->intSubset == nullptr) {
            xmlFreeDoc(copy);
            return nullptr;
        }
        xmlSetTreeDoc(reinterpret_cast<xmlNode*>(copy->intSubset), copy);
        copy->intSubset->parent = copy;
    }
    if (doc->oldNs != nullptr)
        copy->oldNs = xmlCopyNamespaceList(doc->oldNs);
    for (xmlNode* child = doc->children; child != nullptr; child = child->next) {
        if (child->type == XML_DTD_NODE) {
            // The internal subset's place among the document's children.
            if (copy->intSubset == nullptr) {
                copy->intSubset = xmlCopyDtd(reinterpret_cast<xmlDtd*>(child));
                if (copy->intSubset == nullptr) {
                    xmlFreeDoc(copy);
                    return nullptr;
                }
                copy->intSubset->doc = copy;
                copy->intSubset->parent = copy;
            }
            xmlAddChild(copyNode, reinterpret_cast<xmlNode*>(copy->intSubset));
            continue;
        }
        if (copySubtree(child, copy, copyNode) == nullptr) {
            xmlFreeDoc(copy);
            return nullptr;
        }
    }
    return copy;
}

void setTreeDoc(xmlNode* tree, xmlDoc* doc)
{
    // libxml2 leaves a subtree whose top already belongs to `doc` alone, as here.
    if (tree == nullptr || tree->type == XML_NAMESPACE_DECL || tree->doc == doc)
        return;
    if (!deeperThan(tree, kRecursionSafeDepth)) {
        xmlSetTreeDoc(tree, doc);
        return;
    }
    // Children first: when libxml2's xmlSetTreeDoc then runs on a node, every child already
    // belongs to `doc`, so it re-points that node and its attributes without descending.
    xmlNode* at = tree;
    for (;;) {
        while (xmlNode* child = treeChildren(at))
            at = child;
        for (;;) {
            xmlNode* const done = at;
            xmlNode* const next = at != tree ? at->next : nullptr;
            xmlNode* const up = at != tree ? at->parent : nullptr;
            xmlSetTreeDoc(done, doc);
            if (done == tree)
                return;
            if (next != nullptr) {
                at = next;
                break;
            }
            at = up;
        }
    }
}

} // namespace detail
} // namespace tarn
