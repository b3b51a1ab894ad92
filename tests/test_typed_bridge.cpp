// The typed value bridge over node handles (XmlHelper::getFromNode / AddChild / toXml / fromXml)
// and the two product records written through it.
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <sstream>

#include "TestSupport.h"
#include "tarn/TarnTypes.h"
#include "tarn/shared.h"
#include "tarnxml/XmlNode.h"

namespace {

using std::string;
using tarn::XmlNodePtr;

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

// fromXml's result and the value it leaves in an output preset to `value`: "result:value".
template <typename T>
string read(XmlNodePtr node, const char* name, T value)
{
    std::ostringstream out;
    out << XmlHelper::fromXml(value, node, name) << ":" << std::boolalpha << value;
    return out.str();
}

// toXml into a fresh parent (reporting nothing), then fromXml back: "result tree result:value".
template <typename V, typename T>
string roundTrip(const V& value, T back)
{
    XmlNodePtr parent = tarn::CreateXmlNode("p", "");
    int result = -9;
    EXPECT_EQ(helperReports([&] { result = XmlHelper::toXml(value, parent, "n"); }), 0u);
    return std::to_string(result) + " " + parent->OuterXml() + " " + read(parent, "n", back);
}

TEST(TypedBridge, ToXmlAppendsOneChildAndReadsBack)
{
    EXPECT_EQ(roundTrip(INT_MIN, 0), "0 <p><n>-2147483648</n></p> 0:-2147483648");
    EXPECT_EQ(roundTrip(UINT_MAX, 0u), "0 <p><n>4294967295</n></p> 0:4294967295");
    EXPECT_EQ(roundTrip(LLONG_MIN, 0LL), "0 <p><n>-9223372036854775808</n></p> 0:-9223372036854775808");
    EXPECT_EQ(roundTrip(ULLONG_MAX, 0ULL), "0 <p><n>18446744073709551615</n></p> 0:18446744073709551615");
    EXPECT_EQ(roundTrip(-2.5, 0.0), "0 <p><n>-2.5</n></p> 0:-2.5");
    EXPECT_EQ(roundTrip(false, true) + roundTrip(true, false),
              "0 <p><n>" + FALSE_STRING + "</n></p> 0:false0 <p><n>" + TRUE_STRING + "</n></p> 0:true");
    EXPECT_EQ(roundTrip("a < b & \xC3\xA9", string()), "0 <p><n>a &lt; b &amp; \xC3\xA9</n></p> 0:a < b & \xC3\xA9");
    EXPECT_EQ(roundTrip(string("ab\0cd", 5), string()), "0 <p><n>ab</n></p> 0:ab");
    // The records: the source type is cut at the zero byte, the class's reserved field is not written.
    XmlNodePtr parent = tarn::CreateXmlNode("p", "");
    EXPECT_EQ(XmlHelper::toXml(TarnTypes::Source{4294967295u, string("A\0B", 3)}, parent, "source") +
                  XmlHelper::toXml(AV_Class{99, 4000000000u, ""}, parent, "c") +
                  XmlHelper::toXml(AV_Class{0, 1u, "Display"}, parent, "c"),
              0);
    EXPECT_EQ(parent->OuterXml(), "<p><source><id>4294967295</id><type>A</type></source>"
                                  "<c><bindingid>4000000000</bindingid><class></class></c>"
                                  "<c><bindingid>1</bindingid><class>Display</class></c></p>");
}

// Broken preconditions: -2 (records too) or an empty handle, nothing added, never a crash.
TEST(TypedBridge, BrokenCallsReportOnceAndAddNothing)
{
    XmlNodePtr empty, noNode = tarn::CreateXmlNode(), parent = tarn::CreateXmlNode("p", "");
    for (XmlNodePtr* target : {&empty, &noNode, &parent}) {
        const char* name = target == &parent ? nullptr : "n";
        const auto refused = [&](const auto& value) {
            EXPECT_EQ(helperReports([&] { EXPECT_EQ(XmlHelper::toXml(value, *target, name), -2); }), 1u);
        };
        refused(1), refused(1u), refused(1LL), refused(1ull), refused(1.0), refused(true), refused(string("v"));
        refused(TarnTypes::Source()), refused(AV_Class());
        EXPECT_EQ(helperReports([&] { EXPECT_FALSE(XmlHelper::AddChild(*target, name, "1")); }), 0u);
    }
    const char* const noText = nullptr;
    EXPECT_EQ(helperReports([&] { EXPECT_EQ(XmlHelper::toXml(noText, parent, "n"), -2); }), 1u);
    EXPECT_FALSE(XmlHelper::AddChild(parent, "a", nullptr) || XmlHelper::AddChild(empty, string("a"), string("1")));
    EXPECT_EQ(parent->OuterXml(), "<p/>");
}

TEST(TypedBridge, FromXmlReadsTextAndLeavesTheOutputWithoutIt)
{
    // A missing child, an empty text, or a broken call: -1 and the output keeps its value.
    XmlNodePtr parent = tarn::CreateXmlNode("p", ""), empty, noNode = tarn::CreateXmlNode();
    ASSERT_EQ(XmlHelper::toXml("", parent, "empty"), 0);
    const struct { XmlNodePtr* node; const char* name; } places[] = {
        {&parent, "missing"}, {&parent, "empty"}, {&parent, nullptr}, {&empty, "a"}, {&empty, nullptr},
        {&noNode, "a"}, {&noNode, nullptr}};
    for (const auto& [node, name] : places)
        EXPECT_EQ(read(*node, name, 11) + read(*node, name, 15.5) + read(*node, name, true) +
                      read<string>(*node, name, "s"),
                  "-1:11-1:15.5-1:true-1:s")
            << (name ? name : "null name");
    // A null name reads the node's own text; a bool is false only for exactly FALSE_STRING.
    for (const string& text : {FALSE_STRING, TRUE_STRING, string("0"), VAR_FALSE_STRING, string("False"),
                               string("no"), " " + FALSE_STRING, FALSE_STRING + " "})
        EXPECT_EQ(read(tarn::CreateXmlNode("b", text), nullptr, text == FALSE_STRING),
                  text == FALSE_STRING ? "0:false" : "0:true") << text;
}

} // namespace
