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
    Loaded loaded;
    loaded.doc = tarn::CreateXmlDocument(text);
    if (loaded.doc)
        loaded.root = loaded.doc->GetRoot();
    return loaded;
}

const std::string kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// --- Attributes ---------------------------------------------------------------------------------

TEST(Attributes, TypedSettersStoreTheirText)
{
    struct Case { const char* expected; std::function<int(tarn::XmlNode&)> set; };
    const std::vector<Case> cases = {
        {"-2147483648", [](tarn::XmlNode& n) { return n.SetAttributeNumber("v", -2147483647 - 1); }},
        {"-5", [](tarn::XmlNode& n) { return n.SetAttributeInt32("v", -5); }},
        {"5", [](tarn::XmlNode& n) { return n.SetAttributeUInt32("v", 5u); }},
        {"4294967295", [](tarn::XmlNode& n) { return n.SetAttributeULONG("v", 4294967295u); }},
        {"-9223372036854775808", [](tarn::XmlNode& n) { return n.SetAttributeInt64("v", -9223372036854775807LL - 1); }},
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

TEST(Attributes, TypedGettersUseTheirOwnConversion)
{
    Loaded t = load("<e big=\"3000000000\" hex=\"0x1F\" neg=\"-3\" d=\"2.5\" blank=\"\"/>");
    ASSERT_TRUE(t.root);
    const tarn::XmlNode& e = *t.root;
    EXPECT_EQ(e.GetAttributeUInt32("big"), 3000000000u);
    EXPECT_EQ(e.GetAttributeULONG("big"), 3000000000u);
    EXPECT_EQ(e.GetAttributeInt64("big"), 3000000000LL);
    EXPECT_EQ(e.GetAttributeInt32("big"), 0);  // does not fit
    EXPECT_EQ(e.GetAttributeUINT64("hex"), 31u);  // the identifier reading takes hexadecimal
    EXPECT_EQ(e.GetAttributeUInt64("hex"), 0u);
    EXPECT_EQ(e.GetAttributeNumber("neg"), -3);
    EXPECT_DOUBLE_EQ(e.GetAttributeDouble("d"), 2.5);
    EXPECT_EQ(e.GetAttributeInt32("missing"), 0);
    EXPECT_EQ(e.GetAttributeCount(), 5);
}

TEST(Attributes, BoolReadsOneOrTrueInAnyCase)
{
    const std::vector<std::pair<const char*, bool>> cases = {
        {"1", true}, {"true", true}, {"TRUE", true}, {"tRuE", true}, {"01", false}, {" 1", false},
        {"Y", false}, {"0", false}, {"-1", false}, {"false", false}, {"true ", false}, {"", false}};
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

TEST(Attributes, SettingAgainReplacesTheValue)
{
    XmlNodePtr node = tarn::CreateXmlNode("e", std::string());
    EXPECT_EQ(node->SetAttribute("a", "x"), 0);
    EXPECT_EQ(node->SetAttribute("a", "y & <z>"), 0);
    EXPECT_EQ(node->GetAttributeCount(), 1);
    EXPECT_EQ(node->GetAttribute("a"), "y & <z>");  // stored literally, escaped when written
    EXPECT_EQ(node->OuterXml(), "<e a=\"y &amp; &lt;z&gt;\"/>");
}

TEST(Attributes, HandleWithoutNodeHasNone)
{
    XmlNodePtr node = tarn::CreateXmlNode();
    EXPECT_EQ(node->SetAttribute("a", "1"), -3);
    EXPECT_EQ(node->GetAttribute("a"), "");
    EXPECT_FALSE(node->HasAttribute("a"));
    EXPECT_FALSE(node->RemoveAttribute("a"));
    EXPECT_EQ(node->GetAttributeCount(), 0);
}

TEST(Attributes, CountSkipsNamespaceDeclarationsAndNonElements)
{
    Loaded t = load("<e xmlns='urn:u' xmlns:p='urn:v' p:a='1'><c/><d/> </e>");
    EXPECT_EQ(t.root->GetAttributeCount(), 1);
    EXPECT_EQ(t.root->GetChild()->GetAttributeCount(), 0);
    EXPECT_EQ(t.root->GetLastChild()->GetAttributeCount(), 0);  // a text node
}

TEST(Attributes, InvalidUtf8IsStoredRepairedAndRemovalRepairsTheName)
{
    XmlNodePtr node = tarn::CreateXmlNode("e", std::string());
    ASSERT_EQ(node->SetAttribute("n\xFFm", "a\xFF" "b\x01" "c"), 0);
    EXPECT_EQ(node->GetAttribute("n" + kReplacement + "m"), "a" + kReplacement + "b?c");
    EXPECT_EQ(node->GetAttribute("n\xFFm"), "");  // reads do not repair the name
    EXPECT_TRUE(node->RemoveAttribute("n\xFFm"));
    EXPECT_EQ(node->GetAttributeCount(), 0);

    const std::string longName(100000, 'n');
    const std::string longValue(1000000, 'v');
    EXPECT_EQ(node->SetAttribute(longName, longValue), 0);
    EXPECT_EQ(node->GetAttribute(longName), longValue);
}

TEST(Attributes, DefaultFromTheDtdIsReadButNotRemoved)
{
    Loaded t = load("<!DOCTYPE e [<!ATTLIST e d CDATA 'dv'>]><e/>");
    ASSERT_TRUE(t.root);
    EXPECT_EQ(t.root->GetAttribute("d"), "dv");
    EXPECT_FALSE(t.root->RemoveAttribute("d"));
    EXPECT_EQ(t.root->GetAttributeCount(), 0);
}

// --- Child lookup and child content --------------------------------------------------------------

TEST(Children, OnlyElementsCountButLastChildIsAnyKind)
{
    Loaded t = load("<r>text<a/><!--c--><b/><a/></r>");
    _xmlNode* r = t.root->getlibXML2Node();
    EXPECT_EQ(t.root->GetChildCount(), 3);
    EXPECT_EQ(t.root->GetChild()->getlibXML2Node(), r->children->next);
    EXPECT_EQ(t.root->GetChild("b")->GetName(), "b");
    EXPECT_TRUE(t.root->ChildExists("a"));
    EXPECT_FALSE(t.root->ChildExists("A"));
    EXPECT_EQ(t.root->GetLastChild()->getlibXML2Node(), r->last);

    Loaded blank = load("<r><a/> </r>");
    XmlNodePtr last = blank.root->GetLastChild();
    EXPECT_EQ(last->GetName(), "text");
    EXPECT_EQ(last->getlibXML2Node()->type, XML_TEXT_NODE);
    EXPECT_EQ(last->GetChildCount(), 0);
    EXPECT_FALSE(last->GetChild());

    Loaded childless = load("<r/>");
    for (XmlNodePtr none : {childless.root, tarn::CreateXmlNode()}) {
        EXPECT_FALSE(none->GetChild());
        EXPECT_FALSE(none->GetChild("a"));
        EXPECT_FALSE(none->GetLastChild());
        EXPECT_EQ(none->GetChildCount(), 0);
        EXPECT_EQ(none->RemoveChild("a"), -1);
    }
}

TEST(Children, EntityReferenceHasNoChildren)
{
    Loaded t = load("<!DOCTYPE r [<!ENTITY e '<x/>'>]><r>&e;</r>");
    XmlNodePtr ref = t.root->GetLastChild();
    ASSERT_EQ(ref->getlibXML2Node()->type, XML_ENTITY_REF_NODE);
    EXPECT_FALSE(ref->GetLastChild());
    EXPECT_FALSE(ref->GetChild());
    EXPECT_EQ(ref->GetChildCount(), 0);
}

TEST(Children, ContentOfPresentAndMissingChildren)
{
    tarntest::LogCapture capture;
    Loaded t = load("<r><n>7</n><e></e><big>3000000000</big><h>0x1F</h><d>2.5</d><f>1</f><g>Y</g>"
                    "<t>tRuE</t><x>a<i>1</i><j/></x></r>");
    const tarn::XmlNode& r = *t.root;
    struct Case { const char* name; long long present; long long missing; std::function<long long(const char*)> get; };
    const std::vector<Case> cases = {
        {"n", 7, -1, [&](const char* n) { return r.GetDataNumber(n); }},
        {"e", 0, -1, [&](const char* n) { return r.GetDataNumber(n); }},  // present, empty text
        {"n", 7, 0, [&](const char* n) { return r.GetChildDataNumber(n); }},
        {"n", 7, 0, [&](const char* n) { return r.GetChildDataInt32(n); }},
        {"big", 3000000000LL, 0, [&](const char* n) { return r.GetChildDataUInt(n); }},
        {"big", 3000000000LL, 0, [&](const char* n) { return r.GetChildDataULONG(n); }},
        {"big", 3000000000LL, 0, [&](const char* n) { return r.GetChildDataUInt32(n); }},
        {"big", 3000000000LL, 0, [&](const char* n) { return r.GetChildDataInt64(n); }},
        {"h", 0, 0, [&](const char* n) { return static_cast<long long>(r.GetChildDataUInt64(n)); }},
        {"h", 31, 0, [&](const char* n) { return static_cast<long long>(r.GetChildDataUINT64(n)); }},
        {"f", 1, 0, [&](const char* n) { return r.GetChildDataBool(n); }},
        {"g", 0, 0, [&](const char* n) { return r.GetChildDataBool(n); }},  // "Y" is not true here
        {"t", 1, 0, [&](const char* n) { return r.GetChildDataBool(n); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.get(c.name), c.present);
        EXPECT_EQ(c.get("missing"), c.missing);
    }
    EXPECT_DOUBLE_EQ(r.GetChildDataDouble("d"), 2.5);
    EXPECT_EQ(r.GetChildDataDouble("missing"), 0.0);
    EXPECT_EQ(r.GetChildData("x"), "a");
    EXPECT_EQ(r.GetData("n"), "7");
    EXPECT_EQ(r.GetChildInnerXml("x"), "a<i>1</i><j/>");
    EXPECT_EQ(r.GetChildData("missing"), "");
    EXPECT_EQ(r.GetChildInnerXml("missing"), "");
    EXPECT_TRUE(capture.assertions().empty());  // a missing child is not serialised
}

TEST(Children, BadNamesFindNothing)
{
    Loaded t = load("<r><a>1</a></r>");
    const std::vector<std::string> names = {"", "\xFF", "a\xC3", std::string("a\0b", 3), std::string(1 << 20, 'a')};
    for (const std::string& name : names) {
        SCOPED_TRACE(name.size());
        EXPECT_FALSE(t.root->ChildExists(name));
        EXPECT_FALSE(t.root->GetChild(name));
        EXPECT_EQ(t.root->GetDataNumber(name), -1);
        EXPECT_EQ(t.root->GetChildDataInt32(name), 0);
        EXPECT_EQ(t.root->RemoveChild(name), -1);
    }
    EXPECT_EQ(t.root->OuterXml(), "<r><a>1</a></r>");
}

TEST(Children, RemoveChildTakesEveryDirectMatchWithItsSubtree)
{
    Loaded t = load("<r><a/><b><a/></b><a><c/></a></r>");
    EXPECT_EQ(t.root->RemoveChild("a"), 0);
    EXPECT_EQ(t.root->OuterXml(), "<r><b><a/></b></r>");
    EXPECT_EQ(t.root->RemoveChild("a"), -1);

    // Each round rescans from the first child; the ones removed before are gone, so this is linear.
    std::string text = "<r>";
    for (int i = 0; i < 10000; ++i)
        text += "<a>x</a>";
    Loaded many = load(text + "<b/></r>");
    EXPECT_EQ(many.root->RemoveChild("a"), 0);
    EXPECT_EQ(many.root->OuterXml(), "<r><b/></r>");
}

TEST(Children, LookupsAreIndependentHandlesOnOneNode)
{
    Loaded t = load("<r><a>1</a></r>");
    XmlNodePtr first = t.root->GetChild("a");
    XmlNodePtr second = t.root->GetChild("a");
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->SetData("2"), 0);
    EXPECT_EQ(second->GetData(), "2");
    first.reset();  // frees nothing
    EXPECT_EQ(t.root->OuterXml(), "<r><a>2</a></r>");
}

// --- Clone and copy ------------------------------------------------------------------------------

TEST(Clone, DeepDetachedCopyThatOutlivesItsDocument)
{
    Loaded t = load("<p:r xmlns:p='urn:u'><p:a x='1'><b>t</b></p:a></p:r>");
    XmlNodePtr source = t.root->GetChild("a");
    XmlNodePtr clone = source->Clone();
    XmlNodePtr copy = source->Copy();
    ASSERT_TRUE(clone && copy);
    EXPECT_NE(clone->getlibXML2Node(), copy->getlibXML2Node());
    EXPECT_EQ(clone->getlibXML2Node()->parent, nullptr);
    EXPECT_EQ(clone->getlibXML2Node()->doc, nullptr);
    EXPECT_EQ(copy->OuterXml(), clone->OuterXml());
    EXPECT_EQ(clone->SetAttribute("x", "2"), 0);
    EXPECT_EQ(clone->GetChild("b")->SetData("u"), 0);
    EXPECT_EQ(source->OuterXml(), "<p:a x=\"1\"><b>t</b></p:a>");
    EXPECT_EQ(clone->GetChildCount(), 1);
    t = Loaded();  // the source document goes; the clone keeps its own namespace
    EXPECT_EQ(clone->OuterXml(), "<p:a xmlns:p=\"urn:u\" x=\"2\"><b>u</b></p:a>");
    EXPECT_FALSE(tarn::CreateXmlNode()->Clone());
}

TEST(Clone, OwnershipOnEveryPath)
{
    Loaded t = load("<r><a>t</a> </r>");
    // Dropped without being inserted, after growing: the handle frees the whole copy.
    XmlNodePtr dropped = t.root->Clone();
    EXPECT_EQ(dropped->AddChild("extra", std::string("1")), 0);
    dropped.reset();
    // A cloned text node.
    EXPECT_EQ(t.root->GetLastChild()->Clone()->GetName(), "text");
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
    EXPECT_EQ(copyRoot->OuterXml(), source->GetRoot()->OuterXml());
    EXPECT_EQ(copy->Load("<z/>", false), 0);
    EXPECT_EQ(source->GetRoot()->OuterXml(), "<r a=\"1\"><c/></r>");

    tarn::XmlDocumentPtr second = source->Copy();
    source.reset();  // the copy outlives its source
    EXPECT_EQ(second->GetRoot()->GetChildCount(), 1);

    EXPECT_FALSE(tarn::CreateXmlDocument()->Copy()->GetRoot());
    EXPECT_FALSE(tarn::CreateXmlDocument(tarn::XmlDocumentPtr()));
}

} // namespace
