// Attributes, child lookup and child content, clone and copy. Ownership paths are checked by
// running under AddressSanitizer/LeakSanitizer: a leak or a double free fails the run.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <libxml/tree.h>

#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace {

using tarn::XmlNodePtr;

struct Loaded { tarn::XmlDocumentPtr doc; XmlNodePtr root; };

Loaded load(const std::string& text)
{
    tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(text);
    return {doc, doc->GetRoot()};
}

// --- Attributes ---------------------------------------------------------------------------------

TEST(Attributes, TypedSettersStoreTheirTextAndBoolReadsOneOrTrueInAnyCase)
{
    const std::function<int(tarn::XmlNode&)> setters[] = {
        [](tarn::XmlNode& n) { return n.SetAttributeNumber("i", -2147483647 - 1); },
        [](tarn::XmlNode& n) { return n.SetAttributeUInt64("u", 18446744073709551615ULL); },
        [](tarn::XmlNode& n) { return n.SetAttributeDouble("d", 0.5); },
        [](tarn::XmlNode& n) { return n.SetAttributeBool("t", true); },
        [](tarn::XmlNode& n) { return n.SetAttributeBool("f", false); },
    };
    XmlNodePtr node = tarn::CreateXmlNode("e", std::string()), none = tarn::CreateXmlNode();
    for (const auto& set : setters)
        EXPECT_EQ(std::make_pair(set(*node), set(*none)), std::make_pair(0, -3));
    EXPECT_EQ(node->OuterXml(), "<e i=\"-2147483648\" u=\"18446744073709551615\" d=\"0.5\" t=\"true\" f=\"false\"/>");
    // The attribute rule (each text in test_frame): "Y" and "-1" are true only for node text.
    for (const auto& [text, expected] : {std::pair<const char*, bool>{"1", true}, {"tRuE", true}, {"Y", false}, {"-1", false}}) {
        ASSERT_EQ(node->SetAttribute("b", text), 0);
        EXPECT_EQ(node->GetAttributeBool("b"), expected) << text;
    }
    EXPECT_FALSE(node->GetAttributeBool("missing"));
}

// An empty value counts as absent but can be removed; invalid UTF-8 is stored repaired, and
// removal repairs the name as the setter did while reads do not.
TEST(Attributes, EmptyValuesAndInvalidUtf8)
{
    Loaded t = load("<e a=\"\"/>");
    EXPECT_TRUE(t.root->GetAttribute("a").empty() && !t.root->HasAttribute("a"));
    EXPECT_TRUE(t.root->RemoveAttribute("a") && !t.root->RemoveAttribute("a"));
    ASSERT_EQ(t.root->SetAttribute("n\xFFm", "a\xFF" "b\x01" "c"), 0);
    EXPECT_EQ(t.root->GetAttribute("n\xEF\xBF\xBDm"), "a\xEF\xBF\xBD" "b?c"); // U+FFFD for the bad byte
    EXPECT_EQ(t.root->GetAttribute("n\xFFm"), "");
    EXPECT_TRUE(t.root->RemoveAttribute("n\xFFm"));
    EXPECT_EQ(t.root->OuterXml(), "<e/>");
}

// --- Child lookup and child content --------------------------------------------------------------

TEST(Children, OnlyElementsCountButLastChildIsAnyKindAndRemovalTakesEveryMatch)
{
    Loaded t = load("<r>text<a/><!--c--><b><a/></b><a><c/></a></r>");
    EXPECT_TRUE(t.root->GetChildCount() == 3 && !t.root->ChildExists("A")); // names match case-sensitively
    EXPECT_EQ(t.root->GetChild()->getlibXML2Node(), t.root->getlibXML2Node()->children->next);
    EXPECT_EQ(t.root->GetLastChild()->getlibXML2Node(), t.root->getlibXML2Node()->last);
    EXPECT_EQ(t.root->RemoveChild("a"), 0); // every direct match with its subtree, not the nested one
    EXPECT_EQ(t.root->OuterXml(), "<r>text<!--c--><b><a/></b></r>");

    Loaded childless = load("<r/>");
    for (XmlNodePtr none : {childless.root, tarn::CreateXmlNode(), t.root->GetChild()->GetChild()}) {
        EXPECT_FALSE(none->GetChild() || none->GetChild("a") || none->GetLastChild());
        EXPECT_EQ(none->GetChildCount(), 0);
        EXPECT_EQ(none->RemoveChild("a"), -1);
    }
}

TEST(Children, ContentOfPresentAndMissingChildren)
{
    tarntest::LogCapture capture;
    Loaded t = load("<r><n>7</n><e></e><big>3000000000</big><h>0x1F</h><d>2.5</d><f>1</f><g>Y</g><x>a<i>1</i><j/></x>"
                    "<k><![CDATA[9]]><!--c-->5</k></r>");
    const tarn::XmlNode& r = *t.root;
    struct Case { const char* name; long long present, missing; std::function<long long(const char*)> get; };
    const Case cases[] = {
        {"n", 7, -1, [&](const char* n) { return r.GetDataNumber(n); }},
        {"e", 0, -1, [&](const char* n) { return r.GetDataNumber(n); }}, // present, empty text
        {"n", 7, 0, [&](const char* n) { return r.GetChildDataNumber(n); }},
        {"big", 3000000000LL, 0, [&](const char* n) { return r.GetChildDataUInt(n); }},
        {"h", 0, 0, [&](const char* n) { return static_cast<long long>(r.GetChildDataUInt64(n)); }},
        {"h", 31, 0, [&](const char* n) { return static_cast<long long>(r.GetChildDataUINT64(n)); }},
        {"f", 1, 0, [&](const char* n) { return r.GetChildDataBool(n); }},
        {"g", 0, 0, [&](const char* n) { return r.GetChildDataBool(n); }}, // "Y" is not true here
        {"k", 5, 0, [&](const char* n) { return r.GetChildDataInt32(n); }}, // the first text node, not CDATA
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.get(c.name), c.present);
        EXPECT_EQ(c.get("missing"), c.missing);
    }
    EXPECT_EQ(std::make_pair(r.GetChildDataDouble("d"), r.GetChildDataDouble("missing")), std::make_pair(2.5, 0.0));
    EXPECT_EQ(r.GetChildData("x") + "|" + r.GetData("missing") + "|" + r.GetData("k"), "a||5");
    EXPECT_EQ(r.GetChildInnerXml("x") + "|" + r.GetChildInnerXml("missing"), "a<i>1</i><j/>|");
    EXPECT_TRUE(capture.assertions().empty()); // a missing child is not serialised
}

// --- Clone and copy ------------------------------------------------------------------------------

TEST(Clone, OwnershipOnEveryPath)
{
    Loaded t = load("<r><a>t</a> </r>"), other = load("<o/>");
    // Dropped without being inserted, after growing: the handle frees the whole copy.
    EXPECT_EQ(t.root->Clone()->AddChild("extra", std::string("1")), 0);
    // Inserted into another document: that tree frees it, the handle keeps referring to it.
    XmlNodePtr inserted = t.root->GetChild("a")->Clone();
    EXPECT_EQ(other.root->AddChild(inserted), 0);
    EXPECT_EQ(inserted->GetName(), "a");
    inserted.reset();
    EXPECT_EQ(other.root->OuterXml() + t.root->OuterXml(), "<o><a>t</a></o><r><a>t</a> </r>");
}

TEST(DocumentCopy, SharesNothingWithTheSource)
{
    tarn::XmlDocumentPtr source = tarn::CreateXmlDocument("<r a='1'><c/></r>");
    tarn::XmlDocumentPtr copy = tarn::CreateXmlDocument(source), second = source->Copy();
    ASSERT_TRUE(copy && second);
    EXPECT_EQ(copy->Load("<z/>", false), 0);
    EXPECT_EQ(source->GetRoot()->OuterXml(), "<r a=\"1\"><c/></r>");
    source.reset(); // the copy outlives its source
    EXPECT_EQ(second->GetRoot()->OuterXml(), "<r a=\"1\"><c/></r>");
    EXPECT_FALSE(tarn::CreateXmlDocument(tarn::XmlDocumentPtr()));
}

} // namespace
