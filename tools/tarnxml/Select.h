#pragma once
// Evaluating an XPath expression on a document for select and edit, with the expression
// checked first so that a bad one is reported instead of silently selecting nothing.
#include <memory>
#include <string>
#include <vector>

#include "Tool.h"

struct _xmlXPathCompExpr;

namespace tool {

struct CompiledXPath {
    void operator()(_xmlXPathCompExpr* expression) const;
};
using CompiledXPathPtr = std::unique_ptr<_xmlXPathCompExpr, CompiledXPath>;

// Compiles `xpath`; a syntax error throws ToolError (kExitUsage) echoing the expression.
CompiledXPathPtr compileXPath(const std::string& xpath);

// The elements `xpath` selects on the document, each in a handle of its own. An expression that
// fails while being evaluated (unknown function, unbound prefix) throws ToolError (kExitUsage).
std::vector<tarn::XmlNodePtr> selectElements(const Loaded& loaded, const std::string& xpath);

// For an expression that selected no element: its value when it is not a node set (a number,
// string or boolean), in `value`, and true; false for a node set (`nonElements` then counts the
// attributes, text and other nodes it holds).
bool scalarValue(const Loaded& loaded, _xmlXPathCompExpr* expression, std::string& value, int& nonElements);

} // namespace tool
