#pragma once
// Ownership of a libxml2 parser context inside one function: freed on every way out, exceptions
// that unwind through libxml2 included, together with any document the parse left in it.
#include <libxml/parser.h>
#include <libxml/tree.h>

namespace tarn {
namespace detail {

class ParserContext {
public:
    explicit ParserContext(xmlParserCtxt* context) : context_(context) {}
    ~ParserContext()
    {
        if (context_ == nullptr)
            return;
        // A parse that returned has handed its document over and cleared this link; one that
        // was cut short leaves a partial tree here, owned by nobody else.
        if (context_->myDoc != nullptr) {
            xmlFreeDoc(context_->myDoc);
            context_->myDoc = nullptr;
        }
        xmlFreeParserCtxt(context_);
    }
    ParserContext(const ParserContext&) = delete;
    ParserContext& operator=(const ParserContext&) = delete;

    xmlParserCtxt* get() const { return context_; }
    explicit operator bool() const { return context_ != nullptr; }

private:
    xmlParserCtxt* context_;
};

} // namespace detail
} // namespace tarn
