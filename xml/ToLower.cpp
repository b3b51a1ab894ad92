#include "tarnxml/XmlHelper.h"

#include <boost/algorithm/string/case_conv.hpp>

#include <locale>

std::string ToLower(const std::string& text)
{
    // boost::to_lower_copy with a default-constructed std::locale: the process's global locale,
    // byte by byte (bytes of multi-byte UTF-8 sequences go through the same mapping).
    return boost::algorithm::to_lower_copy(text, std::locale());
}
