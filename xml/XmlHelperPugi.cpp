// The pugixml bridge: typed reads from pugixml nodes, conversion between pugixml documents and
// the libxml2-based tree, and printing of pugixml nodes with the numeric reference clean-up.
#include "tarnxml/XmlHelper.h"

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace XmlHelper {

namespace {

// Collects pugixml's printed output into a string, without a stream layer and without the final
// copy that std::ostringstream::str() costs. pugixml hands its output over in chunks of a few
// kilobytes. Small output goes straight into the string. Large output would make the string
// regrow again and again (each time copying everything and touching fresh pages), so past a
// limit it is collected in fixed blocks and copied once, into a string of the final size.
class StringSink final : public pugi::xml_writer {
public:
    explicit StringSink(std::string& out) : out_(out) { out_.reserve(kInitialReserve); }

    void write(const void* data, size_t size) override
    {
        const char* bytes = static_cast<const char*>(data);
        if (size == 0)
            return;
        scan(bytes, size);
        if (blocks_.empty() && out_.size() + size <= kDirectLimit) {
            out_.append(bytes, size);
            return;
        }
        while (size != 0) {
            if (blocks_.empty() || blocks_.back().size() == kBlockSize) {
                blocks_.emplace_back();
                blocks_.back().reserve(kBlockSize);
            }
            std::string& block = blocks_.back();
            const size_t take = std::min(size, kBlockSize - block.size());
            block.append(bytes, take);
            bytes += take;
            size -= take;
        }
    }

    // Moves the collected blocks into the string; call once after printing.
    void finish()
    {
        if (blocks_.empty())
            return;
        size_t total = out_.size();
        for (const std::string& block : blocks_)
            total += block.size();
        out_.reserve(total);
        for (const std::string& block : blocks_)
            out_.append(block);
        blocks_.clear();
    }

    // Whether the printed text may need the numeric reference clean-up: it holds "&#". (The
    // clean-up also stops at a zero byte, but pugixml prints only zero-terminated names and
    // values, so its output holds none.)
    bool needsCleanUp() const { return sawReference_; }

private:
    // Looks for "&#" while the chunk is still in cache, instead of a second pass over the whole
    // text afterwards. It searches for the "#", which is rare in XML, rather than the "&", which
    // every escape starts with. pugixml 1.13 writes escapes and names whole, but nothing promises
    // that a chunk never ends between the "&" and the "#", so that case is covered.
    void scan(const char* bytes, size_t size)
    {
        if (sawReference_)
            return;
        const char* end = bytes + size;
        const char* hash = static_cast<const char*>(std::memchr(bytes, '#', size));
        while (hash) {
            if (hash == bytes ? lastByte_ == '&' : hash[-1] == '&') {
                sawReference_ = true;
                return;
            }
            ++hash;
            hash = static_cast<const char*>(std::memchr(hash, '#', static_cast<size_t>(end - hash)));
        }
        lastByte_ = end[-1];
    }

    static constexpr size_t kInitialReserve = 1024;
    static constexpr size_t kDirectLimit = 64 * 1024;
    static constexpr size_t kBlockSize = 64 * 1024;

    std::string& out_;
    std::vector<std::string> blocks_;
    bool sawReference_ = false;
    char lastByte_ = '\0';
};

unsigned int printFlags(bool formatted)
{
    return formatted ? pugi::format_indent : pugi::format_raw;
}

const char* printIndent(bool formatted, const char* indent)
{
    return formatted && indent ? indent : "";
}

// The printed text after the numeric reference clean-up, which can change only text that holds
// "&#"; other text is handed back as it is, without the copy.
std::string cleanPrinted(std::string&& printed, const StringSink& sink)
{
    if (!sink.needsCleanUp())
        return std::move(printed);
    return replaceInvalidNumericEncodings(printed);
}

template <typename T, typename Read>
int readText(T& value, const pugi::xml_node& node, const char* name, Read read)
{
    const pugi::xml_node child = getFromNode(node, name);
    if (!child)
        return -1;
    const pugi::xml_text text = child.text();
    if (!text)
        return -1;
    value = read(text);
    return 0;
}

} // namespace

pugi::xml_node getFromNode(const pugi::xml_node& node, const char* name)
{
    if (!name)
        return node;
    return node.child(name);
}

int fromXml(bool& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_bool(false); });
}

int fromXml(double& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_double(0.0); });
}

int fromXml(int& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_int(0); });
}

int fromXml(unsigned int& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_uint(0); });
}

int fromXml(long long& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_llong(0); });
}

int fromXml(unsigned long long& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_ullong(0); });
}

int fromXml(std::string& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_string(""); });
}

bool convert(const tarn::XmlNodePtr& node, pugi::xml_document& document)
{
    if (!node)
        return false;
    const std::string text = node->OuterXml();
    if (text.empty())
        return false;
    return static_cast<bool>(document.load_string(text.c_str(), pugi::parse_full));
}

tarn::XmlNodePtr convert(pugi::xml_node node)
{
    if (!node)
        return tarn::XmlNodePtr();
    const std::string text = outerXml(node, false, nullptr);
    const tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(text);
    if (!document)
        return tarn::XmlNodePtr();
    const tarn::XmlNodePtr root = document->GetRoot();
    if (!root)
        return tarn::XmlNodePtr();
    return root->Clone();
}

std::string innerXml(const pugi::xml_node& node, bool formatted, const char* indent)
{
    std::string printed;
    if (!node)
        return printed;
    StringSink sink(printed);
    const char* unit = printIndent(formatted, indent);
    const unsigned int flags = printFlags(formatted);
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
        child.print(sink, unit, flags, pugi::encoding_auto, 0);
    sink.finish();
    return cleanPrinted(std::move(printed), sink);
}

std::string outerXml(const pugi::xml_node& node, bool formatted, const char* indent)
{
    std::string printed;
    if (!node)
        return printed;
    StringSink sink(printed);
    node.print(sink, printIndent(formatted, indent), printFlags(formatted), pugi::encoding_auto, 0);
    sink.finish();
    return cleanPrinted(std::move(printed), sink);
}

} // namespace XmlHelper
