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

template <typename T>
void expectRoundTrip(const T& value)
{
    XmlNodePtr parent = element("p");
    ASSERT_EQ(XmlHelper::toXml(value, parent, "v"), 0);
    T read{};
    EXPECT_EQ(XmlHelper::fromXml(read, parent, "v"), 0);
    EXPECT_EQ(read, value);
}

TEST(TypedBridgeFromXml, EveryTypeReadsBackWhatToXmlWrote)
{
    expectRoundTrip(std::numeric_limits<int>::min());
    expectRoundTrip(4294967295u);
    expectRoundTrip(std::numeric_limits<long long>::min());
    expectRoundTrip(18446744073709551615ull);
    expectRoundTrip(0.125);
    expectRoundTrip(false);
    expectRoundTrip(string(" two  words & <more> \xE4\xB8\xAD"));
}

template <typename T>
void expectUntouched(const T& preset, XmlNodePtr& node, const char* name)
{
    T value = preset;
    EXPECT_EQ(XmlHelper::fromXml(value, node, name), -1);
    EXPECT_EQ(value, preset);
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
        expectUntouched(11, *w.node, w.name);
        expectUntouched(12u, *w.node, w.name);
        expectUntouched(13ll, *w.node, w.name);
        expectUntouched(14ull, *w.node, w.name);
        expectUntouched(15.5, *w.node, w.name);
        expectUntouched(true, *w.node, w.name);
        expectUntouched(string("preset"), *w.node, w.name);
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
    // The leading field (99) is not written; the empty class name still gives its element.
    EXPECT_EQ(record->OuterXml(), "<c><bindingid>0</bindingid><class></class></c>");
    EXPECT_EQ(record->GetChildData("class"), "");

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
