// The pull reader: a full walk with every getter at every node.
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "tarnxml/XmlReader.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    tarnfuzz::silenceLibxml2();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    tarn::XmlReader reader(std::string(reinterpret_cast<const char*>(data), size));
    int steps = 0;
    while (reader.read() && ++steps < 100000) {
        const int type = reader.nodeType();
        FUZZ_CHECK(type >= 0 && type <= 17);
        FUZZ_CHECK(reader.depth() >= 0 && reader.attributeCount() >= 0);
        (void)reader.state();
        (void)reader.name();
        (void)reader.localName();
        (void)reader.prefix();
        (void)reader.namespaceURI();
        (void)reader.baseUri();
        (void)reader.value();
        (void)reader.hasValue();
        (void)reader.isEmpty();
        (void)reader.isDefault();
        (void)reader.isNamespaceDecl();
        (void)reader.hasAttributes();
        (void)reader.quoteChar();
        (void)reader.lang();
        (void)reader.encoding();
        (void)reader.xmlVersion();
        (void)reader.lookupNamespace("p");
        (void)reader.getAttribute(0);
        (void)reader.getAttribute("a");
        (void)reader.getAttribute("a", "urn:x");
        bool flag = false;
        reader.value(flag);
        if (steps % 7 == 0) {
            (void)reader.innerXml();
            (void)reader.outerXml();
        }
        if (reader.firstAttribute()) {
            do {
                (void)reader.name();
                (void)reader.value();
                while (reader.readAttributeValue())
                    (void)reader.value();
            } while (reader.nextAttribute());
            reader.moveToElement();
        }
    }
    return 0;
}
