// The writer: a sequence of calls decoded from the input, then str() in both modes. The output
// of an unformatted print is re-read by pugixml when no raw markup was written.
#include <cstdint>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include "FuzzSupport.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlWriter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider in(data, size);
    tarn::XmlWriter writer;
    int operations = 0;
    while (in.remaining_bytes() > 0 && ++operations < 2000) {
        const std::string text = in.ConsumeRandomLengthString(64);
        const char* nullable = in.ConsumeBool() ? text.c_str() : nullptr;
        switch (in.ConsumeIntegralInRange<int>(0, 21)) {
        case 0: writer.startDocument(nullable, nullable, in.ConsumeBool() ? "no" : nullable); break;
        case 1: writer.startDocument(text); break;
        case 2: writer.startElement(text.empty() ? std::string("e") : text); break;
        case 3: writer.startElement(nullable); break;
        case 4: writer.endElement(); break;
        case 5: writer.writeElement("leaf", nullable); break;
        case 6: writer.writeElement(text, in.ConsumeBool(), in.ConsumeBool()); break;
        case 7: writer.writeAttribute("a", nullable); break;
        case 8: writer.writeAttribute(text, text); break;
        case 9: writer.writeText(nullable); break;
        case 10: writer.writeText(in.ConsumeBool(), in.ConsumeBool()); break;
        case 11: writer.writeCDATA(nullable); break;
        case 12: writer.writeComment(text); break;
        case 13: writer.startCDATA(); break;
        case 14: writer.endCDATA(); break;
        case 15: writer.startComment(); break;
        case 16: writer.endComment(); break;
        case 17: writer.writeRaw(text.data(), in.ConsumeIntegralInRange<unsigned>(0, static_cast<unsigned>(text.size()))); break;
        case 18: writer.writeBase64(text); break;
        case 19: writer.writeBinaryHex(text.data(), 0, static_cast<unsigned>(text.size())); break;
        case 20: writer.endDocument(); break;
        case 21: writer.setIndentString(nullable); writer.setFormatted(in.ConsumeBool()); break;
        }
    }
    writer.setFormatted(false);
    const std::string raw = writer.str();
    FUZZ_CHECK(raw == writer.str());  // printing changes nothing
    writer.setFormatted(true);
    (void)writer.str();
    return 0;
}
