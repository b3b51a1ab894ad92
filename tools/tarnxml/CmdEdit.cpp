// tarnxml edit: apply actions in order to the nodes an XPath expression selects, then print the
// document or replace the file. Everything is checked before anything is written: a bad name,
// an expression that does not give a node set or an unbound prefix ends the run with exit 2 and
// no output.
#include <memory>
#include <ostream>
#include <unordered_set>

#include "Select.h"
#include "tarnxml/XmlEdit.h"
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

// True when `node` lies inside (not at) one of `ancestors`: an attribute inside its owner's
// ancestors, any other node inside its parents.
bool inside(const SelectedNode& node, const std::unordered_set<_xmlNode*>& ancestors) {
    _xmlNode* up = tarn::ParentNode(node.raw);
    if (node.kind == SelectedNode::Attribute) {
        up = tarn::ParentNode(up);
    }
    for (; up != nullptr; up = tarn::ParentNode(up)) {
        if (ancestors.count(up) != 0) {
            return true;
        }
    }
    return false;
}

class Editor {
public:
    Editor(Loaded& loaded, Streams& io) : loaded_(loaded), io_(io) {}

    void select(const XPath& xpath, const Bindings& bindings, unsigned long maxSteps) {
        tarn::XPathResult evaluation = xpath.evaluate(loaded_, bindings, maxSteps);
        if (evaluation.type != tarn::XPathResult::NodeSet) {
            throw ToolError(kExitUsage, "-x '" + xpath.text() + "' gives a " + typeName(evaluation.type) + " (" +
                                            evaluation.string + "), not a set of nodes to edit; nothing written");
        }
        selection_.clear();
        for (SelectedNode& node : evaluation.nodes) {
            if (node.kind != SelectedNode::Namespace && node.kind != SelectedNode::Document &&
                node.kind != SelectedNode::Other) {
                selection_.push_back(std::move(node));
            }
        }
        if (selection_.empty()) {
            io_.err << "tarnxml edit: -x '" << xpath.text() << "' selects nothing\n";
        }
    }

    void apply(const EditAction& action) {
        switch (action.kind) {
        case EditAction::kSelect: break;
        case EditAction::kSetText: setText(action); break;
        case EditAction::kSetAttr: {
            auto [name, value] = nameValue(action);
            forElements(action, [&](_xmlNode* element) {
                check(action, name, element, tarn::SetQualifiedAttribute(element, name, value));
            });
            break;
        }
        case EditAction::kDelAttr:
            forElements(action, [&](_xmlNode* element) {
                // An attribute that is not there is no error; an unbound prefix is.
                bindable(action, action.argument, element);
                tarn::RemoveQualifiedAttribute(element, action.argument);
            });
            break;
        case EditAction::kDelete: remove(); break;
        case EditAction::kAppend:
        case EditAction::kInsertBefore:
        case EditAction::kInsertAfter: insert(action); break;
        case EditAction::kRename:
            forElements(action, [&](_xmlNode* element) {
                check(action, action.argument, element, tarn::RenameNode(element, action.argument));
            });
            break;
        }
    }

private:
    static const char* typeName(tarn::XPathResult::Type type) {
        return type == tarn::XPathResult::Boolean ? "boolean" : type == tarn::XPathResult::Number ? "number" : "string";
    }

    bool isRoot(const SelectedNode& node) const { return node.raw == loaded_.root->getlibXML2Node(); }

    // The names were checked up front; what the library can still refuse is a prefix the
    // document does not declare where the name is used.
    void bindable(const EditAction& action, const std::string& name, _xmlNode* element) {
        const std::string prefix = prefixOf(name);
        if (prefix.empty() || prefix == "xml") {
            return;
        }
        tarn::XmlNodePtr handle = tarn::CreateXmlNode();
        handle->Initialize(element);
        if (!prefixDeclared(*handle, prefix)) {
            throw ToolError(kExitUsage, std::string(actionName(action.kind)) + ": the prefix '" + prefix + "' of '" +
                                            name + "' is not declared at <" + handle->GetName() + ">; nothing written");
        }
    }

    void check(const EditAction& action, const std::string& name, _xmlNode* element, int result) {
        if (result != 0) {
            bindable(action, name, element);
            throw ToolError(kExitUsage, std::string(actionName(action.kind)) + " '" + action.argument +
                                            "' cannot be applied here; nothing written");
        }
    }

    template <class Function>
    void forElements(const EditAction& action, Function function) {
        int skipped = 0;
        for (const SelectedNode& node : selection_) {
            if (node.kind == SelectedNode::Element) {
                function(node.raw);
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
        std::unordered_set<_xmlNode*> replaced;
        for (const SelectedNode& node : selection_) {
            if (node.kind == SelectedNode::Element) {
                replaced.insert(node.raw);
            }
        }
        std::vector<SelectedNode> kept;
        for (SelectedNode& node : selection_) {
            if (!inside(node, replaced)) {
                kept.push_back(std::move(node));
            }
        }
        selection_ = std::move(kept);
        for (const SelectedNode& node : selection_) {
            if (tarn::SetNodeText(node, action.argument) != 0) {
                throw ToolError(kExitUsage, "--set-text cannot be applied to the selected node; nothing written");
            }
        }
    }

    // Removes the selected nodes. A node inside another selected node goes with it; the root
    // element stays, since a document cannot be left without one.
    void remove() {
        std::unordered_set<_xmlNode*> selected;
        for (const SelectedNode& node : selection_) {
            selected.insert(node.raw);
        }
        std::vector<_xmlNode*> outermost;
        for (const SelectedNode& node : selection_) {
            if (isRoot(node)) {
                io_.err << "tarnxml edit: the root element cannot be deleted; left in place\n";
            } else if (!inside(node, selected)) {
                outermost.push_back(node.raw);
            }
        }
        selection_.clear();  // those nodes are about to be freed
        for (_xmlNode* raw : outermost) {
            tarn::RemoveNode(raw);
        }
    }

    void insert(const EditAction& action) {
        auto [name, value] = nameValue(action);
        const tarn::XmlInsertPosition where = action.kind == EditAction::kAppend ? tarn::XmlInsertPosition::LastChild
                                              : action.kind == EditAction::kInsertBefore ? tarn::XmlInsertPosition::Before
                                                                                         : tarn::XmlInsertPosition::After;
        forElements(action, [&](_xmlNode* element) {
            if (where != tarn::XmlInsertPosition::LastChild && element == loaded_.root->getlibXML2Node()) {
                throw ToolError(kExitUsage, std::string(actionName(action.kind)) +
                                                ": a document has one root element; nothing can stand beside it");
            }
            _xmlNode* scope = where == tarn::XmlInsertPosition::LastChild ? element : tarn::ParentNode(element);
            check(action, name, scope, tarn::InsertElement(element, where, name, value));
        });
    }

    Loaded& loaded_;
    Streams& io_;
    std::vector<SelectedNode> selection_;
};

} // namespace

int runEdit(const EditOptions& options, Streams& io) {
    const Bindings bindings = parseBindings(options.namespaces);
    const std::vector<XPath> expressions = validate(options);
    Loading loading;
    loading.huge = options.huge;
    // Edits stay inside the document, which libxml2 keeps consistent with its dictionary; the
    // dictionary makes the load faster and the tree smaller (as xmlstarlet loads).
    loading.readOnly = true;
    Loaded loaded;
    if (!loadFile(options.file, loading, io, loaded)) {
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
    tarn::XmlSaveOptions save;
    save.encoding = loaded.encoding;
    if (options.inPlace) {
        replaceFile(options.file, [&](std::ostream& out) { return loaded.document->SaveTo(out, save); });
    } else if (!loaded.document->SaveTo(io.out, save)) {
        throw ToolError(kExitUsage, options.file + ": the document could not be printed");
    }
    return kExitOk;
}

} // namespace tool
