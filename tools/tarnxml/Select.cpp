// XPath evaluation shared by select and edit.
#include <limits>

#include "Select.h"

namespace tool {

Bindings parseBindings(const std::vector<std::string>& arguments) {
    Bindings bindings;
    for (const std::string& argument : arguments) {
        const std::string::size_type equals = argument.find('=');
        const std::string prefix = argument.substr(0, equals);
        if (equals == std::string::npos || prefix.find(':') != std::string::npos || !isQualifiedName(prefix)) {
            throw ToolError(kExitUsage, "-N expects PREFIX=URI with PREFIX an XML name without a colon, got '" +
                                            argument + "'");
        }
        bindings.emplace_back(prefix, argument.substr(equals + 1));
    }
    return bindings;
}

XPath::XPath(const std::string& expression) : text_(expression), compiled_(expression) {
    if (!compiled_.valid()) {
        throw ToolError(kExitUsage, "invalid XPath expression '" + expression + "': " + compiled_.error());
    }
}

tarn::XPathResult XPath::evaluate(const Loaded& loaded, const Bindings& given, unsigned long maxSteps,
                                  const tarn::XmlNode* context) const {
    tarn::XPathOptions options;
    for (const auto& declared : loaded.root->GetNamespacesInScope()) {
        options.namespaces.emplace_back(declared.first.empty() ? "_" : declared.first, declared.second);
    }
    options.namespaces.insert(options.namespaces.end(), given.begin(), given.end());
    // The library reads 0 as its own default bound; the tool's 0 means none.
    options.maxSteps = maxSteps != 0 ? maxSteps : std::numeric_limits<unsigned long>::max();
    tarn::XPathResult result =
        context != nullptr ? compiled_.Evaluate(*context, options) : compiled_.Evaluate(*loaded.document, options);
    if (result.stepLimitReached) {
        throw ToolError(kExitUsage, "XPath expression '" + text_ + "' stopped after " + std::to_string(maxSteps) +
                                        " steps (raise --max-steps, 0 for no limit)");
    }
    if (!result.ok()) {
        throw ToolError(kExitUsage, "cannot evaluate XPath expression '" + text_ + "': " + result.error);
    }
    return result;
}

bool prefixDeclared(const tarn::XmlNode& element, const std::string& prefix) {
    if (prefix == "xml") {
        return true;
    }
    for (const auto& declared : element.GetNamespacesInScope()) {
        if (declared.first == prefix) {
            return true;
        }
    }
    return false;
}

} // namespace tool
