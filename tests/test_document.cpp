// Documents: loading, the shared root handle, factories, and documents that try to hurt.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

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

// Each load replaces the previous tree, and the handle on the old root is left without a node,
// whether the new text parses or not; so does the new root's handle once the document goes.
TEST(Document, LoadReplacesTheTreeAndEmptiesTheOldRootHandle)
{
    struct Case { const char* text; bool recover; const char* root; }; // Load gives 0 exactly when there is a root
    const Case cases[] = {{"", false, nullptr},      {"<a><b></a>", false, nullptr}, {"<a><b></a>", true, "a"},
                          {"<a/><b/>", false, nullptr}, {"<s/>", false, "s"}};
    tarn::libXMLStartup(); // the scratch document is made once, before the count starts
    tarntest::LibxmlAllocations allocations;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + (c.recover ? " (recover)" : ""));
        XmlDocumentPtr doc = tarn::CreateXmlDocument("<previous><tree/></previous>");
        XmlNodePtr oldRoot = doc->GetRoot();
        testing::internal::CaptureStderr();
        EXPECT_EQ(doc->Load(c.text, c.recover), c.root ? 0 : -1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), ""); // libxml2 prints nothing
        EXPECT_EQ(oldRoot->getlibXML2Node(), nullptr);
        const XmlNodePtr root = doc->GetRoot();
        EXPECT_EQ(root ? root->GetName() : "(none)", c.root ? c.root : "(none)");
        doc.reset();
        EXPECT_TRUE(!root || (root->getlibXML2Node() == nullptr && root->GetName().empty()));
        xmlResetLastError(); // libxml2 keeps the texts of the last error per thread
        EXPECT_EQ(allocations.outstanding(), 0); // the previous tree went, the failed parse left nothing
    }
    XmlDocumentPtr doc = tarn::CreateXmlDocument("<r/>");
    const XmlNodePtr root = doc->GetRoot();
    doc->reset();
    EXPECT_TRUE(root->getlibXML2Node() == nullptr && !doc->GetRoot());
}

// LoadFile and LoadFd give what Load gives for the file's content; what cannot be read is a
// failed load with a diagnostic saying why, and the previous tree is gone either way.
TEST(Document, LoadFromFilesAndDescriptors)
{
    const tarntest::TempDir dir;
    const std::string broken = dir.write("broken.xml", "<a>\n  <b>\n</a>\n");
    const std::string latin1 = dir.write("latin1.xml", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>Gr\xF6\xDF" "e</a>");
    const std::string badUtf8 = dir.write("bad.xml", "<a>caf\xC3\x01</a>");
    struct Case { std::string path; bool sanitize; int result; const char* text; std::string diagnostic; };
    const Case cases[] = {
        {latin1, false, 0, "Gr\xC3\xB6\xC3\x9F" "e", ""},  // decoded as declared, like Load
        {badUtf8, true, 0, "caf\xEF\xBF\xBD?", ""},         // read whole and repaired
        {badUtf8, false, -1, nullptr, "bad.xml:1:"},
        {broken, false, -1, nullptr, "bad.xml:3:5: Opening and ending tag mismatch: b line 2 and a"},
        {dir.write("empty.xml", ""), false, -1, nullptr, "bad.xml:1:1: Document is empty"},
        {dir.path() + "/missing.xml", false, -1, nullptr, "bad.xml: cannot open " + dir.path() + "/missing.xml: No such file or directory"},
        {dir.path(), false, -1, nullptr, "a directory"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path + (c.sanitize ? " (sanitize)" : ""));
        tarn::XmlLoadOptions options;
        options.sanitize = c.sanitize;
        options.sourceName = "bad.xml";
        XmlDocumentPtr doc = tarn::CreateXmlDocument("<previous/>");
        ASSERT_EQ(c.result, doc->LoadFile(c.path, options));
        if (c.text != nullptr) {
            EXPECT_EQ(c.text, doc->GetRoot()->GetData());
            EXPECT_EQ(c.sanitize, doc->WasRepaired());
            // The same text through Load gives the same document.
            tarn::XmlDocument loaded;
            ASSERT_EQ(0, loaded.Load(tarntest::readFile(c.path), options));
            EXPECT_EQ(loaded.ToString({}), doc->ToString({}));
        } else {
            EXPECT_FALSE(doc->GetRoot());
            ASSERT_FALSE(doc->GetDiagnostics().empty());
            EXPECT_NE(std::string::npos, tarn::FormatDiagnostic(doc->GetDiagnostics().front()).find(c.diagnostic))
                << tarn::FormatDiagnostic(doc->GetDiagnostics().front());
        }
    }

    // A descriptor is read from where it stands to its end (a pipe here) and left open; a
    // descriptor that cannot be read says why.
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const std::string text = "<a>" + std::string(300000, 'x') + "</a>";
    std::thread writer([&] {
        for (std::size_t at = 0; at < text.size();) {
            const ssize_t put = ::write(ends[1], text.data() + at, text.size() - at);
            if (put <= 0)
                break;
            at += static_cast<std::size_t>(put);
        }
        ::close(ends[1]);
    });
    tarn::XmlDocument piped;
    tarn::XmlLoadOptions options;
    options.sanitize = false;
    EXPECT_EQ(0, piped.LoadFd(ends[0], options));
    writer.join();
    EXPECT_EQ(300000u, piped.GetRoot()->GetData().size());
    EXPECT_EQ(0, ::close(ends[0]));
    const int directory = ::open(dir.path().c_str(), O_RDONLY);
    ASSERT_GE(directory, 0);
    EXPECT_EQ(-1, piped.LoadFd(directory, options));
    ASSERT_FALSE(piped.GetDiagnostics().empty());
    EXPECT_EQ("cannot read: Is a directory", piped.GetDiagnostics().back().message);
    ::close(directory);
}

// Names and texts of a loaded tree are allocated per node (no dictionary): a node moved into
// another tree survives the document it came from, and is freed by its new owner only.
TEST(Document, MovedNodesOutliveTheirFirstDocument)
{
    XmlDocumentPtr to = tarn::CreateXmlDocument("<to/>");
    XmlNodePtr detached = tarn::CreateXmlNode("holder", "");
    {
        XmlDocumentPtr from = tarn::CreateXmlDocument("<from a=\"1\"><moved b=\"2\">text<x/></moved><kept>k</kept></from>");
        xmlNode* const fromRoot = from->GetRoot()->getlibXML2Node();
        for (const XmlNodePtr& target : {to->GetRoot(), detached}) { // moved to one, kept by the other
            XmlNodePtr node = tarn::CreateXmlNode();
            node->Initialize(fromRoot->children);
            ASSERT_EQ(target->AddChild(node), 0);
        }
        // SerializeOuterXml takes the root out of its document and leaves no link into the scratch
        // document: the root can be moved on like any other node.
        XmlNodePtr root = from->GetRoot();
        EXPECT_EQ(root->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<from a=\"1\"/>\n");
        EXPECT_TRUE(root->getlibXML2Node()->parent == nullptr && tarn::g_tempDoc->children == nullptr);
        ASSERT_EQ(detached->AddChild(root), 0);
    }
    EXPECT_EQ(to->GetRoot()->OuterXml(), "<to><moved b=\"2\">text<x/></moved></to>");
    EXPECT_EQ(detached->OuterXml(), "<holder><kept>k</kept><from a=\"1\"/></holder>");
}

// --- Hostile documents -----------------------------------------------------------------------------

// Entities and DTDs from local files are covered by test_parser_settings; here: external DTDs and
// entities over the network (a listening socket that nobody may connect to) and XInclude.
TEST(HostileDocument, ExternalEntitiesAreNeitherReadNorFetched)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    ASSERT_GE(listener, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_TRUE(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && ::listen(listener, 4) == 0);
    socklen_t length = sizeof address;
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string http = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));

    const std::string documents[] = {
        "<!DOCTYPE r SYSTEM \"" + http + "/d.dtd\"><r/>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"" + http + "/e\">]><r>&x;</r>",
        "<r xmlns:xi=\"http://www.w3.org/2001/XInclude\"><xi:include href=\"file:///etc/passwd\" parse=\"text\"/></r>",
    };
    for (const std::string& text : documents)
        for (bool recover : {false, true}) {
            SCOPED_TRACE(text + (recover ? " (recover)" : ""));
            XmlDocumentPtr doc = tarn::CreateXmlDocument();
            if (doc->Load(text, recover) != 0)
                continue; // refusing the document is fine too
            ASSERT_TRUE(doc->GetRoot());
            const std::string outer = doc->GetRoot()->OuterXml();
            EXPECT_EQ(outer.find("root:"), std::string::npos) << outer;
            EXPECT_EQ(doc->GetRoot()->GetData(), "");
        }
    const int connection = ::accept(listener, nullptr, nullptr);
    EXPECT_TRUE(connection == -1 && (errno == EAGAIN || errno == EWOULDBLOCK)) << "the parser connected to " << http;
    ::close(listener);
}

} // namespace
