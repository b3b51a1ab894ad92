// Parser settings are the library's own, whatever the host process did to libxml2's global
// defaults: documents and readers never substitute entities, load DTDs, open files or print.
#include <gtest/gtest.h>
#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <string>

#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlReader.h"

namespace {

const char kMarker[] = "MARKER-7f3a";

int g_loaderCalls = 0;
xmlExternalEntityLoader g_hostDefault = nullptr;

// A host's own loader: counts every request, then does what libxml2 would.
xmlParserInputPtr countingLoader(const char* url, const char* id, xmlParserCtxtPtr context)
{
    ++g_loaderCalls;
    return g_hostDefault(url, id, context);
}

// Everything an xsltproc-style host changes, restored afterwards.
class HostDefaults {
public:
    HostDefaults()
    {
        savedLoader_ = xmlGetExternalEntityLoader();
        if (g_hostDefault == nullptr)
            g_hostDefault = savedLoader_;
        xmlSetExternalEntityLoader(countingLoader);
        saved_[0] = xmlSubstituteEntitiesDefault(1);
        saved_[1] = xmlLoadExtDtdDefaultValue;
        xmlLoadExtDtdDefaultValue = XML_DETECT_IDS | XML_COMPLETE_ATTRS;
        saved_[2] = xmlPedanticParserDefault(1);
        saved_[3] = xmlDoValidityCheckingDefaultValue;
        xmlDoValidityCheckingDefaultValue = 1;
        saved_[4] = xmlKeepBlanksDefault(0);
    }
    ~HostDefaults()
    {
        xmlSetExternalEntityLoader(savedLoader_);
        xmlSubstituteEntitiesDefault(saved_[0]);
        xmlLoadExtDtdDefaultValue = saved_[1];
        xmlPedanticParserDefault(saved_[2]);
        xmlDoValidityCheckingDefaultValue = saved_[3];
        xmlKeepBlanksDefault(saved_[4]);
    }

private:
    xmlExternalEntityLoader savedLoader_;
    int saved_[5];
};

// Every text a document and a reader give for `xml`: root serialisation, each attribute through
// every getter family, the reader's names, values and serialisations.
std::string everythingRead(const std::string& xml)
{
    std::string out;
    for (bool recover : {false, true}) {
        tarn::XmlDocument document;
        out += std::to_string(document.Load(xml, recover)) + ":";
        if (tarn::XmlNodePtr root = document.GetRoot()) {
            out += root->OuterXml() + root->GetData() + root->GetAttribute("a") + root->GetAttribute("d");
            tarn::XmlAttributeIterator* attributes = root->GetAttributeIterator();
            for (tarn::XmlAttributePtr a = attributes->GetFirst(); a; a = attributes->GetNext())
                out += a->GetName() + "=" + a->GetValue() + ";";
        }
    }
    tarn::XmlReader reader(xml);
    while (reader.read()) {
        out += std::to_string(reader.nodeType()) + reader.name() + "=" + reader.value() + reader.outerXml();
        while (reader.nextAttribute())
            out += reader.name() + "=" + reader.value();
    }
    return out + "state" + std::to_string(reader.state());
}

TEST(ParserSettings, HostDefaultsNeitherSubstituteNorLoadNorPrint)
{
    tarntest::TempDir dir;
    const std::string secret = dir.write("secret.txt", std::string(kMarker) + "\n");
    const std::string dtd = dir.write("ext.dtd", "<!ENTITY % q SYSTEM \"secret.txt\"> %q;\n"
                                                 "<!ENTITY leak SYSTEM \"secret.txt\">\n"
                                                 "<!ENTITY inner \"" + std::string(kMarker) + "\">\n"
                                                 "<!ATTLIST r d CDATA \"" + std::string(kMarker) + "\">\n");
    const std::string docs[] = {
        // an external general entity in content
        "<!DOCTYPE r [<!ENTITY e SYSTEM \"" + secret + "\">]><r a='x'>&e;</r>",
        // a parameter entity referenced in the internal subset
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"" + secret + "\"> %p;]><r/>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"" + dtd + "\"> %p;]><r>&leak;&inner;</r>",
        // an external DTD with default attributes and entities
        "<!DOCTYPE r SYSTEM \"" + dtd + "\"><r>&leak;&inner;</r>",
        "<!DOCTYPE r PUBLIC \"-//x//y\" \"file://" + dtd + "\"><r a='&inner;'/>",
    };

    // Installed before the library's first parse: the host's loader keeps serving the host.
    const HostDefaults host;
    const int watch = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(watch, 0);
    inotify_add_watch(watch, secret.c_str(), IN_OPEN | IN_ACCESS);
    inotify_add_watch(watch, dtd.c_str(), IN_OPEN | IN_ACCESS);

    for (const std::string& xml : docs) {
        SCOPED_TRACE(xml);
        g_loaderCalls = 0;
        testing::internal::CaptureStderr();
        const std::string read = everythingRead(xml) + everythingRead(xml);
        EXPECT_EQ(read.find(kMarker), std::string::npos) << read;
        // The in-memory reader reports its errors on standard error, as libxml2 does by default;
        // none of them may quote the referenced file.
        const std::string printed = testing::internal::GetCapturedStderr();
        EXPECT_EQ(printed.find(kMarker), std::string::npos) << printed;
        EXPECT_EQ(g_loaderCalls, 0);
        char events[4096];
        EXPECT_LE(::read(watch, events, sizeof events), 0) << "a referenced file was opened";
    }

    // Blank text stays in the tree (xmlKeepBlanksDefault(0) above notwithstanding).
    tarn::XmlDocumentPtr blanks = tarn::CreateXmlDocument("<r> <a/> </r>");
    ASSERT_TRUE(blanks);
    EXPECT_EQ(blanks->GetRoot()->OuterXml(), "<r> <a/> </r>");

    // The host's own parse still goes through the host's loader.
    xmlDocPtr hostDoc = xmlReadMemory(docs[0].data(), static_cast<int>(docs[0].size()), "h.xml", nullptr,
                                      XML_PARSE_NOENT | XML_PARSE_NOERROR);
    xmlFreeDoc(hostDoc);
    EXPECT_EQ(g_loaderCalls, 1);
    ::close(watch);
}

} // namespace
