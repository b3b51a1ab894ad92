// The typed value bridge over node handles (XmlHelper::getFromNode / AddChild / toXml / fromXml)
// and the two product records written through it.
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "tarn/shared.h"
#include "tarnxml/XmlNode.h"

namespace {

using std::string;
using tarn::XmlNodePtr;

constexpr const char* kHelperSource = "../tarnshared/xml/XmlHelper";

XmlNodePtr element(const string& name, const string& value = "")
{
    XmlNodePtr node = tarn::CreateXmlNode(name, value);
    EXPECT_TRUE(node && node->getlibXML2Node());
    return node;
}

// Every assertion report captured so far names the helper source file; returns their count.
std::size_t helperReports(const tarntest::LogCapture& capture)
{
    const auto reports = capture.assertions();
    for (const auto& report : reports)
        EXPECT_EQ(report.file, kHelperSource);
    return reports.size();
}

// --- toXml ----------------------------------------------------------------------------------------

TEST(TypedBridgeToXml, EachTypeAppendsOneChildWithItsText)
{
    struct Case {
        const char* label;
        std::function<int(XmlNodePtr&)> store;
        string text;
    };
    const string withZero("ab\0cd", 5);
    const Case cases[] = {
        {"int -5", [](XmlNodePtr& p) { return XmlHelper::toXml(-5, p, "n"); }, "-5"},
        {"int min", [](XmlNodePtr& p) { return XmlHelper::toXml(std::numeric_limits<int>::min(), p, "n"); },
         "-2147483648"},
        {"unsigned max", [](XmlNodePtr& p) { return XmlHelper::toXml(4294967295u, p, "n"); }, "4294967295"},
        {"long long min",
         [](XmlNodePtr& p) { return XmlHelper::toXml(std::numeric_limits<long long>::min(), p, "n"); },
         "-9223372036854775808"},
        {"unsigned long long max", [](XmlNodePtr& p) { return XmlHelper::toXml(18446744073709551615ull, p, "n"); },
         "18446744073709551615"},
        {"double", [](XmlNodePtr& p) { return XmlHelper::toXml(-2.5, p, "n"); }, "-2.5"},
        {"bool true", [](XmlNodePtr& p) { return XmlHelper::toXml(true, p, "n"); }, tarn::ToString(true)},
        {"bool false", [](XmlNodePtr& p) { return XmlHelper::toXml(false, p, "n"); }, tarn::ToString(false)},
        {"zero-terminated", [](XmlNodePtr& p) { return XmlHelper::toXml("a < b & \xC3\xA9", p, "n"); },
         "a < b & \xC3\xA9"},
        {"text", [](XmlNodePtr& p) { return XmlHelper::toXml(string("plain"), p, "n"); }, "plain"},
        {"text with a zero byte", [&withZero](XmlNodePtr& p) { return XmlHelper::toXml(withZero, p, "n"); }, "ab"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        tarntest::LogCapture capture;
        XmlNodePtr parent = element("p");
        parent->AddChild("first", string("x"));
        EXPECT_EQ(c.store(parent), 0);
        EXPECT_EQ(parent->GetChildCount(), 2);
        XmlNodePtr last = parent->GetLastChild();
        ASSERT_TRUE(last);
        EXPECT_EQ(last->GetName(), "n");
        EXPECT_EQ(last->GetData(), c.text);
        EXPECT_EQ(helperReports(capture), 0u);
    }
}

TEST(TypedBridgeToXml, SameNameTwiceAddsTwoChildren)
{
    XmlNodePtr parent = element("p");
    EXPECT_EQ(XmlHelper::toXml(1, parent, "n"), 0);
    EXPECT_EQ(XmlHelper::toXml(2, parent, "n"), 0);
    EXPECT_EQ(parent->OuterXml(), "<p><n>1</n><n>2</n></p>");
}

TEST(TypedBridgeToXml, EmptyTextStillMakesTheChild)
{
    XmlNodePtr parent = element("p");
    EXPECT_EQ(XmlHelper::toXml("", parent, "n"), 0);
    EXPECT_TRUE(parent->ChildExists("n"));
    EXPECT_EQ(parent->GetChildData("n"), "");
}

// Broken calls: an empty parent, a handle without a node, a null name or value. Each gives -2 and
// one assertion report, and adds nothing.
TEST(TypedBridgeToXml, ChildThatCannotBeMadeGivesMinusTwoAndOneReport)
{
    XmlNodePtr empty;
    XmlNodePtr noNode = tarn::CreateXmlNode();
    ASSERT_TRUE(noNode);
    XmlNodePtr parent = element("p");
    struct Case {
        const char* label;
        std::function<int()> store;
    };
    const Case cases[] = {
        {"int, empty parent", [&] { return XmlHelper::toXml(1, empty, "n"); }},
        {"unsigned, empty parent", [&] { return XmlHelper::toXml(1u, empty, "n"); }},
        {"long long, empty parent", [&] { return XmlHelper::toXml(1ll, empty, "n"); }},
        {"unsigned long long, empty parent", [&] { return XmlHelper::toXml(1ull, empty, "n"); }},
        {"double, empty parent", [&] { return XmlHelper::toXml(1.0, empty, "n"); }},
        {"bool, empty parent", [&] { return XmlHelper::toXml(true, empty, "n"); }},
        {"zero-terminated, empty parent", [&] { return XmlHelper::toXml("v", empty, "n"); }},
        {"text, empty parent", [&] { return XmlHelper::toXml(string("v"), empty, "n"); }},
        {"int, handle without node", [&] { return XmlHelper::toXml(1, noNode, "n"); }},
        {"text, handle without node", [&] { return XmlHelper::toXml(string("v"), noNode, "n"); }},
        {"int, null name", [&] { return XmlHelper::toXml(1, parent, nullptr); }},
        {"bool, null name", [&] { return XmlHelper::toXml(false, parent, nullptr); }},
        {"null value", [&] { return XmlHelper::toXml(static_cast<const char*>(nullptr), parent, "n"); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        tarntest::LogCapture capture;
        EXPECT_EQ(c.store(), -2);
        EXPECT_EQ(helperReports(capture), 1u);
    }
    EXPECT_EQ(parent->OuterXml(), "<p/>");
}

// --- AddChild / getFromNode ---------------------------------------------------------------------------

TEST(TypedBridgeAddChild, ReturnsAHandleOnTheNewElement)
{
    XmlNodePtr parent = element("p");
    XmlNodePtr byText = XmlHelper::AddChild(parent, string("a"), string("1"));
    XmlNodePtr byPointer = XmlHelper::AddChild(parent, "b", "2");
    ASSERT_TRUE(byText && byPointer);
    EXPECT_EQ(byText->GetName(), "a");
    EXPECT_EQ(byPointer->GetName(), "b");
    // The handles refer into the parent's tree: changes through them show there.
    byText->SetData("changed");
    EXPECT_EQ(parent->OuterXml(), "<p><a>changed</a><b>2</b></p>");
}

TEST(TypedBridgeAddChild, BrokenCallsGiveAnEmptyHandle)
{
    tarntest::LogCapture capture;
    XmlNodePtr empty;
    XmlNodePtr noNode = tarn::CreateXmlNode();
    XmlNodePtr parent = element("p");
    EXPECT_FALSE(XmlHelper::AddChild(empty, string("a"), string("1")));
    EXPECT_FALSE(XmlHelper::AddChild(empty, "a", "1"));
    EXPECT_FALSE(XmlHelper::AddChild(noNode, "a", "1"));
    EXPECT_FALSE(XmlHelper::AddChild(parent, nullptr, "1"));
    EXPECT_FALSE(XmlHelper::AddChild(parent, "a", nullptr));
    EXPECT_EQ(parent->OuterXml(), "<p/>");
    // Nothing unexpected happened inside: the refusal of the node's own AddChild is not reported.
    EXPECT_EQ(helperReports(capture), 0u);
}

TEST(TypedBridgeGetFromNode, NullNameSharesTheHandleAndANameLooksUpAChild)
{
    XmlNodePtr parent = element("p");
    parent->AddChild("a", string("1"));
    const long before = parent.use_count();
    XmlNodePtr same = XmlHelper::getFromNode(parent, nullptr);
    EXPECT_EQ(same.get(), parent.get());
    EXPECT_EQ(parent.use_count(), before + 1);

    XmlNodePtr child = XmlHelper::getFromNode(parent, "a");
    ASSERT_TRUE(child);
    EXPECT_EQ(child->GetData(), "1");
    EXPECT_FALSE(XmlHelper::getFromNode(parent, "missing"));

    XmlNodePtr empty;
    EXPECT_FALSE(XmlHelper::getFromNode(empty, nullptr));
    EXPECT_FALSE(XmlHelper::getFromNode(empty, "a"));
}

// --- fromXml ----------------------------------------------------------------------------------------

TEST(TypedBridgeFromXml, EveryTypeReadsBackWhatToXmlWrote)
{
    XmlNodePtr parent = element("p");
    ASSERT_EQ(XmlHelper::toXml(std::numeric_limits<int>::min(), parent, "i"), 0);
    ASSERT_EQ(XmlHelper::toXml(4294967295u, parent, "u"), 0);
    ASSERT_EQ(XmlHelper::toXml(std::numeric_limits<long long>::min(), parent, "ll"), 0);
    ASSERT_EQ(XmlHelper::toXml(18446744073709551615ull, parent, "ull"), 0);
    ASSERT_EQ(XmlHelper::toXml(0.125, parent, "d"), 0);
    ASSERT_EQ(XmlHelper::toXml(false, parent, "b"), 0);
    ASSERT_EQ(XmlHelper::toXml(string(" two  words & <more> \xE4\xB8\xAD"), parent, "s"), 0);

    int i = 0;
    unsigned int u = 0;
    long long ll = 0;
    unsigned long long ull = 0;
    double d = 0;
    bool b = true;
    string s;
    EXPECT_EQ(XmlHelper::fromXml(i, parent, "i"), 0);
    EXPECT_EQ(XmlHelper::fromXml(u, parent, "u"), 0);
    EXPECT_EQ(XmlHelper::fromXml(ll, parent, "ll"), 0);
    EXPECT_EQ(XmlHelper::fromXml(ull, parent, "ull"), 0);
    EXPECT_EQ(XmlHelper::fromXml(d, parent, "d"), 0);
    EXPECT_EQ(XmlHelper::fromXml(b, parent, "b"), 0);
    EXPECT_EQ(XmlHelper::fromXml(s, parent, "s"), 0);
    EXPECT_EQ(i, std::numeric_limits<int>::min());
    EXPECT_EQ(u, 4294967295u);
    EXPECT_EQ(ll, std::numeric_limits<long long>::min());
    EXPECT_EQ(ull, 18446744073709551615ull);
    EXPECT_EQ(d, 0.125);
    EXPECT_FALSE(b);
    EXPECT_EQ(s, " two  words & <more> \xE4\xB8\xAD");
}

// A missing child, an empty text, or a broken call: -1 and the output keeps its preset value.
TEST(TypedBridgeFromXml, NothingToReadLeavesTheOutputAlone)
{
    XmlNodePtr parent = element("p");
    ASSERT_EQ(XmlHelper::toXml("", parent, "empty"), 0);
    XmlNodePtr empty;
    XmlNodePtr noNode = tarn::CreateXmlNode();
    XmlNodePtr bare = element("bare");
    struct Where {
        const char* label;
        XmlNodePtr* node;
        const char* name;
    };
    const Where places[] = {
        {"missing child", &parent, "missing"},
        {"empty text", &parent, "empty"},
        {"own text empty", &bare, nullptr},
        {"empty handle, named", &empty, "a"},
        {"empty handle, no name", &empty, nullptr},
        {"handle without node", &noNode, "a"},
        {"handle without node, no name", &noNode, nullptr},
    };
    tarntest::LogCapture capture;
    for (const Where& w : places) {
        SCOPED_TRACE(w.label);
        int i = 11;
        unsigned int u = 12;
        long long ll = 13;
        unsigned long long ull = 14;
        double d = 15.5;
        bool b = true;
        string s = "preset";
        EXPECT_EQ(XmlHelper::fromXml(i, *w.node, w.name), -1);
        EXPECT_EQ(XmlHelper::fromXml(u, *w.node, w.name), -1);
        EXPECT_EQ(XmlHelper::fromXml(ll, *w.node, w.name), -1);
        EXPECT_EQ(XmlHelper::fromXml(ull, *w.node, w.name), -1);
        EXPECT_EQ(XmlHelper::fromXml(d, *w.node, w.name), -1);
        EXPECT_EQ(XmlHelper::fromXml(b, *w.node, w.name), -1);
        EXPECT_EQ(XmlHelper::fromXml(s, *w.node, w.name), -1);
        EXPECT_EQ(i, 11);
        EXPECT_EQ(u, 12u);
        EXPECT_EQ(ll, 13);
        EXPECT_EQ(ull, 14u);
        EXPECT_EQ(d, 15.5);
        EXPECT_TRUE(b);
        EXPECT_EQ(s, "preset");
    }
    EXPECT_EQ(helperReports(capture), 0u);
}

TEST(TypedBridgeFromXml, NullNameReadsTheNodesOwnText)
{
    XmlNodePtr node = element("v", "42");
    int value = 0;
    EXPECT_EQ(XmlHelper::fromXml(value, node, nullptr), 0);
    EXPECT_EQ(value, 42);
    string text;
    EXPECT_EQ(XmlHelper::fromXml(text, node, nullptr), 0);
    EXPECT_EQ(text, "42");
}

TEST(TypedBridgeFromXml, BoolIsFalseOnlyForTheExactFalseWord)
{
    const struct {
        string text;
        bool expected;
    } cases[] = {
        {FALSE_STRING, false}, {TRUE_STRING, true}, {"0", true},     {VAR_FALSE_STRING, true},
        {"False", true},       {"FALSE", true},     {"no", true},    {" " + FALSE_STRING, true},
        {FALSE_STRING + " ", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("text: '" + c.text + "'");
        XmlNodePtr parent = element("p");
        ASSERT_EQ(XmlHelper::toXml(c.text, parent, "b"), 0);
        bool value = !c.expected;
        EXPECT_EQ(XmlHelper::fromXml(value, parent, "b"), 0);
        EXPECT_EQ(value, c.expected);
    }
}

TEST(TypedBridgeFromXml, UnreadableNumbersStillCountAsRead)
{
    XmlNodePtr parent = element("p");
    ASSERT_EQ(XmlHelper::toXml("abc", parent, "n"), 0);
    int i = 99;
    double d = 99;
    EXPECT_EQ(XmlHelper::fromXml(i, parent, "n"), 0);
    EXPECT_EQ(XmlHelper::fromXml(d, parent, "n"), 0);
    EXPECT_EQ(i, tarn::ToInt32("abc"));
    EXPECT_EQ(d, tarn::ToDouble("abc", std::locale::classic()));
}

// --- Product records ---------------------------------------------------------------------------------

TEST(RecordToXml, SourceWritesIdThenType)
{
    tarntest::LogCapture capture;
    XmlNodePtr parent = element("p");
    TarnTypes::Source source;
    source.id = 7;
    source.type = "HDMI";
    EXPECT_EQ(XmlHelper::toXml(source, parent, "source"), 0);
    XmlNodePtr last = parent->GetLastChild();
    ASSERT_TRUE(last);
    EXPECT_EQ(last->OuterXml(), "<source><id>7</id><type>HDMI</type></source>");

    // The full unsigned range, and a type cut at its first zero byte; a second record is added.
    source.id = 4294967295u;
    source.type = string("A\0B", 3);
    EXPECT_EQ(XmlHelper::toXml(source, parent, "source"), 0);
    EXPECT_EQ(parent->OuterXml(), "<p><source><id>7</id><type>HDMI</type></source>"
                                  "<source><id>4294967295</id><type>A</type></source></p>");
    EXPECT_EQ(helperReports(capture), 0u);
}

TEST(RecordToXml, AvClassWritesBindingIdThenClass)
{
    XmlNodePtr parent = element("p");
    AV_Class avClass;
    avClass.reserved = 99;
    avClass.bindingId = 0;
    EXPECT_EQ(XmlHelper::toXml(avClass, parent, "c"), 0);
    XmlNodePtr record = parent->GetLastChild();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->GetName(), "c");
    EXPECT_EQ(record->GetChildCount(), 2);
    XmlNodePtr first = record->GetChild();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->GetName(), "bindingid");
    EXPECT_EQ(first->GetData(), "0");
    XmlNodePtr last = record->GetLastChild();
    ASSERT_TRUE(last);
    EXPECT_EQ(last->GetName(), "class");
    EXPECT_EQ(last->GetData(), "");
    EXPECT_EQ(record->OuterXml().find("99"), string::npos);

    avClass.bindingId = 4000000000u;
    avClass.className = "Display";
    EXPECT_EQ(XmlHelper::toXml(avClass, parent, "c"), 0);
    EXPECT_EQ(parent->GetLastChild()->OuterXml(), "<c><bindingid>4000000000</bindingid><class>Display</class></c>");
}

TEST(RecordToXml, RecordElementThatCannotBeMadeGivesMinusTwoAndOneReport)
{
    XmlNodePtr empty;
    XmlNodePtr noNode = tarn::CreateXmlNode();
    XmlNodePtr parent = element("p");
    TarnTypes::Source source;
    AV_Class avClass;
    struct Case {
        const char* label;
        std::function<int()> write;
    };
    const Case cases[] = {
        {"source, empty parent", [&] { return XmlHelper::toXml(source, empty, "s"); }},
        {"source, handle without node", [&] { return XmlHelper::toXml(source, noNode, "s"); }},
        {"source, null name", [&] { return XmlHelper::toXml(source, parent, nullptr); }},
        {"class, empty parent", [&] { return XmlHelper::toXml(avClass, empty, "c"); }},
        {"class, handle without node", [&] { return XmlHelper::toXml(avClass, noNode, "c"); }},
        {"class, null name", [&] { return XmlHelper::toXml(avClass, parent, nullptr); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        tarntest::LogCapture capture;
        EXPECT_EQ(c.write(), -2);
        EXPECT_EQ(helperReports(capture), 1u);
    }
    EXPECT_EQ(parent->OuterXml(), "<p/>");
}

} // namespace
