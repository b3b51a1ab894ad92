// Attribute values through entity references: the same text as libxml2 gives, in linear time,
// and an empty text once a value expands past its budget.
#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include <string>

#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlReader.h"

namespace {

std::string repeated(const std::string& piece, int times)
{
    std::string out;
    out.reserve(piece.size() * static_cast<std::size_t>(times));
    for (int i = 0; i < times; ++i)
        out += piece;
    return out;
}

std::string libxmlValue(xmlChar* value)
{
    std::string out = value != nullptr ? reinterpret_cast<const char*>(value) : "";
    xmlFree(value);
    return out;
}

// Each attribute request of the reader on the root element (then value() on attribute v), from
// this library's reader or libxml2's own.
std::string readerRequests(const std::string& xml, bool raw)
{
    const char* const names[] = {"v", "p:v", "xmlns", "xmlns:p", "d", "missing", "q:v"};
    const char* const namespaced[][2] = {{"v", "urn:p"}, {"v", ""}, {"p", "http://www.w3.org/2000/xmlns/"},
                                         {"xmlns", "http://www.w3.org/2000/xmlns/"}};
    const auto x = [](const char* s) { return reinterpret_cast<const xmlChar*>(s); };
    tarn::XmlReader reader(xml);
    xmlTextReaderPtr r = xmlReaderForDoc(x(xml.c_str()), "", nullptr, 0);
    while (reader.read() && reader.nodeType() != tarn::XmlReaderNodeType::Element) {
    }
    while (xmlTextReaderRead(r) == 1 && xmlTextReaderNodeType(r) != 1) {
    }
    std::string out;
    for (const char* name : names)
        out += std::string(name) + "=" +
               (raw ? libxmlValue(xmlTextReaderGetAttribute(r, x(name))) : reader.getAttribute(name)) + ";";
    for (const auto& n : namespaced)
        out += std::string(n[0]) + "@" + n[1] + "=" +
               (raw ? libxmlValue(xmlTextReaderGetAttributeNs(r, x(n[0]), x(n[1]))) : reader.getAttribute(n[0], n[1])) +
               ";";
    if (raw ? xmlTextReaderMoveToAttribute(r, x("v")) == 1 : reader.moveToAttribute("v"))
        out += "value " + (raw ? libxmlValue(xmlTextReaderValue(r)) : reader.value());
    xmlFreeTextReader(r);
    return out;
}

TEST(EntityReads, SameTextAsLibxml2)
{
    const std::string dtd = "<!DOCTYPE r [<!ENTITY a 'A'><!ENTITY n '42'><!ENTITY nest 'x&a;y&amp;z'>"
                            "<!ENTITY empty ''><!ENTITY deep '&nest;&nest;'>"
                            "<!ATTLIST r d CDATA 'declared &a;'>]>";
    const char* const values[] = {
        "plain", "", "a&amp;b&lt;&#65;&#x42;", "&a;", "&n;", "1&a;2&a;3", "&nest;", "&empty;", "&empty;&a;",
        "&deep;-&deep;", "&#10;&a;&#9;",
    };
    for (const char* value : values) {
        const std::string xml = dtd + "<r v=\"" + value + "\"/>";
        SCOPED_TRACE(xml);
        tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(xml);
        ASSERT_TRUE(document);
        tarn::XmlNodePtr root = document->GetRoot();
        for (const char* name : {"v", "d", "missing"}) {
            const std::string expected = libxmlValue(
                xmlGetProp(root->getlibXML2Node(), reinterpret_cast<const xmlChar*>(name)));
            EXPECT_EQ(root->GetAttribute(name), expected) << name;
            EXPECT_EQ(root->HasAttribute(name), !expected.empty()) << name;
        }
        const std::string namespacedXml = dtd + "<r xmlns='urn:d' xmlns:p='urn:p' v=\"" + value + "\" p:v=\"" +
                                          value + "&a;\"/>";
        const std::string requests = readerRequests(namespacedXml, true);
        EXPECT_NE(requests.find("value "), std::string::npos);
        EXPECT_EQ(readerRequests(namespacedXml, false), requests);
    }
    tarn::XmlDocumentPtr typed = tarn::CreateXmlDocument(dtd + "<r v='&n;' b='&a;'/>");
    EXPECT_EQ(typed->GetRoot()->GetAttributeInt32("v"), 42);
    EXPECT_EQ(typed->GetRoot()->GetAttributeDouble("v"), 42.0);
}

// 300 000 references to a 10-byte entity: 3 MB of value. libxml2's concatenation copies the
// growing value at each reference (about 450 GB of copying); a linear read is milliseconds.
TEST(EntityReads, ManyReferencesReadInLinearTime)
{
    const std::string entity(10, 'e');
    const std::string refs = repeated("&a;", 300000);
    const std::string xml = "<!DOCTYPE r [<!ENTITY a '" + entity + "'>]><r v=\"" + refs + "\">" + refs + "</r>";
    tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(xml);
    ASSERT_TRUE(document);
    tarn::XmlNodePtr root = document->GetRoot();
    const std::string expected = repeated(entity, 300000);
    EXPECT_TRUE(root->GetAttribute("v") == expected);
    EXPECT_TRUE(root->HasAttribute("v"));
    EXPECT_EQ(root->GetAttributeInt32("v"), 0);
    EXPECT_EQ(root->GetData(), "");
    tarn::XmlReader reader(xml);
    ASSERT_TRUE(reader.read() && reader.read());
    EXPECT_TRUE(reader.getAttribute("v") == expected);
    EXPECT_TRUE(reader.getAttribute("v", nullptr) == expected);
    ASSERT_TRUE(reader.moveToAttribute("v"));
    EXPECT_TRUE(reader.value() == expected);
}

// 50 000 references to a 10 KB entity would be 500 MB: past the budget, the value reads "".
TEST(EntityReads, ExpansionPastItsBudgetReadsEmpty)
{
    const std::string xml = "<!DOCTYPE r [<!ENTITY a '" + std::string(10000, 'x') + "'>]><r v=\"" +
                            repeated("&a;", 50000) + "\" w='&a;&a;'/>";
    tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(xml);
    ASSERT_TRUE(document);
    tarn::XmlNodePtr root = document->GetRoot();
    EXPECT_EQ(root->GetAttribute("v"), "");
    EXPECT_FALSE(root->HasAttribute("v"));
    EXPECT_EQ(root->GetAttribute("w").size(), 20000u);
    tarn::XmlReader reader(xml);
    ASSERT_TRUE(reader.read() && reader.read());
    ASSERT_TRUE(reader.moveToAttribute("v"));
    EXPECT_EQ(reader.value(), "");
}

} // namespace
