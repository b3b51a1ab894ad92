// XPath evaluation shared by select and edit.
#include <libxml/xmlerror.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include "Select.h"

namespace tool {

Bindings parseBindings(const std::vector<std::string>& arguments) {
    Bindings bindings;
    for (const std::string& argument : arguments) {
        const std::string::size_type equals = argument.find('=');
        const std::string prefix = argument.substr(0, equals);
        if (equals == std::string::npos || prefix.empty() || prefix.find(':') != std::string::npos ||
            !isQualifiedName(prefix)) {
            throw ToolError(kExitUsage, "-N expects PREFIX=URI with PREFIX an XML name without a colon, got '" +
                                            argument + "'");
        }
        bindings.emplace_back(prefix, argument.substr(equals + 1));
    }
    return bindings;
}

XPath::XPath(const std::string& expression) : text_(expression), compiled_(nullptr) {
    ErrorCapture capture;
    compiled_ = xmlXPathCompile(reinterpret_cast<const xmlChar*>(expression.c_str()));
    if (compiled_ == nullptr) {
        ParseError error = capture.first();
        throw ToolError(kExitUsage, "invalid XPath expression '" + expression + "'" +
                                        (error.set ? ": " + error.message : std::string()));
    }
}

XPath::~XPath() {
    xmlXPathFreeCompExpr(compiled_);
}

XPath::XPath(XPath&& other) noexcept : text_(std::move(other.text_)), compiled_(other.compiled_) {
    other.compiled_ = nullptr;
}

Bindings documentBindings(const Loaded& loaded, const Bindings& given) {
    Bindings bindings;
    for (xmlNsPtr ns = loaded.root->getlibXML2Node()->nsDef; ns != nullptr; ns = ns->next) {
        const char* prefix = reinterpret_cast<const char*>(ns->prefix);
        bindings.emplace_back(prefix != nullptr ? prefix : "_", reinterpret_cast<const char*>(ns->href));
    }
    bindings.insert(bindings.end(), given.begin(), given.end());
    return bindings;
}

namespace {

SelectedNode describe(xmlNodePtr raw) {
    SelectedNode node;
    node.raw = raw;
    switch (raw->type) {
    case XML_ELEMENT_NODE: node.kind = SelectedNode::Element; break;
    case XML_ATTRIBUTE_NODE: node.kind = SelectedNode::Attribute; break;
    case XML_TEXT_NODE: node.kind = SelectedNode::Text; break;
    case XML_CDATA_SECTION_NODE: node.kind = SelectedNode::CData; break;
    case XML_COMMENT_NODE: node.kind = SelectedNode::Comment; break;
    case XML_PI_NODE: node.kind = SelectedNode::ProcessingInstruction; break;
    case XML_NAMESPACE_DECL: node.kind = SelectedNode::Namespace; break;
    case XML_DOCUMENT_NODE: node.kind = SelectedNode::Document; break;
    default: node.kind = SelectedNode::Other; break;
    }
    if (node.kind == SelectedNode::Namespace) {
        return node;
    }
    if (node.kind == SelectedNode::Element || node.kind == SelectedNode::Attribute ||
        node.kind == SelectedNode::ProcessingInstruction) {
        if (raw->ns != nullptr && raw->ns->prefix != nullptr) {
            node.name = std::string(reinterpret_cast<const char*>(raw->ns->prefix)) + ":";
        }
        node.name += reinterpret_cast<const char*>(raw->name);
    }
    std::unique_ptr<xmlChar, void (*)(void*)> value(xmlXPathCastNodeToString(raw), xmlFree);
    node.value = value ? reinterpret_cast<const char*>(value.get()) : "";
    xmlNodePtr handleNode = node.kind == SelectedNode::Attribute ? raw->parent : raw;
    if (node.kind != SelectedNode::Document && node.kind != SelectedNode::Other) {
        node.node = tarn::CreateXmlNode();
        node.node->Initialize(handleNode);
    }
    return node;
}

} // namespace

Evaluation XPath::evaluate(const Loaded& loaded, const Bindings& given, unsigned long maxSteps,
                           const SelectedNode* context_node) const {
    xmlDocPtr document = loaded.root->getlibXML2Node()->doc;
    std::unique_ptr<xmlXPathContext, void (*)(xmlXPathContextPtr)> context(xmlXPathNewContext(document),
                                                                            xmlXPathFreeContext);
    if (!context) {
        throw std::bad_alloc();
    }
    for (const auto& binding : documentBindings(loaded, given)) {
        xmlXPathRegisterNs(context.get(), reinterpret_cast<const xmlChar*>(binding.first.c_str()),
                           reinterpret_cast<const xmlChar*>(binding.second.c_str()));
    }
    context->opLimit = maxSteps;
    if (context_node != nullptr) {
        context->node = context_node->kind == SelectedNode::Attribute ? context_node->raw : context_node->node->getlibXML2Node();
    }
    ErrorCapture capture;
    std::unique_ptr<xmlXPathObject, void (*)(xmlXPathObjectPtr)> result(
        xmlXPathCompiledEval(compiled_, context.get()), xmlXPathFreeObject);
    if (!result) {
        ParseError error = capture.first();
        if (maxSteps != 0 && context->opCount >= maxSteps) {
            throw ToolError(kExitUsage, "XPath expression '" + text_ + "' stopped after " + std::to_string(maxSteps) +
                                            " steps (raise --max-steps, 0 for no limit)");
        }
        throw ToolError(kExitUsage, "cannot evaluate XPath expression '" + text_ + "'" +
                                        (error.set ? ": " + error.message : std::string()));
    }
    Evaluation evaluation;
    switch (result->type) {
    case XPATH_NODESET: evaluation.type = Evaluation::NodeSet; break;
    case XPATH_BOOLEAN: evaluation.type = Evaluation::Boolean; break;
    case XPATH_NUMBER: evaluation.type = Evaluation::Number; break;
    default: evaluation.type = Evaluation::String; break;
    }
    if (result->type == XPATH_NODESET && result->nodesetval != nullptr) {
        for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
            evaluation.nodes.push_back(describe(result->nodesetval->nodeTab[i]));
        }
    }
    std::unique_ptr<xmlChar, void (*)(void*)> text(xmlXPathCastToString(result.get()), xmlFree);
    evaluation.string = text ? reinterpret_cast<const char*>(text.get()) : "";
    return evaluation;
}

bool prefixDeclared(const tarn::XmlNode& element, const std::string& prefix) {
    xmlNodePtr raw = element.getlibXML2Node();
    return prefix == "xml" || xmlSearchNs(raw->doc, raw, reinterpret_cast<const xmlChar*>(prefix.c_str())) != nullptr;
}

int setNodeText(const SelectedNode& node, const std::string& text) {
    xmlNodePtr raw = node.raw;
    const xmlChar* value = reinterpret_cast<const xmlChar*>(text.c_str());
    switch (raw->type) {
    case XML_ELEMENT_NODE:
        xmlNodeSetContent(raw, nullptr);
        if (!text.empty()) {
            xmlNodeAddContentLen(raw, value, static_cast<int>(text.size()));
        }
        return 0;
    case XML_ATTRIBUTE_NODE: {
        xmlAttrPtr attribute = reinterpret_cast<xmlAttrPtr>(raw);
        return xmlSetNsProp(attribute->parent, attribute->ns, attribute->name, value) != nullptr ? 0 : -1;
    }
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
        xmlNodeSetContent(raw, value);
        return 0;
    default: return -1;
    }
}

std::string printDocument(const Loaded& loaded, bool format) {
    xmlChar* memory = nullptr;
    int size = 0;
    xmlDocDumpFormatMemory(loaded.root->getlibXML2Node()->doc, &memory, &size, format ? 1 : 0);
    std::unique_ptr<xmlChar, void (*)(void*)> owned(memory, xmlFree);
    if (!owned || size < 0) {
        throw std::bad_alloc();
    }
    return std::string(reinterpret_cast<const char*>(owned.get()), static_cast<std::size_t>(size));
}

} // namespace tool
