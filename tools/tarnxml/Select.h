#pragma once
// Evaluating XPath expressions for select and edit: each expression is compiled once (a bad one
// is reported before any input is read) and evaluated once per document, with the namespace
// prefixes of -N and of the document's root element bound.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tool.h"

struct _xmlXPathCompExpr;

namespace tool {

// prefix -> URI, in the order given.
using Bindings = std::vector<std::pair<std::string, std::string>>;

// Parses the -N arguments (PREFIX=URI each); ToolError (kExitUsage) for a malformed one.
Bindings parseBindings(const std::vector<std::string>& arguments);

// One selected node.
struct SelectedNode {
    enum Kind { Element, Attribute, Text, CData, Comment, ProcessingInstruction, Namespace, Document, Other };
    Kind kind = Other;
    std::string name;    // qualified name; "" for text, CDATA, comments and the document
    std::string value;   // the XPath string value
    tarn::XmlNodePtr node;   // elements, text, CDATA, comments and PIs; the owner for attributes
    _xmlNode* raw = nullptr;
};

// What an expression gave on one document.
struct Evaluation {
    enum Type { NodeSet, Boolean, Number, String } type = NodeSet;
    std::vector<SelectedNode> nodes;
    std::string string;   // the XPath string() of the result, for every type
};

class XPath {
public:
    // Compiles; a syntax error throws ToolError (kExitUsage) echoing the expression.
    explicit XPath(const std::string& expression);
    ~XPath();
    XPath(XPath&&) noexcept;
    const std::string& text() const { return text_; }
    // Evaluates on the document with `bindings` plus the root element's own prefixes ("_" for its
    // default namespace) bound; -N bindings win over the document's. An evaluation error throws
    // ToolError (kExitUsage).
    // `maxSteps` bounds the work (0: no bound). With `context`, relative to that node.
    Evaluation evaluate(const Loaded& loaded, const Bindings& bindings, unsigned long maxSteps,
                        const SelectedNode* context = nullptr) const;

private:
    std::string text_;
    _xmlXPathCompExpr* compiled_;
};

// true when `prefix` is declared at `element` or an ancestor ("xml" always is).
bool prefixDeclared(const tarn::XmlNode& element, const std::string& prefix);

// Replaces what a selected node holds: an element's whole content becomes one text node, an
// attribute's, text's, CDATA section's, comment's or PI's value the text. 0, or -1.
int setNodeText(const SelectedNode& node, const std::string& text);

// The whole document as libxml2 prints it (declaration, prolog, root), formatted or as it is.
std::string printDocument(const Loaded& loaded, bool format);

// The bindings an expression sees on this document: the root's declarations, then `given`.
Bindings documentBindings(const Loaded& loaded, const Bindings& given);

} // namespace tool
