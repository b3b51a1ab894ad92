#include "ValueText.h"

#include "tarnxml/XmlHelper.h"


namespace tarn {
namespace detail {

bool equalsIgnoringAsciiCase(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
        return false;
    // The classic locale's toupper changes "a" to "z" and nothing else.
    const auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; };
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (upper(a[i]) != upper(b[i]))
            return false;
    }
    return true;
}

bool nodeTextBool(const std::string& text)
{
    if (text == TRUE_STRING)
        return true;
    if (text == FALSE_STRING)
        return false;
    if (text == VAR_TRUE_STRING)
        return true;
    if (text == VAR_FALSE_STRING)
        return false;
    if (text == "1")
        return true;
    if (text == "0")
        return false;
    if (text == "Y")
        return true;
    if (text == "N")
        return false;
    return ToLower(text) == "true";
}

bool attributeBool(const std::string& text)
{
    return text == "1" || equalsIgnoringAsciiCase(text, TRUE_STRING);
}

bool readerBool(const std::string& text)
{
    static const std::string trueWord = "true";
    return text == "1" || equalsIgnoringAsciiCase(text, trueWord);
}

} // namespace detail
} // namespace tarn
