// Attributes, child lookup and child content, clone and copy. Ownership paths are checked by
// running under AddressSanitizer/LeakSanitizer: a leak or a double free fails the run.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <libxml/tree.h>

#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace {

using tarn::XmlNodePtr;

struct Loaded {
    tarn::XmlDocumentPtr doc;
    XmlNodePtr root;
};

Loaded load(const std::string& text)
{
    tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(text);
    return {doc, doc->GetRoot()};
}

const std::string kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// --- Attributes ---------------------------------------------------------------------------------

TEST(Attributes, TypedSettersStoreTheirText)
{
    struct Case { const char* expected; std::function<int(tarn::XmlNode&)> set; };
    const std::vector<Case> cases = {
        {"-2147483648", [](tarn::XmlNode& n) { return n.SetAttributeNumber("v", -2147483647 - 1); }},
        {"18446744073709551615", [](tarn::XmlNode& n) { return n.SetAttributeUInt64("v", 18446744073709551615ULL); }},
        {"0.5", [](tarn::XmlNode& n) { return n.SetAttributeDouble("v", 0.5); }},
        {"true", [](tarn::XmlNode& n) { return n.SetAttributeBool("v", true); }},
        {"false", [](tarn::XmlNode& n) { return n.SetAttributeBool("v", false); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        XmlNodePtr node = tarn::CreateXmlNode("e", std::string());
        EXPECT_EQ(c.set(*node), 0);
        EXPECT_EQ(node->OuterXml(), std::string("<e v=\"") + c.expected + "\"/>");
        XmlNodePtr empty = tarn::CreateXmlNode();
        EXPECT_EQ(c.set(*empty), -3);
    }
}


TEST(Attributes, BoolReadsOneOrTrueInAnyCase)
{
    const std::vector<std::pair<const char*, bool>> cases = {
        {"1", true}, {"tRuE", true}, {"01", false}, {"Y", false}, {"-1", false}, {"true ", false}, {"", false}};
    XmlNodePtr node = tarn::CreateXmlNode("e", std::string());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        ASSERT_EQ(node->SetAttribute("b", c.first), 0);
        EXPECT_EQ(node->GetAttributeBool("b"), c.second);
    }
    EXPECT_FALSE(node->GetAttributeBool("missing"));
}

TEST(Attributes, EmptyValueCountsAsAbsentButCanBeRemoved)
{
    Loaded t = load("<e a=\"\"/>");
    EXPECT_EQ(t.root->GetAttribute("a"), "");
    EXPECT_FALSE(t.root->HasAttribute("a"));
    EXPECT_TRUE(t.root->RemoveAttribute("a"));
    EXPECT_FALSE(t.root->RemoveAttribute("a"));
    EXPECT_EQ(t.root->OuterXml(), "<e/>");
}



TEST(Attributes, InvalidUtf8IsStoredRepairedAndRemovalRepairsTheName)
{
    XmlNodePtr node = tarn::CreateXmlNode("e", std::string());
    ASSERT_EQ(node->SetAttribute("n\xFFm", "a\xFF" "b\x01" "c"), 0);
    EXPECT_EQ(node->GetAttribute("n" + kReplacement + "m"), "a" + kReplacement + "b?c");
    EXPECT_EQ(node->GetAttribute("n\xFFm"), "");  // reads do not repair the name
    EXPECT_TRUE(node->RemoveAttribute("n\xFFm"));
    EXPECT_EQ(node->GetAttributeCount(), 0);
}


// --- Child lookup and child content --------------------------------------------------------------

TEST(Children, OnlyElementsCountButLastChildIsAnyKind)
{
    Loaded t = load("<r>text<a/><!--c--><b/><a/></r>");
    _xmlNode* r = t.root->getlibXML2Node();
    EXPECT_EQ(t.root->GetChildCount(), 3);
    EXPECT_EQ(t.root->GetChild()->getlibXML2Node(), r->children->next);
    EXPECT_FALSE(t.root->ChildExists("A"));
    EXPECT_EQ(t.root->GetLastChild()->getlibXML2Node(), r->last);

    Loaded childless = load("<r/>");
    for (XmlNodePtr none : {childless.root, tarn::CreateXmlNode()}) {
        EXPECT_FALSE(none->GetChild() || none->GetChild("a") || none->GetLastChild());
        EXPECT_EQ(none->GetChildCount(), 0);
        EXPECT_EQ(none->RemoveChild("a"), -1);
    }
}


TEST(Children, ContentOfPresentAndMissingChildren)
{
    tarntest::LogCapture capture;
    Loaded t = load("<r><n>7</n><e></e><big>3000000000</big><h>0x1F</h><d>2.5</d><f>1</f><g>Y</g>"
                    "<t>tRuE</t><x>a<i>1</i><j/></x></r>");
    const tarn::XmlNode& r = *t.root;
    struct Case { const char* name; long long present, missing; std::function<long long(const char*)> get; };
    const std::vector<Case> cases = {
        {"n", 7, -1, [&](const char* n) { return r.GetDataNumber(n); }},
        {"e", 0, -1, [&](const char* n) { return r.GetDataNumber(n); }},  // present, empty text
        {"n", 7, 0, [&](const char* n) { return r.GetChildDataNumber(n); }},
        {"big", 3000000000LL, 0, [&](const char* n) { return r.GetChildDataUInt(n); }},
        {"h", 0, 0, [&](const char* n) { return static_cast<long long>(r.GetChildDataUInt64(n)); }},
        {"h", 31, 0, [&](const char* n) { return static_cast<long long>(r.GetChildDataUINT64(n)); }},
        {"f", 1, 0, [&](const char* n) { return r.GetChildDataBool(n); }},
        {"g", 0, 0, [&](const char* n) { return r.GetChildDataBool(n); }},  // "Y" is not true here
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.get(c.name), c.present);
        EXPECT_EQ(c.get("missing"), c.missing);
    }
    EXPECT_DOUBLE_EQ(r.GetChildDataDouble("d"), 2.5);
    EXPECT_EQ(r.GetChildDataDouble("missing"), 0.0);
    EXPECT_EQ(r.GetChildInnerXml("x"), "a<i>1</i><j/>");
    EXPECT_EQ(r.GetChildInnerXml("missing"), "");
    EXPECT_TRUE(capture.assertions().empty());  // a missing child is not serialised
}


TEST(Children, RemoveChildTakesEveryDirectMatchWithItsSubtree)
{
    Loaded t = load("<r><a/><b><a/></b><a><c/></a></r>");
    EXPECT_EQ(t.root->RemoveChild("a"), 0);
    EXPECT_EQ(t.root->OuterXml(), "<r><b><a/></b></r>");
    EXPECT_EQ(t.root->RemoveChild("a"), -1);
}


// --- Clone and copy ------------------------------------------------------------------------------


TEST(Clone, OwnershipOnEveryPath)
{
    Loaded t = load("<r><a>t</a> </r>");
    // Dropped without being inserted, after growing: the handle frees the whole copy.
    XmlNodePtr dropped = t.root->Clone();
    EXPECT_EQ(dropped->AddChild("extra", std::string("1")), 0);
    dropped.reset();
    // Removed through its own handle: freed once.
    XmlNodePtr removed = t.root->Clone();
    removed->Remove();
    EXPECT_EQ(removed->getlibXML2Node(), nullptr);
    // Inserted into another document: that tree frees it, the handle keeps referring to it.
    Loaded other = load("<o/>");
    XmlNodePtr inserted = t.root->GetChild("a")->Clone();
    EXPECT_EQ(other.root->AddChild(inserted), 0);
    EXPECT_EQ(inserted->GetName(), "a");
    inserted.reset();
    EXPECT_EQ(other.root->OuterXml(), "<o><a>t</a></o>");
    EXPECT_EQ(t.root->OuterXml(), "<r><a>t</a> </r>");
}

TEST(DocumentCopy, SharesNothingWithTheSource)
{
    tarn::XmlDocumentPtr source = tarn::CreateXmlDocument("<r a='1'><c/></r>");
    tarn::XmlDocumentPtr copy = tarn::CreateXmlDocument(source);
    ASSERT_TRUE(copy);
    XmlNodePtr copyRoot = copy->GetRoot();
    EXPECT_NE(copyRoot.get(), source->GetRoot().get());
    EXPECT_NE(copyRoot->getlibXML2Node(), source->GetRoot()->getlibXML2Node());
    EXPECT_EQ(copy->Load("<z/>", false), 0);
    EXPECT_EQ(source->GetRoot()->OuterXml(), "<r a=\"1\"><c/></r>");

    tarn::XmlDocumentPtr second = source->Copy();
    source.reset();  // the copy outlives its source
    EXPECT_EQ(second->GetRoot()->GetChildCount(), 1);

    EXPECT_FALSE(tarn::CreateXmlDocument(tarn::XmlDocumentPtr()));
}

} // namespace
