// Documents: load the input (the first line is an XPath expression, the rest the document) with
// recover off and on, then serialise, clone, walk children and attributes, query.
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    tarn::libXMLStartup();
    tarnfuzz::silenceLibxml2();
    return 0;
}

namespace {

void exercise(tarn::XmlDocument& document, const std::string& xpath)
{
    tarn::XmlNodePtr root = document.GetRoot();
    if (!root)
        return;
    (void)root->OuterXml();
    (void)root->GetData();
    (void)root->GetAttributeCount();

    tarn::XmlNodePtr clone = root->Clone();
    FUZZ_CHECK(clone && clone->OuterXml() == root->OuterXml());
    (void)clone->SerializeOuterXml();

    int children = 0;
    for (tarn::XmlNodePtr child = root->GetIterator()->GetFirst(); child && children < 10000;
         child = root->GetIterator()->GetNext(), ++children) {
        (void)child->GetName();
        tarn::XmlAttributeIterator* attributes = child->GetAttributeIterator();
        for (tarn::XmlAttributePtr a = attributes->GetFirst(); a; a = attributes->GetNext())
            (void)a->GetValue();
    }
    FUZZ_CHECK(children == root->GetChildCount() || children == 10000);

    if (tarn::XPathNodeIterator* found = document.GetIterator(xpath)) {
        int n = 0;
        for (tarn::XmlNodePtr node = found->GetFirst(); node && n < 10000; node = found->GetNext(), ++n)
            (void)node->GetName();
    }
    if (tarn::XPathNodeIterator* relative = root->GetIterator(xpath))
        (void)relative->GetFirst();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t newline = input.find('\n');
    const std::string xpath = newline == std::string::npos ? std::string("//*") : input.substr(0, newline);
    const std::string text = newline == std::string::npos ? input : input.substr(newline + 1);

    for (const bool recover : {false, true}) {
        tarn::XmlDocument document;
        if (document.Load(text, recover) == 0)
            exercise(document, xpath);
        else
            FUZZ_CHECK(!document.GetRoot());
    }
    return 0;
}
