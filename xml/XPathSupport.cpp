// The XPath context shared by the namespace-aware iterator requests and typed evaluation.
#include "XPathSupport.h"

#include "tarnxml/XmlIterators.h"

#include <libxml/globals.h>
#include <libxml/xmlerror.h>
#include <libxml/xpathInternals.h>

#include <cstdarg>
#include <cstdio>
#include <new>

namespace tarn {
namespace detail {

void keepNodeSet(xmlXPathObject* result, XPathNodeIterator& iterator)
{
    if (result == nullptr)
        return;
    if (result->type != XPATH_NODESET) {
        xmlXPathFreeObject(result);
        return;
    }
    iterator.Initialize(result);
}

namespace {

// libxml2's texts for its XPath error codes (xmlXPathError), as its own default handler prints
// them: with a structured handler on the context, libxml2 hands over the code alone.
const char* const kMessages[] = {
    "Ok",
    "Number encoding",
    "Unfinished literal",
    "Start of literal",
    "Expected $ for variable reference",
    "Undefined variable",
    "Invalid predicate",
    "Invalid expression",
    "Missing closing curly brace",
    "Unregistered function",
    "Invalid operand",
    "Invalid type",
    "Invalid number of arguments",
    "Invalid context size",
    "Invalid context position",
    "Memory allocation error",
    "Syntax error",
    "Resource error",
    "Sub resource error",
    "Undefined namespace prefix",
    "Encoding error",
    "Char out of XML range",
    "Invalid or incomplete context",
    "Stack usage error",
    "Forbidden variable",
    "Operation limit exceeded",
    "Recursion limit exceeded",
};

std::string trimmed(const char* text)
{
    std::string message = text != nullptr ? text : "";
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ' || message.back() == '\r'))
        message.pop_back();
    return message;
}

const char* messageFor(int code)
{
    if (code < 0 || code >= static_cast<int>(sizeof kMessages / sizeof kMessages[0]))
        return "?? Unknown error ??";
    return kMessages[code];
}

} // namespace

XPathCall::XPathCall(xmlDoc* doc, xmlNode* node)
    : savedGeneric_(xmlGenericError), savedGenericContext_(xmlGenericErrorContext), context_(xmlXPathNewContext(doc))
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
    // A few evaluation problems (an unknown function, a function or variable with an unbound
    // prefix) libxml2 prints only through the generic error function. That function is the
    // calling thread's own in libxml2; it is pointed here for the time of this call, then given
    // back, so nothing is printed and other threads are not affected.
    xmlSetGenericErrorFunc(this, &XPathCall::captureGeneric);
}

XPathCall::~XPathCall()
{
    xmlGenericError = savedGeneric_;
    xmlGenericErrorContext = savedGenericContext_;
}

void XPathCall::captureGeneric(void* self, const char* format, ...)
{
    XPathCall* const call = static_cast<XPathCall*>(self);
    if (call == nullptr || format == nullptr || !call->generic.empty())
        return;
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    try {
        call->generic = trimmed(text);
    } catch (...) {
    }
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
        call->error = reported->message != nullptr ? trimmed(reported->message) : std::string(messageFor(call->code));
        if (call->error.empty())
            call->error = "XPath error";
    } catch (...) {
    }
}

} // namespace detail
} // namespace tarn
