#pragma once
// Evaluating XPath expressions for select and edit: each expression is compiled once (a bad one
// is reported before any input is read) and evaluated once per document, with the namespace
// prefixes of -N and of the document's root element bound.
#include <string>
#include <vector>

#include "Tool.h"
#include "tarnxml/XPath.h"

namespace tool {

// prefix -> URI, in the order given.
using Bindings = tarn::XmlNamespaceBindings;
using SelectedNode = tarn::XPathNode;

// Parses the -N arguments (PREFIX=URI each); ToolError (kExitUsage) for a malformed one.
Bindings parseBindings(const std::vector<std::string>& arguments);

class XPath {
public:
    // Compiles; a syntax error throws ToolError (kExitUsage) echoing the expression.
    explicit XPath(const std::string& expression);
    const std::string& text() const { return text_; }
    // Evaluates on the document with the root element's own prefixes ("_" for its default
    // namespace) and then `bindings` bound (-N wins). `maxSteps` bounds the work (0: no bound).
    // With `context`, relative to that element. An evaluation error throws ToolError
    // (kExitUsage) echoing the expression.
    tarn::XPathResult evaluate(const Loaded& loaded, const Bindings& bindings, unsigned long maxSteps,
                               const tarn::XmlNode* context = nullptr) const;
    // The number of nodes the expression selects in the document, found by evaluating
    // count(EXPRESSION) so that no node is collected; false when the expression does not give a
    // node set (evaluate it as it is then). Errors as evaluate.
    bool count(const Loaded& loaded, const Bindings& bindings, unsigned long maxSteps, std::size_t& number) const;

private:
    tarn::XPathOptions options(const Loaded& loaded, const Bindings& bindings, unsigned long maxSteps) const;
    void check(const tarn::XPathResult& result, unsigned long maxSteps) const;
    std::string text_;
    tarn::XPathExpression compiled_;
    tarn::XPathExpression counted_;
};

// true when `prefix` is declared at `element` or an ancestor ("xml" always is).
bool prefixDeclared(const tarn::XmlNode& element, const std::string& prefix);

} // namespace tool
