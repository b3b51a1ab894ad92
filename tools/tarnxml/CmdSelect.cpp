// tarnxml select: print what an XPath expression selects, in one or several files.
#include <algorithm>
#include <memory>
#include <ostream>

#include "Select.h"

namespace tool {

namespace {

// Writes one result, each of its lines prefixed with "FILE:" when several files are searched.
void emit(Streams& io, const std::string& prefix, const std::string& text) {
    if (prefix.empty()) {
        io.out << text << '\n';
        return;
    }
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type end = text.find('\n', start);
        io.out << prefix << text.substr(start, end == std::string::npos ? std::string::npos : end - start) << '\n';
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
}

// The printed form of one selected node: the document (/) as a whole, elements, comments and PIs
// as markup, everything else as its string value.
std::string printed(const SelectedNode& node, const Loaded& loaded) {
    switch (node.kind) {
    case SelectedNode::Document: {
        std::string whole = loaded.document->ToString(tarn::XmlSaveOptions());
        if (!whole.empty() && whole.back() == '\n') {
            whole.pop_back();
        }
        return whole;
    }
    case SelectedNode::Element: return node.node->FragmentXml();
    case SelectedNode::Comment:
    case SelectedNode::ProcessingInstruction: return node.node->OuterXml();
    default: return node.value;
    }
}

// Selects in one loaded document; the number of results printed.
std::size_t selectIn(const SelectOptions& options, const XPath& xpath, const XPath* attribute,
                     const Bindings& bindings, const Loaded& loaded, const std::string& prefix, Streams& io) {
    std::size_t number = 0;
    if (options.count && xpath.count(loaded, bindings, options.maxSteps, number)) {
        emit(io, prefix, std::to_string(number));
        return number;
    }
    tarn::XPathResult evaluation = xpath.evaluate(loaded, bindings, options.maxSteps);
    if (evaluation.type != tarn::XPathResult::NodeSet) {
        emit(io, prefix, evaluation.string);
        return 1;
    }
    if (options.count) {
        emit(io, prefix, std::to_string(evaluation.nodes.size()));
        return evaluation.nodes.size();
    }
    std::size_t count = 0;
    for (const SelectedNode& node : evaluation.nodes) {
        if (attribute != nullptr) {
            if (node.kind != SelectedNode::Element) {
                continue;
            }
            tarn::XPathResult found = attribute->evaluate(loaded, bindings, options.maxSteps, node.node.get());
            for (const SelectedNode& value : found.nodes) {
                emit(io, prefix, value.value);
                ++count;
            }
        } else if (options.text && node.kind == SelectedNode::Element) {
            emit(io, prefix, node.node->GetData());
            ++count;
        } else {
            emit(io, prefix, options.value || options.text ? node.value : printed(node, loaded));
            ++count;
        }
    }
    return count;
}

} // namespace

int runSelect(const SelectOptions& options, Streams& io) {
    const Bindings bindings = parseBindings(options.namespaces);
    const XPath xpath(options.xpath);
    std::unique_ptr<XPath> attribute;
    if (!options.attribute.empty()) {
        if (!isQualifiedName(options.attribute)) {
            throw ToolError(kExitUsage, "--attr: '" + options.attribute + "' is not an XML name");
        }
        attribute = std::make_unique<XPath>("@" + options.attribute);
    }
    const std::vector<std::string> files = options.files.empty() ? std::vector<std::string>{"-"} : options.files;
    Loading loading;
    loading.huge = options.huge;
    loading.readOnly = true;
    int worst = kExitOk;
    std::size_t total = 0;
    for (const std::string& file : files) {
        Loaded loaded;
        try {
            if (!loadFile(file, loading, io, loaded)) {
                worst = std::max(worst, static_cast<int>(kExitNotFound));
                continue;
            }
        } catch (const ToolError& error) {
            if (files.size() == 1) {
                throw;
            }
            io.err << "tarnxml select: " << error.what() << '\n';
            worst = std::max(worst, error.code());
            continue;
        }
        total += selectIn(options, xpath, attribute.get(), bindings, loaded, files.size() > 1 ? file + ":" : "", io);
    }
    return total == 0 ? std::max(worst, static_cast<int>(kExitNotFound)) : worst;
}

} // namespace tool
