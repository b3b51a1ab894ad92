// The XPath context shared by the namespace-aware iterator requests and typed evaluation.
#include "XPathSupport.h"

#include <libxml/xmlerror.h>
#include <libxml/xpathInternals.h>

#include <new>

namespace tarn {
namespace detail {

XPathCall::XPathCall(xmlDoc* doc, xmlNode* node) : context_(xmlXPathNewContext(doc))
{
    if (!context_)
        throw std::bad_alloc();
    if (node != nullptr)
        context_->node = node;
    else if (doc != nullptr)
        context_->node = reinterpret_cast<xmlNode*>(doc);
    // Errors are reported to `error` (the structured handler of the context); with a handler
    // set libxml2 neither prints nor touches the global last error for them.
    context_->error = &XPathCall::capture;
    context_->userData = this;
}

bool XPathCall::bind(const XmlNamespaceBindings& ns)
{
    for (const auto& binding : ns) {
        if (binding.first.empty()) {
            error = "Empty namespace prefix: XPath 1.0 has no default namespace, bind it to a prefix";
            return false;
        }
        if (xmlXPathRegisterNs(context_.get(), reinterpret_cast<const xmlChar*>(binding.first.c_str()),
                               reinterpret_cast<const xmlChar*>(binding.second.c_str())) != 0)
            throw std::bad_alloc();
    }
    return true;
}

void XPathCall::capture(void* self, xmlError* reported)
{
    XPathCall* const call = static_cast<XPathCall*>(self);
    if (call == nullptr || reported == nullptr || call->code != -1)
        return;
    // Keep the first error: later ones are usually its consequences. Nothing may leave this
    // callback (libxml2's C frames are below it): without memory for the text, the code stays.
    call->code = reported->domain == XML_FROM_XPATH ? reported->code - XML_XPATH_EXPRESSION_OK : XPATH_EXPR_ERROR;
    try {
        std::string message = reported->message != nullptr ? reported->message : "";
        while (!message.empty() && (message.back() == '\n' || message.back() == ' ' || message.back() == '\r'))
            message.pop_back();
        call->error = message.empty() ? std::string("XPath error") : message;
    } catch (...) {
    }
}

} // namespace detail
} // namespace tarn
