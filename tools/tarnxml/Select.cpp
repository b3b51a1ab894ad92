// XPath evaluation shared by select and edit.
#include <libxml/xmlerror.h>
#include <libxml/xpath.h>

#include "Select.h"
#include "tarnxml/XmlIterators.h"

namespace tool {

void CompiledXPath::operator()(_xmlXPathCompExpr* expression) const {
    xmlXPathFreeCompExpr(expression);
}

CompiledXPathPtr compileXPath(const std::string& xpath) {
    ErrorCapture capture;
    CompiledXPathPtr compiled(xmlXPathCompile(reinterpret_cast<const xmlChar*>(xpath.c_str())));
    if (!compiled) {
        ParseError error = capture.first();
        throw ToolError(kExitUsage, "invalid XPath expression '" + xpath + "'" +
                                        (error.set ? ": " + error.message : std::string()));
    }
    return compiled;
}

std::vector<tarn::XmlNodePtr> selectElements(const Loaded& loaded, const std::string& xpath) {
    compileXPath(xpath);
    ErrorCapture capture;
    // The document's iterator keeps its previous result when an evaluation fails, so failure is
    // told by the error libxml2 raised, not by the iterator.
    tarn::XPathNodeIterator* iterator = loaded.document->GetIterator(xpath);
    if (capture.lastDomain() == XML_FROM_XPATH) {
        throw ToolError(kExitUsage, "cannot evaluate XPath expression '" + xpath + "': " + capture.last().message);
    }
    return collectElements(iterator);
}

bool scalarValue(const Loaded& loaded, _xmlXPathCompExpr* expression, std::string& value, int& nonElements) {
    nonElements = 0;
    xmlDocPtr document = loaded.root->getlibXML2Node()->doc;
    std::unique_ptr<xmlXPathContext, void (*)(xmlXPathContextPtr)> context(xmlXPathNewContext(document),
                                                                            xmlXPathFreeContext);
    if (!context) {
        throw std::bad_alloc();
    }
    ErrorCapture capture;
    std::unique_ptr<xmlXPathObject, void (*)(xmlXPathObjectPtr)> result(
        xmlXPathCompiledEval(expression, context.get()), xmlXPathFreeObject);
    if (!result) {
        return false;
    }
    if (result->type == XPATH_NODESET) {
        nonElements = result->nodesetval != nullptr ? result->nodesetval->nodeNr : 0;
        return false;
    }
    std::unique_ptr<xmlChar, void (*)(void*)> text(xmlXPathCastToString(result.get()), xmlFree);
    value = text ? reinterpret_cast<const char*>(text.get()) : "";
    return true;
}

} // namespace tool
