// The typed value bridge over node handles (XmlHelper::getFromNode / AddChild / toXml / fromXml)
// and the two product records written through it.
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <limits>
#include <string>

#include "TestSupport.h"
#include "tarn/shared.h"
#include "tarnxml/XmlNode.h"

namespace {

using std::string;
using tarn::XmlNodePtr;
using Store = std::function<int(XmlNodePtr&)>;

// Runs `call` under a log capture: each assertion report names the helper source; gives their count.
std::size_t helperReports(const std::function<void()>& call)
{
    tarntest::LogCapture capture;
    call();
    const auto reports = capture.assertions();
    for (const auto& report : reports)
        EXPECT_EQ(report.file, "../tarnshared/xml/XmlHelper");
    return reports.size();
}

// toXml appends one child with `text`; fromXml reads `back` from it.
template <typename V, typename T>
void expectStored(const V& value, const string& text, const T& back)
{
    SCOPED_TRACE(text);
    XmlNodePtr parent = tarn::CreateXmlNode("p", "");
    EXPECT_EQ(helperReports([&] { EXPECT_EQ(XmlHelper::toXml(value, parent, "n"), 0); }), 0u);
    EXPECT_EQ(parent->GetChildCount(), 1);
    ASSERT_TRUE(parent->GetLastChild());
    EXPECT_EQ(parent->GetLastChild()->GetName(), "n");
    EXPECT_EQ(parent->GetLastChild()->GetData(), text);
    T read{};
    EXPECT_EQ(XmlHelper::fromXml(read, parent, "n"), 0);
    EXPECT_EQ(read, back);
}

TEST(TypedBridge, ToXmlAppendsOneChildAndReadsBack)
{
    expectStored(std::numeric_limits<int>::min(), "-2147483648", std::numeric_limits<int>::min());
    expectStored(4294967295u, "4294967295", 4294967295u);
    expectStored(LLONG_MIN, "-9223372036854775808", LLONG_MIN);
    expectStored(ULLONG_MAX, "18446744073709551615", ULLONG_MAX);
    expectStored(-2.5, "-2.5", -2.5);
    expectStored(false, tarn::ToString(false), false);
    expectStored(true, tarn::ToString(true), true);
    expectStored(static_cast<const char*>("a < b & \xC3\xA9"), "a < b & \xC3\xA9", string("a < b & \xC3\xA9"));
    expectStored(string("ab\0cd", 5), "ab", string("ab"));
}

// Broken preconditions: -2 (records too) or an empty handle, nothing added, never a crash.
TEST(TypedBridge, BrokenCallsReportOnceAndAddNothing)
{
    XmlNodePtr empty, noNode = tarn::CreateXmlNode(), parent = tarn::CreateXmlNode("p", "");
    const TarnTypes::Source source;
    const AV_Class avClass;
    for (XmlNodePtr* target : {&empty, &noNode, &parent}) {
        const char* name = target == &parent ? nullptr : "n";
        const Store stores[] = {
            [&](XmlNodePtr& p) { return XmlHelper::toXml(1, p, name); },
            [&](XmlNodePtr& p) { return XmlHelper::toXml(1ull, p, name); },
            [&](XmlNodePtr& p) { return XmlHelper::toXml(1.0, p, name); },
            [&](XmlNodePtr& p) { return XmlHelper::toXml(true, p, name); },
            [&](XmlNodePtr& p) { return XmlHelper::toXml(string("v"), p, name); },
            [&](XmlNodePtr& p) { return XmlHelper::toXml(source, p, name); },
            [&](XmlNodePtr& p) { return XmlHelper::toXml(avClass, p, name); },
        };
        for (const Store& store : stores)
            EXPECT_EQ(helperReports([&] { EXPECT_EQ(store(*target), -2); }), 1u);
        EXPECT_EQ(helperReports([&] { EXPECT_FALSE(XmlHelper::AddChild(*target, name, "1")); }), 0u);
    }
    EXPECT_EQ(helperReports([&] { EXPECT_EQ(XmlHelper::toXml(static_cast<const char*>(nullptr), parent, "n"), -2); }), 1u);
    EXPECT_FALSE(XmlHelper::AddChild(parent, "a", nullptr));
    EXPECT_FALSE(XmlHelper::AddChild(empty, string("a"), string("1")));
    EXPECT_EQ(parent->OuterXml(), "<p/>");
}

// A missing child, an empty text, or a broken call: -1 and the output keeps its value.
TEST(TypedBridge, FromXmlWithNothingToReadLeavesTheOutput)
{
    XmlNodePtr parent = tarn::CreateXmlNode("p", ""), empty, noNode = tarn::CreateXmlNode();
    ASSERT_EQ(XmlHelper::toXml("", parent, "empty"), 0);
    const struct { XmlNodePtr* node; const char* name; } places[] = {
        {&parent, "missing"}, {&parent, "empty"}, {&parent, nullptr}, {&empty, "a"}, {&empty, nullptr},
        {&noNode, "a"}, {&noNode, nullptr}};
    for (const auto& w : places) {
        int i = 11;
        double d = 15.5;
        bool b = true;
        string s = "preset";
        EXPECT_EQ(XmlHelper::fromXml(i, *w.node, w.name) + XmlHelper::fromXml(d, *w.node, w.name) +
                      XmlHelper::fromXml(b, *w.node, w.name) + XmlHelper::fromXml(s, *w.node, w.name),
                  -4);
        EXPECT_TRUE(i == 11 && d == 15.5 && b && s == "preset") << w.name;
    }
}

TEST(TypedBridge, NullNameReadsOwnTextAndBoolIsFalseOnlyForFalseString)
{
    XmlNodePtr node = tarn::CreateXmlNode("v", "42");
    int value = 0;
    EXPECT_EQ(XmlHelper::fromXml(value, node, nullptr), 0);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(XmlHelper::getFromNode(node, nullptr).get(), node.get());
    for (const string& text : {FALSE_STRING, TRUE_STRING, string("0"), VAR_FALSE_STRING, string("False"),
                               string("no"), " " + FALSE_STRING, FALSE_STRING + " "}) {
        SCOPED_TRACE("'" + text + "'");
        XmlNodePtr parent = tarn::CreateXmlNode("p", "");
        ASSERT_TRUE(XmlHelper::AddChild(parent, string("b"), text));
        bool read = text == FALSE_STRING;
        EXPECT_EQ(XmlHelper::fromXml(read, parent, "b"), 0);
        EXPECT_EQ(read, text != FALSE_STRING);
    }
}

TEST(TypedBridge, RecordShapes)
{
    XmlNodePtr parent = tarn::CreateXmlNode("p", "");
    TarnTypes::Source source;
    source.id = 4294967295u;
    source.type = string("A\0B", 3);  // cut at the zero byte
    AV_Class avClass;
    avClass.reserved = 99;  // not written
    avClass.bindingId = 4000000000u;
    EXPECT_EQ(XmlHelper::toXml(source, parent, "source") + XmlHelper::toXml(avClass, parent, "c"), 0);
    avClass.className = "Display";
    EXPECT_EQ(XmlHelper::toXml(avClass, parent, "c"), 0);
    EXPECT_EQ(parent->OuterXml(), "<p><source><id>4294967295</id><type>A</type></source>"
                                  "<c><bindingid>4000000000</bindingid><class></class></c>"
                                  "<c><bindingid>4000000000</bindingid><class>Display</class></c></p>");
}

} // namespace
