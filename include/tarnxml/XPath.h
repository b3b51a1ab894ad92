#pragma once
// Typed XPath 1.0 evaluation: node sets of every node kind, numbers, strings and booleans, with
// libxml2's error messages and a bound on evaluation work.
//
// Usage
//   tarn::XPathExpression price("sum(//item/@price)");     // compiled once
//   tarn::XPathResult r = price.Evaluate(*document);        // evaluated on many documents
//   if (r.ok()) use(r.number); else report(r.error);
//   tarn::XPathOptions o; o.namespaces = {{"a", "http://www.w3.org/2005/Atom"}};
//   for (const tarn::XPathNode& n : tarn::EvaluateXPath(*feed, "//a:title", o).nodes) ...
//
// Ownership and lifetime
//   A result owns copies of everything it reports (names, URIs, string values). XPathNode::node
//   is a new handle that refers to a node of the tree (it owns nothing) and XPathNode::raw the
//   libxml2 node itself: both are valid only while that tree lives (see XmlDocument), like any
//   handle. Namespace nodes have neither (libxml2 makes them per evaluation and they are freed
//   with it). The handles of one result are made in one allocation that lives until the last
//   of them is gone (keeping one handle keeps that block, some 40 bytes per node of the
//   result); each is still a handle of its own. An XPathExpression owns its compiled form;
//   moving it moves that.
//
// Threads
//   Evaluate reads the tree and writes nothing to it; a document is used by one thread at a
//   time. One XPathExpression is evaluated by one thread at a time (libxml2 caches function
//   look-ups inside the compiled form while evaluating); different expressions run in parallel.
//   Error messages are captured per evaluation on its own libxml2 context, never through the
//   process-wide handlers, and never printed.
//
// Errors
//   Reported in the result (type Error with libxml2's message) or by valid()/error(); nothing is
//   thrown but std::bad_alloc.
//
// Work bound
//   libxml2 counts evaluation steps (nodes visited by axes, operations run). maxSteps stops an
//   evaluation after that many; 0 means kDefaultXPathMaxSteps, a billion steps (seconds of
//   work, more than any query over a gigabyte document visiting each node a few times), so a
//   runaway expression such as //a[count(//a) > 0] on a large document ends with an error
//   instead of running for hours. Set a smaller bound for expressions from untrusted sources.
#include <string>
#include <vector>

#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

struct _xmlXPathCompExpr;

namespace tarn {

class XmlDocument;

// The step bound used when XPathOptions::maxSteps is 0.
constexpr unsigned long kDefaultXPathMaxSteps = 1000000000UL;

struct XPathOptions {
    // Prefixes the expression may use (see XmlNamespaceBindings); none by default.
    XmlNamespaceBindings namespaces;
    // Evaluation steps allowed; 0 = kDefaultXPathMaxSteps.
    unsigned long maxSteps = 0;
};

// One node of a node-set result.
struct XPathNode {
    enum Kind : int { Element, Attribute, Text, CData, Comment, ProcessingInstruction, Namespace,
                      Document, Other };
    Kind kind = Other;
    // Qualified name (prefix:local) of an element or attribute; a processing instruction's
    // target; a namespace node's prefix ("" for the default namespace); "" otherwise.
    std::string name;
    // The namespace of an element or attribute; "" when none (and for other kinds).
    std::string namespaceURI;
    // The XPath string value: all descendant text of an element or the document (CDATA and
    // the replacement text of entity references included), an attribute's value, a text,
    // CDATA, comment or processing instruction's content, a namespace node's URI.
    std::string value;
    // A new handle referring to the node (Element, Text, CData, Comment,
    // ProcessingInstruction) or to an attribute's owner element (Attribute); empty otherwise.
    XmlNodePtr node;
    // The libxml2 node (an attribute's xmlAttr cast; the document's xmlDoc cast); null for
    // namespace nodes.
    _xmlNode* raw = nullptr;
};

struct XPathResult {
    enum Type : int { Error, NodeSet, Boolean, Number, String };
    Type type = Error;
    // NodeSet: the nodes in document order (possibly none).
    std::vector<XPathNode> nodes;
    // Boolean.
    bool boolean = false;
    // Number (NaN and the infinities included).
    double number = 0;
    // XPath string() of the result for every type but Error: the value of a String, "true" or
    // "false", a number as XPath writes it ("2", "0.5", "NaN", "Infinity"), the string value of
    // a node set's first node ("" for an empty set).
    std::string string;
    // Error: libxml2's message ("Invalid expression", "Undefined namespace prefix", ...), or
    // "XPath step limit reached" when maxSteps stopped the evaluation.
    std::string error;
    bool stepLimitReached = false;
    bool ok() const { return type != Error; }
};

// An expression compiled once and evaluated many times, on any number of documents. Prefixes
// are resolved at each evaluation, from that evaluation's options.
class TARNXML_API XPathExpression {
public:
    // Compiles; a syntax error leaves the expression invalid with libxml2's message.
    explicit XPathExpression(const std::string& expression);
    ~XPathExpression();
    XPathExpression(const XPathExpression&) = delete;
    XPathExpression& operator=(const XPathExpression&) = delete;
    // The moved-from expression is invalid (error() "XPath expression was moved").
    XPathExpression(XPathExpression&& other) noexcept;
    XPathExpression& operator=(XPathExpression&& other) noexcept;

    // True when the expression compiled.
    bool valid() const noexcept;
    // libxml2's message when not valid, else "".
    const std::string& error() const noexcept;
    // Evaluates with the document node as the context node. An invalid expression gives its
    // compile error; an empty document gives the error "no document loaded".
    XPathResult Evaluate(const XmlDocument& document, const XPathOptions& options = {}) const;
    // Evaluates with the handle's node as the context node (its document, if any, for absolute
    // paths); a handle without a node gives the error "no node".
    XPathResult Evaluate(const XmlNode& context, const XPathOptions& options = {}) const;

private:
    XPathResult run(_xmlDoc* document, _xmlNode* node, const XPathOptions& options) const;

    _xmlXPathCompExpr* compiled;
    std::string message;
};

// Compiles and evaluates once: XPathExpression(expression).Evaluate(document, options).
TARNXML_API XPathResult EvaluateXPath(const XmlDocument& document, const std::string& expression,
                                      const XPathOptions& options = {});

// Changes what a selected node holds, with `text` sanitised like every text that enters a tree:
// an element's whole content becomes one text node holding `text` (every child, CDATA and
// elements included, removed; no child at all for ""), an attribute gets the value, a text,
// CDATA, comment or processing instruction node the content. 0, or -1 for other kinds (namespace
// nodes, the document) and for a node without `raw`. The node must still be in a living tree;
// handles on removed children must not be used afterwards.
TARNXML_API int SetNodeText(const XPathNode& node, const std::string& text);

} // namespace tarn
