// Read-only loads (the dictionary on): the same documents as Load, and nodes that leave them for
// other documents take none of the dictionary's strings along (run under ASan to see it).
#include <gtest/gtest.h>

#include <string>

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace {

tarn::XmlLoadOptions readOnly()
{
    tarn::XmlLoadOptions options;
    options.readOnly = true;
    return options;
}

// Short texts and blanks are the ones libxml2 keeps in the dictionary, names always.
const char kSource[] = "<r a='v' b=' '><x y='1'> <z>ab</z>\n</x><!--c--><?p d?><![CDATA[z]]>t&amp;<w q=''/></r>";

TEST(ReadOnly, LoadsTheSameDocuments)
{
    const char* const docs[] = {
        kSource,
        "<?xml version='1.0'?><!DOCTYPE r [<!ENTITY e 'x'>]><r xmlns='urn:d' xmlns:p='urn:p'><p:a p:b='&e;'>&e;</p:a></r>",
        "<a><b></a>",
    };
    for (const char* text : docs) {
        SCOPED_TRACE(text);
        tarn::XmlDocument normal;
        tarn::XmlDocument fast;
        EXPECT_EQ(fast.Load(text, readOnly()), normal.Load(text, false));
        EXPECT_EQ(fast.GetDiagnostics().size(), normal.GetDiagnostics().size());
        if (normal.GetRoot()) {
            EXPECT_EQ(fast.GetRoot()->OuterXml(), normal.GetRoot()->OuterXml());
        }
    }
}

TEST(ReadOnly, NodesMovedOutOutliveTheirDocument)
{
    // Each way a node can leave: into a normal document as child or sibling, into another
    // read-only document, and out through the scratch document (then placed in a tree). Way 4 is
    // the reverse: a normal document's node moved into a read-only one.
    for (int way = 0; way < 5; ++way) {
        SCOPED_TRACE(way);
        tarn::XmlDocument target;
        const bool fastTarget = way == 2 || way == 4;
        ASSERT_EQ(fastTarget ? target.Load("<n><m/></n>", readOnly()) : target.Load("<n><m/></n>", false), 0);
        std::string expected;
        {
            tarn::XmlDocument source;
            ASSERT_EQ(way == 4 ? source.Load(kSource, false) : source.Load(kSource, readOnly()), 0);
            tarn::XmlNodePtr moved = source.GetRoot();
            expected = moved->OuterXml();
            tarn::XmlNodePtr anchor = target.GetRoot();
            if (way == 1) {
                ASSERT_EQ(anchor->AddSibling(moved), 0); // after m
            } else if (way == 3) {
                EXPECT_NE(moved->SerializeOuterXml().find(expected), std::string::npos);
            }
            if (way != 1) {
                ASSERT_EQ(anchor->AddChild(moved), 0);
            }
        } // the source document and its dictionary are freed here
        const std::string out = target.GetRoot()->OuterXml();
        EXPECT_NE(out.find(expected), std::string::npos) << out;
        // Changing the moved nodes frees their old strings through the new document.
        tarn::XmlNodePtr x = target.GetRoot()->GetChild("r")->GetChild("x");
        ASSERT_TRUE(x);
        EXPECT_EQ(x->SetName("renamed"), 0);
        EXPECT_EQ(x->SetAttribute("y", "2"), 0);
        x->GetChild("z")->Remove();
        EXPECT_EQ(target.GetRoot()->GetChild("r")->GetAttribute("a"), "v");
    }
}

} // namespace
