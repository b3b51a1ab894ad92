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

XPath::XPath(const std::string& expression)
    : text_(expression), compiled_(expression), counted_("count(" + expression + ")") {
    if (!compiled_.valid()) {
        throw ToolError(kExitUsage, "invalid XPath expression '" + expression + "': " + compiled_.error());
    }
}

tarn::XPathOptions XPath::options(const Loaded& loaded, const Bindings& given, unsigned long maxSteps) const {
    tarn::XPathOptions options;
    for (const auto& declared : loaded.root->GetNamespacesInScope()) {
        options.namespaces.emplace_back(declared.first.empty() ? "_" : declared.first, declared.second);
    }
    options.namespaces.insert(options.namespaces.end(), given.begin(), given.end());
    // The library reads 0 as its own default bound; the tool's 0 means none.
    options.maxSteps = maxSteps != 0 ? maxSteps : std::numeric_limits<unsigned long>::max();
    return options;
}

void XPath::check(const tarn::XPathResult& result, unsigned long maxSteps) const {
    if (result.stepLimitReached) {
        throw ToolError(kExitUsage, "XPath expression '" + text_ + "' stopped after " + std::to_string(maxSteps) +
                                        " steps (raise --max-steps, 0 for no limit)");
    }
    if (!result.ok()) {
        throw ToolError(kExitUsage, "cannot evaluate XPath expression '" + text_ + "': " + result.error);
    }
}

tarn::XPathResult XPath::evaluate(const Loaded& loaded, const Bindings& given, unsigned long maxSteps,
                                  const tarn::XmlNode* context) const {
    const tarn::XPathOptions bound = options(loaded, given, maxSteps);
    tarn::XPathResult result =
        context != nullptr ? compiled_.Evaluate(*context, bound) : compiled_.Evaluate(*loaded.document, bound);
    check(result, maxSteps);
    return result;
}

bool XPath::count(const Loaded& loaded, const Bindings& given, unsigned long maxSteps, std::size_t& number) const {
    // count() of an expression that is not a node set is a type error: the caller then evaluates
    // the expression itself, which reports any other error with its own text.
    if (!counted_.valid()) {
        return false;
    }
    const tarn::XPathResult result = counted_.Evaluate(*loaded.document, options(loaded, given, maxSteps));
    if (result.stepLimitReached) {
        check(result, maxSteps);
    }
    if (result.type != tarn::XPathResult::Number) {
        return false;
    }
    number = static_cast<std::size_t>(result.number);
    return true;
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
