// Uses the installed library through its umbrella header: parse, query, build, write.
#include <tarnxml/tarnxml.h>

#include <iostream>

int main()
{
    tarn::XmlDocumentPtr document = tarn::CreateXmlDocument("<config><port>8080</port></config>");
    if (!document)
        return 1;
    tarn::XmlNodePtr root = document->GetRoot();
    const int port = root->GetChildDataInt32("port");

    tarn::XmlWriter writer;
    writer.startElement("status");
    writer.writeAttribute("port", std::to_string(port));
    writer.endElement();

    // The installed version header matches the installed library.
    std::cout << root->OuterXml() << "\n" << writer.str() << "\nlibtarnxml " << tarn::versionString() << "\n";
    return port == 8080 && writer.str() == "<status port=\"8080\"/>" &&
                   tarn::versionNumber() == TARNXML_VERSION_NUMBER
               ? 0
               : 1;
}
