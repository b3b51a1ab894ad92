// Documents: load the input (the first line is an XPath expression, the rest the document) with
// recover off and on, then serialise, clone, walk children and attributes, query (the namespace
// axis too), and copy the tree again under a chain of elements built deeper than the parser allows.
#include <cstdint>
#include <sstream>
#include <string>

#include <libxml/tree.h>

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
    // Serialised through the scratch document, the clone belongs to no document again.
    FUZZ_CHECK(clone->getlibXML2Node()->doc == nullptr);
    if (tarn::XPathNodeIterator* own = clone->GetIterator(xpath))
        FUZZ_CHECK(!own->GetFirst() || own->GetFirst()->getlibXML2Node()->doc == nullptr);

    // A chain built through the API, deeper than the parser's limit, holding the clone: copies
    // of it (made without recursion) print as the original does.
    tarn::XmlNodePtr chain = clone;
    for (int level = 0; level < 300; ++level) {
        tarn::XmlNodePtr parent = tarn::CreateXmlNode("c", "");
        FUZZ_CHECK(parent->AddChild(chain) == 0);
        chain = parent;
    }
    const std::string chainXml = chain->OuterXml();
    FUZZ_CHECK(chain->Clone()->OuterXml() == chainXml);
    tarn::XmlDocument holder;
    if (holder.Load("<h/>", false) == 0 && holder.GetRoot()->AddChild(chain->Clone()) == 0)
        FUZZ_CHECK(holder.Copy()->GetRoot()->OuterXml() == "<h>" + chainXml + "</h>");

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
    for (const char* axis : {"//namespace::*", "namespace::*/.."})
        if (tarn::XPathNodeIterator* names = root->GetIterator(axis))
            for (tarn::XmlNodePtr node = names->GetFirst(); node; node = names->GetNext())
                (void)node->GetName();
}

// The whole document streamed (SaveTo) is ToString's printout byte for byte, formatted or not.
void printedAlike(const tarn::XmlDocument& document)
{
    for (const bool format : {false, true}) {
        tarn::XmlSaveOptions save;
        save.format = format;
        const std::string whole = document.ToString(save);
        std::ostringstream streamed;
        const bool printed = document.SaveTo(streamed, save);
        FUZZ_CHECK(printed == !whole.empty());
        FUZZ_CHECK(streamed.str() == whole);
    }
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
        tarn::XmlLoadOptions options;
        options.recover = recover;
        options.noBlanks = true;
        if (document.Load(text, options) == 0)
            printedAlike(document);
        if (document.Load(text, recover) == 0) {
            printedAlike(document);
            exercise(document, xpath);
        } else {
            FUZZ_CHECK(!document.GetRoot());
        }
    }
    return 0;
}
