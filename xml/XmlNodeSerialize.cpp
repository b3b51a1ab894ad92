// XmlNode serialisation: fragments through xmlNodeDump, complete documents through the shared
// scratch document, and libxml2's entity encoder.
#include "tarnxml/XmlNode.h"

#include "Diagnostics.h"
#include "DictStrings.h"
#include "Lifecycle.h"
#include "TreeWalk.h"
#include "tarn/shared.h"

#include <libxml/entities.h>
#include <libxml/tree.h>
#include <libxml/xmlmemory.h>

#include <boost/thread/lock_guard.hpp>

#include <memory>
#include <new>

namespace tarn {

namespace {

// The line of InnerXml's check for a node without markup, as the product's reports name it.
constexpr int kInnerXmlAssertLine = 975;

struct BufferDeleter {
    void operator()(xmlBuffer* buffer) const noexcept { xmlBufferFree(buffer); }
};

struct XmlCharFree {
    void operator()(xmlChar* value) const { xmlFree(value); }
};

// Gives the scratch document back empty on every way out of SerializeOuterXml, exceptions
// included: its child list is cleared (it must never own or free the caller's node), the node's
// parent link, which xmlDocSetRootElement pointed at the scratch document, is cut, so that a
// later unlink of the node never touches the scratch document outside the lock, and the subtree
// is pointed back at the document it belonged to before (none for a detached node). Left
// pointing at the scratch document, a later query on the node would run against whatever
// another thread has put there.
class ScratchDocumentRelease {
public:
    ScratchDocumentRelease(xmlDoc* scratch, xmlNode* root)
        : scratch_(scratch), root_(root), before_(root != nullptr ? root->doc : nullptr)
    {
    }
    ~ScratchDocumentRelease()
    {
        scratch_->children = nullptr;
        scratch_->last = nullptr;
        if (root_ == nullptr)
            return;
        if (root_->parent == reinterpret_cast<xmlNode*>(scratch_))
            root_->parent = nullptr;
        if (root_->doc == scratch_)
            detail::setTreeDoc(root_, before_);
    }
    ScratchDocumentRelease(const ScratchDocumentRelease&) = delete;
    ScratchDocumentRelease& operator=(const ScratchDocumentRelease&) = delete;

private:
    xmlDoc* scratch_;
    xmlNode* root_;
    xmlDoc* before_;
};

} // namespace

std::string XmlNode::getOuterXml() const
{
    std::string result;
    if (node == nullptr)
        return result;
    const std::unique_ptr<xmlBuffer, BufferDeleter> buffer(xmlBufferCreate());
    if (!buffer)
        throw std::bad_alloc();
    const int length = xmlNodeDump(buffer.get(), node->doc, node, 0, 0);
    if (length < 0)
        throw std::bad_alloc();
    const xmlChar* const content = xmlBufferContent(buffer.get());
    if (length > 0 && content != nullptr)
        result.assign(reinterpret_cast<const char*>(content), static_cast<std::size_t>(length));
    return result;
}

std::string XmlNode::OuterXml() const { return getOuterXml(); }

std::string XmlNode::InnerXml() const
{
    const std::string outer = getOuterXml();
    const std::string::size_type lastOpen = outer.rfind('<');
    const std::string::size_type firstClose = outer.find('>');
    if (lastOpen == std::string::npos || firstClose == std::string::npos) {
        detail::assertionReport(detail::kNodeSourcePath, kInnerXmlAssertLine);
        return EMPTY_STRING;
    }
    // libxml2 writes ">" in text and attribute values as "&gt;", so the first ">" closes the
    // start tag and the last "<" opens the end tag.
    const std::string::size_type begin = firstClose + 1;
    if (begin < lastOpen)
        return outer.substr(begin, lastOpen - begin);
    return EMPTY_STRING;
}

std::string XmlNode::SerializeOuterXml() const
{
    std::string result;
    const boost::lock_guard<boost::mutex> lock(detail::tempDocMutex());
    // A failed start-up leaves no scratch document: nothing can be written.
    if (g_tempDoc == nullptr)
        return result;
    // A node of a read-only document leaves it for good: it takes no dictionary strings along.
    detail::releaseDictionaryStrings(node, g_tempDoc);
    const ScratchDocumentRelease release(g_tempDoc, node);
    // Takes the node out of its tree and points its subtree at the scratch document (here
    // first, without recursion, so that libxml2 finds nothing left to re-point). A handle
    // without a node leaves the scratch document empty: the declaration alone is written.
    detail::setTreeDoc(node, g_tempDoc);
    xmlDocSetRootElement(g_tempDoc, node);
    xmlChar* memory = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(g_tempDoc, &memory, &size, "utf-8");
    const std::unique_ptr<xmlChar, XmlCharFree> dumped(memory);
    if (dumped)
        result = reinterpret_cast<const char*>(dumped.get());
    return result;
}

std::string XmlNode::XmlEncode(const std::string& value)
{
    const std::unique_ptr<xmlChar, XmlCharFree> encoded(
        xmlEncodeEntitiesReentrant(nullptr, reinterpret_cast<const xmlChar*>(value.c_str())));
    if (!encoded)
        return std::string();
    return reinterpret_cast<const char*>(encoded.get());
}

std::string XmlNode::XmlEncode(const char* value)
{
    if (value == nullptr || *value == '\0')
        return std::string();
    return XmlEncode(std::string(value));
}

} // namespace tarn
