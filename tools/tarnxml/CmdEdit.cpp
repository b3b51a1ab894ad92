// tarnxml edit: apply actions in order to the elements an XPath expression selects, then print
// the document or replace the file.
#include <memory>
#include <ostream>
#include <unordered_set>

#include <libxml/tree.h>

#include "Select.h"

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
    }
    return "?";
}

// NAME=VALUE split at the first "="; the name must not be empty.
std::pair<std::string, std::string> nameValue(const EditAction& action) {
    std::string::size_type equals = action.argument.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw ToolError(kExitUsage, std::string(actionName(action.kind)) + " expects NAME=VALUE, got '" +
                                        action.argument + "'");
    }
    return {action.argument.substr(0, equals), action.argument.substr(equals + 1)};
}

// Checks the action list before any input is read.
void validate(const EditOptions& options) {
    if (options.actions.empty()) {
        throw ToolError(kExitUsage, "nothing to do: give -x XPATH followed by actions");
    }
    if (options.actions.front().kind != EditAction::kSelect) {
        throw ToolError(kExitUsage, std::string(actionName(options.actions.front().kind)) +
                                        " needs a preceding -x XPATH");
    }
    for (const EditAction& action : options.actions) {
        if (action.kind == EditAction::kSelect) {
            compileXPath(action.argument);
        } else if (action.kind == EditAction::kSetAttr || action.kind == EditAction::kAppend) {
            nameValue(action);
        } else if (action.kind == EditAction::kDelAttr && action.argument.empty()) {
            throw ToolError(kExitUsage, "--del-attr expects an attribute name");
        }
    }
    if (options.inPlace && options.file == "-") {
        throw ToolError(kExitUsage, "--in-place needs a file, not standard input");
    }
}

// Removes the selected elements. An element inside another selected element goes with its
// ancestor (its handle is never used after the ancestor's subtree is freed); the root element
// stays, since a document cannot be left without one.
void deleteElements(const std::vector<tarn::XmlNodePtr>& selection, Streams& io) {
    auto isRoot = [](xmlNodePtr raw) { return raw->parent == nullptr || raw->parent->type == XML_DOCUMENT_NODE; };
    std::unordered_set<xmlNodePtr> selected;
    for (const tarn::XmlNodePtr& node : selection) {
        if (!isRoot(node->getlibXML2Node())) {
            selected.insert(node->getlibXML2Node());
        }
    }
    std::vector<tarn::XmlNodePtr> outermost;
    for (const tarn::XmlNodePtr& node : selection) {
        xmlNodePtr raw = node->getlibXML2Node();
        if (isRoot(raw)) {
            io.err << "tarnxml edit: the root element cannot be deleted; left in place\n";
            continue;
        }
        bool insideAnother = false;
        for (xmlNodePtr up = raw->parent; up != nullptr && !insideAnother; up = up->parent) {
            insideAnother = selected.count(up) != 0;
        }
        if (!insideAnother) {
            outermost.push_back(node);
        }
    }
    for (const tarn::XmlNodePtr& node : outermost) {
        node->Remove();
    }
}

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
    validate(options);
    Loaded loaded;
    if (!loadFile(options.file, io, loaded)) {
        return kExitNotFound;
    }
    int result = kExitOk;
    std::vector<tarn::XmlNodePtr> selection;
    for (const EditAction& action : options.actions) {
        switch (action.kind) {
        case EditAction::kSelect:
            selection = selectElements(loaded, action.argument);
            if (selection.empty()) {
                io.err << "tarnxml edit: '" << action.argument << "' selects no element\n";
                result = kExitNotFound;
            }
            break;
        case EditAction::kSetText:
            for (const tarn::XmlNodePtr& node : selection) {
                node->SetData(action.argument);
            }
            break;
        case EditAction::kSetAttr: {
            auto [name, value] = nameValue(action);
            for (const tarn::XmlNodePtr& node : selection) {
                if (node->SetAttribute(name, value) != 0) {
                    io.err << "tarnxml edit: cannot set attribute '" << name << "'\n";
                    result = kExitUsage;
                }
            }
            break;
        }
        case EditAction::kDelAttr:
            for (const tarn::XmlNodePtr& node : selection) {
                node->RemoveAttribute(action.argument);
            }
            break;
        case EditAction::kAppend: {
            auto [name, value] = nameValue(action);
            for (const tarn::XmlNodePtr& node : selection) {
                if (node->AddChild(name, value) != 0) {
                    io.err << "tarnxml edit: cannot append element '" << name << "'\n";
                    result = kExitUsage;
                }
            }
            break;
        }
        case EditAction::kDelete:
            deleteElements(selection, io);
            selection.clear();  // those handles refer to freed nodes now
            break;
        }
    }
    std::string output = serialise(loaded);
    if (options.inPlace) {
        replaceFile(options.file, output);
    } else {
        io.out << output;
    }
    return result;
}

} // namespace tool
