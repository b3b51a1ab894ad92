// Editing by node (XmlEdit.h): insertion beside a node, renaming, removal and namespace-aware
// attributes, on nodes found the way an XPath caller finds them (attributes included).
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlEdit.h"

namespace {

const char* const kDoc = "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"n\">t<!--c--></a><x:b/></r>";

// The first node `xpath` selects in the document (prefixes d and x bound).
_xmlNode* find(const tarn::XmlDocumentPtr& document, const std::string& xpath)
{
    xmlDocPtr doc = document->GetRoot()->getlibXML2Node()->doc;
    std::unique_ptr<xmlXPathContext, void (*)(xmlXPathContextPtr)> context(xmlXPathNewContext(doc), xmlXPathFreeContext);
    const auto text = [](const std::string& s) { return reinterpret_cast<const xmlChar*>(s.c_str()); };
    xmlXPathRegisterNs(context.get(), text("d"), text("urn:d"));
    xmlXPathRegisterNs(context.get(), text("x"), text("urn:x"));
    std::unique_ptr<xmlXPathObject, void (*)(xmlXPathObjectPtr)> result(
        xmlXPathEvalExpression(text(xpath), context.get()), xmlXPathFreeObject);
    return result && result->nodesetval && result->nodesetval->nodeNr > 0 ? result->nodesetval->nodeTab[0] : nullptr;
}

TEST(XmlEdit, EachOperationFollowsTheNamespacesInScopeOrRefuses)
{
    using tarn::XmlInsertPosition;
    struct Case { const char* xpath; std::function<int(_xmlNode*)> edit; int code; const char* root; };
    const Case cases[] = {
        // Unprefixed new elements take the default namespace in scope, so the tree means what it prints.
        {"//d:a", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::Before, "n", "1<"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><n>1&lt;</n><a href=\"p\" x:href=\"n\">t<!--c--></a><x:b/></r>"},
        {"//d:a/comment()", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::After, "x:n", ""); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"n\">t<!--c--><x:n/></a><x:b/></r>"},
        {"//x:b", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::LastChild, "z", "v"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"n\">t<!--c--></a><x:b><z>v</z></x:b></r>"},
        {"/d:r", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::After, "n", ""); }, -1, nullptr},
        {"//d:a", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::Before, "q:n", ""); }, -1, nullptr},
        {"//d:a", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::Before, "1n", ""); }, -1, nullptr},
        {"//d:a/@x:href", [](_xmlNode* n) { return tarn::InsertElement(n, XmlInsertPosition::Before, "n", ""); }, -1, nullptr},
        {"//d:a", [](_xmlNode* n) { return tarn::RenameNode(n, "x:c"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><x:c href=\"p\" x:href=\"n\">t<!--c--></x:c><x:b/></r>"},
        {"//x:b", [](_xmlNode* n) { return tarn::RenameNode(n, "c"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"n\">t<!--c--></a><c/></r>"},
        {"//d:a/@href", [](_xmlNode* n) { return tarn::RenameNode(n, "x:k"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a x:k=\"p\" x:href=\"n\">t<!--c--></a><x:b/></r>"},
        {"//d:a/@href", [](_xmlNode* n) { return tarn::RenameNode(n, "x:href"); }, -1, nullptr},
        {"//d:a", [](_xmlNode* n) { return tarn::RenameNode(n, "q:c"); }, -1, nullptr},
        {"//d:a/@x:href", [](_xmlNode* n) { return tarn::RemoveNode(n); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\">t<!--c--></a><x:b/></r>"},
        {"//d:a/text()", [](_xmlNode* n) { return tarn::RemoveNode(n); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"n\"><!--c--></a><x:b/></r>"},
        {"//d:a", [](_xmlNode* n) { return tarn::RemoveNode(n); }, 0, "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><x:b/></r>"},
        {"/d:r", [](_xmlNode* n) { return tarn::RemoveNode(n); }, -1, nullptr},
        // href and x:href are different attributes.
        {"//d:a", [](_xmlNode* n) { return tarn::SetQualifiedAttribute(n, "x:href", "m"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"m\">t<!--c--></a><x:b/></r>"},
        {"//d:a", [](_xmlNode* n) { return tarn::SetQualifiedAttribute(n, "xml:lang", "de"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a href=\"p\" x:href=\"n\" xml:lang=\"de\">t<!--c--></a><x:b/></r>"},
        {"//d:a", [](_xmlNode* n) { return tarn::SetQualifiedAttribute(n, "q:k", "1"); }, -1, nullptr},
        {"//d:a", [](_xmlNode* n) { return tarn::SetQualifiedAttribute(n, "xmlns:q", "urn:q"); }, -1, nullptr},
        {"//d:a", [](_xmlNode* n) { return tarn::RemoveQualifiedAttribute(n, "href"); }, 0,
         "<r xmlns=\"urn:d\" xmlns:x=\"urn:x\"><a x:href=\"n\">t<!--c--></a><x:b/></r>"},
        {"//x:b", [](_xmlNode* n) { return tarn::RemoveQualifiedAttribute(n, "href"); }, -1, nullptr},
        {"//d:a", [](_xmlNode*) { return tarn::RenameNode(nullptr, "a") + tarn::RemoveNode(nullptr) + 6; }, 0, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(kDoc);
        _xmlNode* node = find(document, c.xpath);
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(c.code, c.edit(node));
        EXPECT_EQ(c.root != nullptr ? c.root : kDoc, document->GetRoot()->OuterXml());
    }
    tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(kDoc);
    _xmlNode* attribute = find(document, "//d:a/@href");
    EXPECT_EQ(find(document, "//d:a"), tarn::ParentNode(attribute));
    EXPECT_EQ(nullptr, tarn::ParentNode(tarn::ParentNode(tarn::ParentNode(tarn::ParentNode(attribute)))));
}

} // namespace
