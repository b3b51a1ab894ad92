// tarnxml edit: apply actions in order to the nodes an XPath expression selects, then print the
// document or replace the file. Everything is checked before anything is written: a bad name,
// an expression that does not give a node set or an unbound prefix ends the run with exit 2 and
// no output.
#include <memory>
#include <ostream>
#include <unordered_set>

#include <libxml/tree.h>

#include "Select.h"
#include "tarnxml/XmlHelper.h"

namespace tool {

namespace {

const char* actionName(EditAction::Kind kind) {
    switch (kind) {
    case EditAction::kSelect: return "-x";
    case EditAction::kSetText: return "--set-text";
    case EditAction::kSetAttr: return "--set-attr";
    case EditAction::kDelAttr: return "--del-attr";
    case EditAction::kDelete: return "--delete";
    case EditAction::kAppend: return "--append";
    case EditAction::kRename: return "--rename";
    case EditAction::kInsertBefore: return "--insert-before";
    case EditAction::kInsertAfter: return "--insert-after";
    }
    return "?";
}

bool takesNameValue(EditAction::Kind kind) {
    return kind == EditAction::kSetAttr || kind == EditAction::kAppend || kind == EditAction::kInsertBefore ||
           kind == EditAction::kInsertAfter;
}

// Text the library would repair on the way in (invalid UTF-8, control characters) is refused
// rather than written changed.
void checkText(const EditAction& action, const std::string& text) {
    if (!text.empty() && !XmlHelper::isValidUTF8(text)) {
        throw ToolError(kExitUsage, std::string(actionName(action.kind)) +
                                        ": the value holds invalid UTF-8 or a control character XML does not allow");
    }
}

// NAME=VALUE split at the first "="; NAME must be a qualified XML name.
std::pair<std::string, std::string> nameValue(const EditAction& action) {
    std::string::size_type equals = action.argument.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw ToolError(kExitUsage, std::string(actionName(action.kind)) + " expects NAME=VALUE, got '" +
                                        action.argument + "'");
    }
    std::pair<std::string, std::string> result{action.argument.substr(0, equals), action.argument.substr(equals + 1)};
    if (!isQualifiedName(result.first)) {
        throw ToolError(kExitUsage, std::string(actionName(action.kind)) + ": '" + result.first +
                                        "' is not an XML name");
    }
    checkText(action, result.second);
    return result;
}

void checkName(const EditAction& action) {
    if (!isQualifiedName(action.argument)) {
        throw ToolError(kExitUsage, std::string(actionName(action.kind)) + ": '" + action.argument +
                                        "' is not an XML name");
    }
}

// Checks the action list and compiles every expression before any input is read.
std::vector<XPath> validate(const EditOptions& options) {
    if (options.actions.empty()) {
        throw ToolError(kExitUsage, "nothing to do: give -x XPATH followed by actions");
    }
    if (options.actions.front().kind != EditAction::kSelect) {
        throw ToolError(kExitUsage, std::string(actionName(options.actions.front().kind)) +
                                        " needs a preceding -x XPATH");
    }
    std::vector<XPath> compiled;
    for (const EditAction& action : options.actions) {
        if (action.kind == EditAction::kSelect) {
            compiled.emplace_back(action.argument);
        } else if (takesNameValue(action.kind)) {
            auto [name, value] = nameValue(action);
            if (action.kind == EditAction::kSetAttr && (name == "xmlns" || prefixOf(name) == "xmlns")) {
                throw ToolError(kExitUsage, "--set-attr: namespace declarations ('" + name + "') cannot be set");
            }
        } else if (action.kind == EditAction::kDelAttr || action.kind == EditAction::kRename) {
            checkName(action);
        } else if (action.kind == EditAction::kSetText) {
            checkText(action, action.argument);
        }
    }
    if (options.inPlace && options.file == "-") {
        throw ToolError(kExitUsage, "--in-place needs a file, not standard input");
    }
    return compiled;
}

bool isRoot(xmlNodePtr raw) {
    return raw->type == XML_ELEMENT_NODE && (raw->parent == nullptr || raw->parent->type == XML_DOCUMENT_NODE);
}

// The namespace a prefixed name refers to at `element`; ToolError when the document does not
// declare the prefix there ("xml" is always bound).
xmlNsPtr namespaceFor(xmlNodePtr element, const std::string& name, const EditAction& action) {
    const std::string prefix = prefixOf(name);
    if (prefix.empty()) {
        return nullptr;
    }
    xmlNsPtr ns = xmlSearchNs(element->doc, element, reinterpret_cast<const xmlChar*>(prefix.c_str()));
    if (ns == nullptr) {
        throw ToolError(kExitUsage, std::string(actionName(action.kind)) + ": the prefix '" + prefix + "' of '" +
                                        name + "' is not declared at <" +
                                        reinterpret_cast<const char*>(element->name) + ">");
    }
    return ns;
}

// True when `raw` lies inside (not at) one of `ancestors`: an attribute inside its owner's
// ancestors, any other node inside its parents.
bool inside(xmlNodePtr raw, const std::unordered_set<xmlNodePtr>& ancestors) {
    xmlNodePtr up = raw->type == XML_ATTRIBUTE_NODE ? raw->parent : raw;
    for (up = up != nullptr ? up->parent : nullptr; up != nullptr; up = up->parent) {
        if (ancestors.count(up) != 0) {
            return true;
        }
    }
    return false;
}

xmlNodePtr newElement(xmlNodePtr near, const std::string& name, const std::string& value, const EditAction& action) {
    xmlNsPtr ns = namespaceFor(near, name, action);
    const std::string local = ns != nullptr ? name.substr(name.find(':') + 1) : name;
    xmlNodePtr element = xmlNewDocNode(near->doc, ns, reinterpret_cast<const xmlChar*>(local.c_str()), nullptr);
    if (element == nullptr) {
        throw std::bad_alloc();
    }
    if (!value.empty()) {
        xmlNodeAddContentLen(element, reinterpret_cast<const xmlChar*>(value.data()), static_cast<int>(value.size()));
    }
    return element;
}

class Editor {
public:
    Editor(Loaded& loaded, Streams& io) : loaded_(loaded), io_(io) {}

    void select(const XPath& xpath, const Bindings& bindings, unsigned long maxSteps) {
        Evaluation evaluation = xpath.evaluate(loaded_, bindings, maxSteps);
        if (evaluation.type != Evaluation::NodeSet) {
            throw ToolError(kExitUsage, "-x '" + xpath.text() + "' gives a " + typeName(evaluation.type) + " (" +
                                            evaluation.string + "), not a set of nodes to edit; nothing written");
        }
        selection_.clear();
        for (SelectedNode& node : evaluation.nodes) {
            if (node.kind == SelectedNode::Namespace || node.kind == SelectedNode::Document) {
                continue;
            }
            selection_.push_back(node.raw);
        }
        if (selection_.empty()) {
            io_.err << "tarnxml edit: -x '" << xpath.text() << "' selects nothing\n";
        }
    }

    void apply(const EditAction& action) {
        switch (action.kind) {
        case EditAction::kSelect: break;
        case EditAction::kSetText: setText(action); break;
        case EditAction::kSetAttr: setAttribute(action); break;
        case EditAction::kDelAttr: forElements(action, [&](xmlNodePtr element) { removeAttribute(element, action); }); break;
        case EditAction::kDelete: remove(); break;
        case EditAction::kAppend:
        case EditAction::kInsertBefore:
        case EditAction::kInsertAfter: insert(action); break;
        case EditAction::kRename: rename(action); break;
        }
    }

private:
    static const char* typeName(Evaluation::Type type) {
        return type == Evaluation::Boolean ? "boolean" : type == Evaluation::Number ? "number" : "string";
    }

    template <class Function>
    void forElements(const EditAction& action, Function function) {
        int skipped = 0;
        for (xmlNodePtr raw : selection_) {
            if (raw->type == XML_ELEMENT_NODE) {
                function(raw);
            } else {
                ++skipped;
            }
        }
        if (skipped > 0) {
            io_.err << "tarnxml edit: " << actionName(action.kind) << " applies to elements; " << skipped
                    << " other selected node(s) left alone\n";
        }
    }

    // An element's whole content becomes the one text; an attribute's, a text's, a CDATA
    // section's, a comment's or a PI's value becomes the text. Nodes inside an element whose
    // content is replaced are gone afterwards and leave the selection.
    void setText(const EditAction& action) {
        const std::string& text = action.argument;
        std::unordered_set<xmlNodePtr> replaced;
        for (xmlNodePtr raw : selection_) {
            if (raw->type == XML_ELEMENT_NODE) {
                replaced.insert(raw);
            }
        }
        std::vector<xmlNodePtr> kept;
        for (xmlNodePtr raw : selection_) {
            if (!inside(raw, replaced)) {
                kept.push_back(raw);
            }
        }
        selection_ = kept;
        for (xmlNodePtr raw : selection_) {
            const xmlChar* value = reinterpret_cast<const xmlChar*>(text.c_str());
            switch (raw->type) {
            case XML_ELEMENT_NODE:
                xmlNodeSetContent(raw, nullptr);
                if (!text.empty()) {
                    xmlNodeAddContentLen(raw, value, static_cast<int>(text.size()));
                }
                break;
            case XML_ATTRIBUTE_NODE: {
                xmlAttrPtr attribute = reinterpret_cast<xmlAttrPtr>(raw);
                xmlSetNsProp(attribute->parent, attribute->ns, attribute->name, value);
                break;
            }
            case XML_TEXT_NODE:
            case XML_CDATA_SECTION_NODE:
            case XML_COMMENT_NODE:
            case XML_PI_NODE:
                xmlNodeSetContent(raw, value);
                break;
            default: break;
            }
        }
    }

    void setAttribute(const EditAction& action) {
        auto [name, value] = nameValue(action);
        forElements(action, [&](xmlNodePtr element) {
            xmlNsPtr ns = namespaceFor(element, name, action);
            const std::string local = ns != nullptr ? name.substr(name.find(':') + 1) : name;
            if (xmlSetNsProp(element, ns, reinterpret_cast<const xmlChar*>(local.c_str()),
                             reinterpret_cast<const xmlChar*>(value.c_str())) == nullptr) {
                throw std::bad_alloc();
            }
        });
    }

    void removeAttribute(xmlNodePtr element, const EditAction& action) {
        const std::string& name = action.argument;
        const std::string prefix = prefixOf(name);
        xmlNsPtr ns = prefix.empty() ? nullptr : namespaceFor(element, name, action);
        const std::string local = prefix.empty() ? name : name.substr(prefix.size() + 1);
        xmlAttrPtr attribute = xmlHasNsProp(element, reinterpret_cast<const xmlChar*>(local.c_str()),
                                            ns != nullptr ? ns->href : nullptr);
        if (attribute != nullptr && attribute->type == XML_ATTRIBUTE_NODE) {
            xmlRemoveProp(attribute);
        }
    }

    // Removes the selected nodes. A node inside another selected node goes with it; the root
    // element stays, since a document cannot be left without one.
    void remove() {
        std::unordered_set<xmlNodePtr> selected(selection_.begin(), selection_.end());
        std::vector<xmlNodePtr> outermost;
        for (xmlNodePtr raw : selection_) {
            if (isRoot(raw)) {
                io_.err << "tarnxml edit: the root element cannot be deleted; left in place\n";
            } else if (!inside(raw, selected)) {
                outermost.push_back(raw);
            }
        }
        for (xmlNodePtr raw : outermost) {
            if (raw->type == XML_ATTRIBUTE_NODE) {
                xmlRemoveProp(reinterpret_cast<xmlAttrPtr>(raw));
            } else {
                xmlUnlinkNode(raw);
                xmlFreeNode(raw);
            }
        }
        selection_.clear();  // those nodes are freed
    }

    void insert(const EditAction& action) {
        auto [name, value] = nameValue(action);
        forElements(action, [&](xmlNodePtr element) {
            if (action.kind != EditAction::kAppend && isRoot(element)) {
                throw ToolError(kExitUsage, std::string(actionName(action.kind)) +
                                                ": a document has one root element; nothing can stand beside it");
            }
            xmlNodePtr fresh = newElement(action.kind == EditAction::kAppend ? element : element->parent, name, value,
                                          action);
            xmlNodePtr placed = action.kind == EditAction::kAppend         ? xmlAddChild(element, fresh)
                                : action.kind == EditAction::kInsertBefore ? xmlAddPrevSibling(element, fresh)
                                                                            : xmlAddNextSibling(element, fresh);
            if (placed == nullptr) {
                xmlFreeNode(fresh);
                throw std::bad_alloc();
            }
        });
    }

    void rename(const EditAction& action) {
        const std::string& name = action.argument;
        forElements(action, [&](xmlNodePtr element) {
            xmlNsPtr ns = namespaceFor(element, name, action);
            const std::string local = ns != nullptr ? name.substr(name.find(':') + 1) : name;
            // An unprefixed name keeps the element in the default namespace in scope.
            if (ns == nullptr) {
                ns = xmlSearchNs(element->doc, element, nullptr);
            }
            xmlNodeSetName(element, reinterpret_cast<const xmlChar*>(local.c_str()));
            xmlSetNs(element, ns);
        });
    }

    Loaded& loaded_;
    Streams& io_;
    std::vector<xmlNodePtr> selection_;
};

std::string serialise(const Loaded& loaded) {
    xmlChar* memory = nullptr;
    int size = 0;
    xmlDocDumpMemory(loaded.root->getlibXML2Node()->doc, &memory, &size);
    std::unique_ptr<xmlChar, void (*)(void*)> owned(memory, xmlFree);
    if (!owned || size < 0) {
        throw std::bad_alloc();
    }
    return std::string(reinterpret_cast<const char*>(owned.get()), static_cast<std::size_t>(size));
}

} // namespace

int runEdit(const EditOptions& options, Streams& io) {
    const Bindings bindings = parseBindings(options.namespaces);
    const std::vector<XPath> expressions = validate(options);
    Loaded loaded;
    if (!loadFile(options.file, io, loaded)) {
        return kExitNotFound;
    }
    Editor editor(loaded, io);
    std::size_t next = 0;
    for (const EditAction& action : options.actions) {
        if (action.kind == EditAction::kSelect) {
            editor.select(expressions.at(next++), bindings, options.maxSteps);
        } else {
            editor.apply(action);
        }
    }
    std::string output = serialise(loaded);
    if (options.inPlace) {
        replaceFile(options.file, output);
    } else {
        io.out << output;
    }
    return kExitOk;
}

} // namespace tool
