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

// --- Loading ---------------------------------------------------------------------------------------


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

    doc.reset(); // the handle outlives the document and refers to nothing
    EXPECT_EQ(root->getlibXML2Node(), nullptr);
    EXPECT_EQ(root->GetName(), "");
}

TEST(Document, TextThatDoesNotParse)
{
    struct Case { const char* text; bool recover; int result; const char* root; };
    const Case cases[] = {
        {"not xml", false, -1, nullptr},
        {"", false, -1, nullptr},
        {"<a><b></a>", false, -1, nullptr},
        {"<a><b></a>", true, 0, "a"},
        {"<a/><b/>", false, -1, nullptr},
        {"<a>&undeclared;</a>", false, -1, nullptr},
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
    struct Case { const char* label; std::string text, data; };
    const Case cases[] = {
        {"lone byte", "<a>x\xe9y</a>", "x\xef\xbf\xbdy"},
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
        "<!DOCTYPE r SYSTEM \"file://" + dtdFile + "\"><r>&fromDtd;</r>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"file://" + dtdFile + "\"> %p;]><r>&fromDtd;</r>",
        "<!DOCTYPE r SYSTEM \"" + http + "/d.dtd\"><r/>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"" + http + "/e\">]><r>&x;</r>",
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
            for (const char* marker : {"root:", "SECRET-MARKER", "DTD-MARKER"})
                EXPECT_EQ(outer.find(marker), std::string::npos) << outer;
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




} // namespace
