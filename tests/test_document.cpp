// Documents: loading, the shared root handle, factories, and documents that try to hurt.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include "LibxmlAllocations.h"
#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlNode.h"

namespace {

using tarn::XmlDocumentPtr;
using tarn::XmlNodePtr;

int elementDepth(xmlNode* node)
{
    int depth = 0;
    while (node != nullptr) {
        ++depth;
        xmlNode* next = node->children;
        while (next != nullptr && next->type != XML_ELEMENT_NODE)
            next = next->next;
        node = next;
    }
    return depth;
}

// --- Loading ---------------------------------------------------------------------------------------

TEST(Document, NewDocumentHasNoRoot)
{
    XmlDocumentPtr doc = tarn::CreateXmlDocument();
    ASSERT_TRUE(doc);
    EXPECT_FALSE(doc->GetRoot());
    doc->reset(); // nothing to free
    EXPECT_FALSE(doc->GetRoot());
}

TEST(Document, GetRootHandsOutOneSharedHandle)
{
    XmlDocumentPtr doc = tarn::CreateXmlDocument("<r><a/></r>");
    ASSERT_TRUE(doc);
    XmlNodePtr first = doc->GetRoot();
    XmlNodePtr second = doc->GetRoot();
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(first->GetName(), "r");
    EXPECT_STREQ(reinterpret_cast<const char*>(first->getlibXML2Node()->doc->URL), "dummy.xml");
}

TEST(Document, ResetReloadAndDestructionLeaveTheOldRootHandleWithoutANode)
{
    XmlDocumentPtr doc = tarn::CreateXmlDocument("<r/>");
    ASSERT_TRUE(doc);
    XmlNodePtr root = doc->GetRoot();
    doc->reset();
    EXPECT_EQ(root->getlibXML2Node(), nullptr);
    EXPECT_EQ(root->OuterXml(), "");

    ASSERT_EQ(doc->Load("<s/>", false), 0);
    EXPECT_EQ(doc->GetRoot()->GetName(), "s");
    EXPECT_EQ(doc->Load("<t/>", false), 0);
    EXPECT_EQ(root->getlibXML2Node(), nullptr); // until the next GetRoot
    EXPECT_EQ(doc->GetRoot()->GetName(), "t");

    doc.reset(); // the handle outlives the document and refers to nothing
    EXPECT_EQ(root->getlibXML2Node(), nullptr);
    EXPECT_EQ(root->GetName(), "");
}

TEST(Document, TextThatDoesNotParse)
{
    struct Case {
        const char* text;
        bool recover;
        int result;
        const char* root;
    };
    const Case cases[] = {
        {"not xml", false, -1, nullptr},
        {"", false, -1, nullptr},
        {"", true, -1, nullptr},
        {"<a><b></a>", false, -1, nullptr},
        {"<a><b></a>", true, 0, "a"},
        {"<a/><b/>", false, -1, nullptr},
        {"<?xml version=\"1.0\"?>", false, -1, nullptr},
        {"<a>&undeclared;</a>", false, -1, nullptr},
        {"<a x='1' x='2'/>", false, -1, nullptr},
    };
    tarntest::LibxmlAllocations allocations;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + (c.recover ? " (recover)" : ""));
        XmlDocumentPtr doc = tarn::CreateXmlDocument("<previous><tree/></previous>");
        ASSERT_TRUE(doc);
        XmlNodePtr oldRoot = doc->GetRoot();
        testing::internal::CaptureStderr();
        const int result = doc->Load(c.text, c.recover);
        const std::string printed = testing::internal::GetCapturedStderr();
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(printed, ""); // libxml2 prints nothing
        EXPECT_EQ(oldRoot->getlibXML2Node(), nullptr);
        if (c.root == nullptr) {
            EXPECT_FALSE(doc->GetRoot());
        } else {
            ASSERT_TRUE(doc->GetRoot());
            EXPECT_EQ(doc->GetRoot()->GetName(), c.root);
        }
        doc.reset();
        xmlResetLastError(); // libxml2 keeps the texts of the last error per thread
        EXPECT_EQ(allocations.outstanding(), 0); // the previous tree went, the failed parse left nothing
    }
}

TEST(Document, InvalidUtf8IsRepairedBeforeParsing)
{
    struct Case {
        const char* label;
        std::string text;
        std::string data;
    };
    const Case cases[] = {
        {"lone byte", "<a>x\xe9y</a>", "x\xef\xbf\xbdy"},
        {"cut sequence", "<a>x\xe2\x82</a>", "x\xef\xbf\xbd"},
        {"control character", std::string("<a>x\x01y</a>"), "x?y"},
        {"declared Latin-1", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xe9</a>", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlDocumentPtr doc = tarn::CreateXmlDocument();
        ASSERT_EQ(doc->Load(c.text, false), 0);
        const std::string data = doc->GetRoot()->GetData();
        EXPECT_TRUE(XmlHelper::isValidUTF8(data));
        if (!c.data.empty()) {
            EXPECT_EQ(data, c.data);
        }
    }
}

TEST(Document, FactoriesFromText)
{
    struct Case {
        const char* text;
        bool made;
    };
    const Case cases[] = {{"<r>1</r>", true}, {"", false}, {"not xml", false}, {"<a><b></a>", false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        XmlDocumentPtr made = tarn::CreateXmlDocument(c.text);
        EXPECT_EQ(static_cast<bool>(made), c.made);
        if (made) {
            EXPECT_EQ(made->GetRoot()->OuterXml(), c.text);
        }
        XmlDocumentPtr created = tarn::CreateXmlDocument("<old/>");
        EXPECT_EQ(tarn::Create(created, c.text), c.made ? 0 : -1);
        EXPECT_EQ(static_cast<bool>(created), c.made);
    }
    XmlDocumentPtr empty = tarn::CreateXmlDocument("<old/>");
    EXPECT_EQ(tarn::Create(empty), 0);
    ASSERT_TRUE(empty);
    EXPECT_FALSE(empty->GetRoot());
}

// Names and texts of a loaded tree are allocated per node (no dictionary): a node moved into
// another tree survives the document it came from, and is freed by its new owner only.
TEST(Document, MovedNodesOutliveTheirFirstDocument)
{
    XmlDocumentPtr to = tarn::CreateXmlDocument("<to/>");
    XmlNodePtr detached = tarn::CreateXmlNode("holder", "");
    {
        XmlDocumentPtr from = tarn::CreateXmlDocument("<from a=\"1\"><moved b=\"2\">text<x/></moved><kept>k</kept></from>");
        ASSERT_TRUE(from);
        xmlNode* const fromRoot = from->GetRoot()->getlibXML2Node();
        XmlNodePtr moved = tarn::CreateXmlNode();
        moved->Initialize(fromRoot->children);
        ASSERT_EQ(to->GetRoot()->AddChild(moved), 0);
        XmlNodePtr kept = tarn::CreateXmlNode();
        kept->Initialize(fromRoot->children);
        ASSERT_EQ(detached->AddChild(kept), 0);
        XmlNodePtr root = from->GetRoot();
        EXPECT_EQ(root->SerializeOuterXml(),
                  "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<from a=\"1\"/>\n");
        root->Remove(); // the document no longer holds its root: free it here
    }
    EXPECT_EQ(to->GetRoot()->OuterXml(), "<to><moved b=\"2\">text<x/></moved></to>");
    EXPECT_EQ(detached->OuterXml(), "<holder><kept>k</kept></holder>");
}

// --- Hostile documents -----------------------------------------------------------------------------

TEST(HostileDocument, ExternalEntitiesAreNeitherReadNorFetched)
{
    tarntest::TempDir dir;
    const std::string secretFile = dir.write("secret.txt", "SECRET-MARKER");
    const std::string dtdFile = dir.write("ext.dtd", "<!ENTITY fromDtd \"DTD-MARKER\">");

    // A listening socket that nobody may connect to.
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    socklen_t length = sizeof address;
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string http = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));

    const std::string documents[] = {
        "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"file://" + secretFile + "\">]><r>&x;</r>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"" + secretFile + "\">]><r a=\"1\">&x;</r>",
        "<!DOCTYPE r SYSTEM \"file://" + dtdFile + "\"><r>&fromDtd;</r>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"file://" + dtdFile + "\"> %p;]><r>&fromDtd;</r>",
        "<!DOCTYPE r SYSTEM \"" + http + "/d.dtd\"><r/>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"" + http + "/e\">]><r>&x;</r>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"" + http + "/p\"> %p;]><r/>",
        "<r xmlns:xi=\"http://www.w3.org/2001/XInclude\"><xi:include href=\"file:///etc/passwd\" parse=\"text\"/></r>",
    };
    for (const std::string& text : documents)
        for (bool recover : {false, true}) {
            SCOPED_TRACE(text + (recover ? " (recover)" : ""));
            XmlDocumentPtr doc = tarn::CreateXmlDocument();
            const int result = doc->Load(text, recover);
            if (result != 0) {
                EXPECT_FALSE(doc->GetRoot());
                continue;
            }
            ASSERT_TRUE(doc->GetRoot());
            const std::string outer = doc->GetRoot()->OuterXml();
            EXPECT_EQ(outer.find("root:"), std::string::npos) << outer;
            EXPECT_EQ(outer.find("SECRET-MARKER"), std::string::npos) << outer;
            EXPECT_EQ(outer.find("DTD-MARKER"), std::string::npos) << outer;
            EXPECT_EQ(doc->GetRoot()->GetData(), "");
        }

    ::fcntl(listener, F_SETFL, O_NONBLOCK);
    const int connection = ::accept(listener, nullptr, nullptr);
    const int acceptError = errno;
    EXPECT_EQ(connection, -1) << "the parser connected to " << http;
    EXPECT_TRUE(acceptError == EAGAIN || acceptError == EWOULDBLOCK);
    if (connection >= 0)
        ::close(connection);
    ::close(listener);
}

TEST(HostileDocument, EntityExpansionChainIsNotExpanded)
{
    std::string text = "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol0 \"lol\">";
    for (int level = 1; level <= 9; ++level) {
        text += "<!ENTITY lol" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i)
            text += "&lol" + std::to_string(level - 1) + ";";
        text += "\">";
    }
    text += "]><lolz>&lol9;&lol9;</lolz>";
    for (bool recover : {false, true}) {
        SCOPED_TRACE(recover ? "recover" : "strict");
        XmlDocumentPtr doc = tarn::CreateXmlDocument();
        const int result = doc->Load(text, recover);
        if (!recover) {
            EXPECT_EQ(result, -1); // libxml2 detects the amplification
        }
        if (result == 0) {
            ASSERT_TRUE(doc->GetRoot());
            EXPECT_LT(doc->GetRoot()->OuterXml().size(), 1000u);
        }
    }
}

TEST(HostileDocument, DeepNestingIsRefusedOrCutShort)
{
    constexpr int kDepth = 100000;
    std::string text;
    text.reserve(kDepth * 7);
    for (int i = 0; i < kDepth; ++i)
        text += "<a>";
    for (int i = 0; i < kDepth; ++i)
        text += "</a>";
    XmlDocumentPtr doc = tarn::CreateXmlDocument();
    EXPECT_EQ(doc->Load(text, false), -1); // deeper than libxml2's limit of 256 without XML_PARSE_HUGE
    EXPECT_FALSE(doc->GetRoot());
    // Recovery keeps what was read up to the limit.
    if (doc->Load(text, true) == 0) {
        ASSERT_TRUE(doc->GetRoot());
        EXPECT_LE(elementDepth(doc->GetRoot()->getlibXML2Node()), 257);
        EXPECT_FALSE(doc->GetRoot()->OuterXml().empty());
    }
}

TEST(HostileDocument, FiftyMegabyteTextNode)
{
    const std::size_t size = 50u << 20;
    std::string text = "<a>";
    text.append(size, 'x');
    text += "</a>";
    XmlDocumentPtr doc = tarn::CreateXmlDocument();
    // libxml2 2.9 accepts a text node this long when it arrives in one piece.
    ASSERT_EQ(doc->Load(text, false), 0);
    const std::string data = doc->GetRoot()->GetData();
    EXPECT_EQ(data.size(), size);
    EXPECT_EQ(data.find_first_not_of('x'), std::string::npos);
    doc->reset();
    EXPECT_FALSE(doc->GetRoot());
}

} // namespace
