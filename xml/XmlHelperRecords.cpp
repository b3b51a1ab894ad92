// The product records TarnTypes::Source and AV_Class written as XML through the typed bridge.
// Nothing is rolled back: a field that fails leaves the record element with the fields before it.
#include "tarnxml/XmlHelper.h"

#include "Diagnostics.h"
#include "tarn/TarnTypes.h"

namespace XmlHelper {

int toXml(const TarnTypes::Source& source, tarn::XmlNodePtr& parent, const char* name)
{
    tarn::XmlNodePtr record = AddChild(parent, name, "");
    if (!record) {
        tarn::detail::assertionReport(tarn::detail::kHelperSourcePath, __LINE__);
        return -2;
    }
    int result = toXml(static_cast<unsigned int>(source.id), record, "id");
    if (result >= 0)
        result = toXml(source.type.c_str(), record, "type");
    return result;
}

int toXml(const AV_Class& avClass, tarn::XmlNodePtr parent, const char* name)
{
    if (!parent) {
        // Everything that follows needs a parent; stop here with the creation failure.
        tarn::detail::assertionReport(tarn::detail::kHelperSourcePath, __LINE__);
        return -2;
    }
    tarn::XmlNodePtr record = AddChild(parent, name, "");
    if (!record) {
        tarn::detail::assertionReport(tarn::detail::kHelperSourcePath, __LINE__);
        return -2;
    }
    // The record's leading field is not written.
    int result = toXml(static_cast<unsigned int>(avClass.bindingId), record, "bindingid");
    if (result >= 0)
        result = toXml(avClass.className.c_str(), record, "class");
    return result;
}

} // namespace XmlHelper
