#pragma once
// One XPath evaluation's libxml2 context: namespace bindings, a work bound and the errors
// libxml2 reports, captured on the context itself (never the process-wide handlers), so that
// concurrent evaluations on different threads each see only their own messages.
#include "tarnxml/XmlNode.h"

#include <libxml/xmlerror.h>
#include <libxml/xpath.h>

#include <memory>
#include <string>

namespace tarn {

class XPathNodeIterator;

namespace detail {

// What the iterator requests do with libxml2's result: a node set is handed to `iterator`
// (which takes it); anything else (null, a number, string or boolean) is freed and leaves the
// iterator with the result and position it had.
void keepNodeSet(xmlXPathObject* result, XPathNodeIterator& iterator);

struct XPathContextDeleter {
    void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
};

class XPathCall {
public:
    // A context on `doc` (may be null) with `node` as the context node (null: the document
    // node, or none without a document). Throws std::bad_alloc when libxml2 cannot allocate.
    XPathCall(xmlDoc* doc, xmlNode* node);
    ~XPathCall();
    XPathCall(const XPathCall&) = delete;
    XPathCall& operator=(const XPathCall&) = delete;

    // Registers the pairs; false (and `error` set) for an empty prefix.
    bool bind(const XmlNamespaceBindings& ns);
    // 0 = libxml2's own (no limit).
    void limit(unsigned long maxSteps) { context_->opLimit = maxSteps; }
    xmlXPathContext* get() const { return context_.get(); }

    // The first error libxml2 reported through this context, trailing newline removed.
    std::string error;
    // libxml2's XPath error code (xmlXPathError) of that error, -1 when none.
    int code = -1;
    // The first text libxml2 sent to the generic error function meanwhile ("" when none).
    std::string generic;
    // `error`, else `generic`, else `fallback`.
    std::string message(const char* fallback) const
    {
        return !error.empty() ? error : !generic.empty() ? generic : std::string(fallback);
    }

private:
    static void capture(void* self, xmlError* error);
    static void captureGeneric(void* self, const char* format, ...) __attribute__((format(printf, 2, 3)));
    xmlGenericErrorFunc savedGeneric_;
    void* savedGenericContext_;
    std::unique_ptr<xmlXPathContext, XPathContextDeleter> context_;
};

} // namespace detail
} // namespace tarn
