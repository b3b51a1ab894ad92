// tarn::XmlReader: a pull reader over an owned copy of XML text, on top of libxml2's text reader.
//
// Every libxml2 call goes through the guards below: a closed reader (null xmlTextReaderPtr)
// answers with the neutral value at once and never reaches libxml2, so nothing depends on how
// each libxml2 function treats a null reader.
#include "tarnxml/XmlReader.h"

#include "ValueText.h"

#include <libxml/xmlmemory.h>
#include <libxml/xmlreader.h>

#include <memory>
#include <new>

void XmlCharDeleter::operator()(unsigned char* text) const
{
    if (text != nullptr)
        xmlFree(text);
}

namespace tarn {

namespace {

const xmlChar* xmlText(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

// libxml2's node types (xmlReaderTypes) that the reader passes on: element (1) to XML
// declaration (17). Anything else, the error result -1 included, is "none".
constexpr int kFirstNodeType = XML_READER_TYPE_ELEMENT;
constexpr int kLastNodeType = XML_READER_TYPE_XML_DECLARATION;

int nonNegative(int value) { return value < 0 ? 0 : value; }

} // namespace

XmlReader::XmlReader() : reader(nullptr) {}

XmlReader::XmlReader(const char* source) : reader(nullptr), text(source != nullptr ? source : "")
{
    reset();
}

XmlReader::XmlReader(const std::string& source) : XmlReader(source.c_str()) {}

XmlReader::~XmlReader() { close(); }

void XmlReader::close()
{
    if (reader != nullptr) {
        xmlFreeTextReader(reader);
        reader = nullptr;
    }
}

void XmlReader::reset()
{
    close();
    if (text.empty())
        return;
    // libxml2 reads the characters of `text` in place; they stay untouched until the next
    // reset(text), which frees this reader first.
    reader = xmlReaderForDoc(xmlText(text.c_str()), "", nullptr, 0);
    if (reader == nullptr)
        throw std::bad_alloc();
}

void XmlReader::reset(const char* source)
{
    // Closing before the text changes keeps libxml2 from ever seeing freed characters, even when
    // the assignment below throws.
    close();
    if (source == nullptr)
        text.clear();
    else
        text = source;
    reset();
}

void XmlReader::reset(const std::string& source) { reset(source.c_str()); }

// ---------------------------------------------------------------------------------------------
// Movement

bool XmlReader::read() { return reader != nullptr && xmlIntToBool(xmlTextReaderRead(reader)); }

bool XmlReader::readAttributeValue()
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderReadAttributeValue(reader));
}

bool XmlReader::nextElement() { return reader != nullptr && xmlIntToBool(xmlTextReaderNext(reader)); }

bool XmlReader::nextSibling()
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderNextSibling(reader));
}

bool XmlReader::firstAttribute()
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderMoveToFirstAttribute(reader));
}

bool XmlReader::nextAttribute()
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderMoveToNextAttribute(reader));
}

bool XmlReader::moveToElement()
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderMoveToElement(reader));
}

bool XmlReader::moveToAttribute(int index)
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderMoveToAttributeNo(reader, index));
}

bool XmlReader::moveToAttribute(const char* attributeName)
{
    return reader != nullptr && attributeName != nullptr &&
           xmlIntToBool(xmlTextReaderMoveToAttribute(reader, xmlText(attributeName)));
}

bool XmlReader::moveToAttribute(const std::string& attributeName)
{
    return moveToAttribute(attributeName.c_str());
}

// ---------------------------------------------------------------------------------------------
// Predicates

bool XmlReader::hasValue() const
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderHasValue(reader));
}

bool XmlReader::isDefault() const
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderIsDefault(reader));
}

bool XmlReader::isEmpty() const
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderIsEmptyElement(reader));
}

bool XmlReader::isNamespaceDecl() const
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderIsNamespaceDecl(reader));
}

bool XmlReader::isValid() const
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderIsValid(reader));
}

bool XmlReader::hasAttributes() const
{
    return reader != nullptr && xmlIntToBool(xmlTextReaderHasAttributes(reader));
}

// ---------------------------------------------------------------------------------------------
// Numbers

int XmlReader::state() const { return reader != nullptr ? xmlTextReaderReadState(reader) : -1; }

int XmlReader::nodeType() const
{
    if (reader == nullptr)
        return 0;
    const int type = xmlTextReaderNodeType(reader);
    return type >= kFirstNodeType && type <= kLastNodeType ? type : 0;
}

int XmlReader::depth() const { return reader != nullptr ? nonNegative(xmlTextReaderDepth(reader)) : 0; }

int XmlReader::attributeCount() const
{
    return reader != nullptr ? nonNegative(xmlTextReaderAttributeCount(reader)) : 0;
}

char XmlReader::quoteChar() const
{
    return reader != nullptr ? static_cast<char>(nonNegative(xmlTextReaderQuoteChar(reader))) : '\0';
}

// ---------------------------------------------------------------------------------------------
// Texts. The libxml2 functions that allocate go to xmlCharToString(unsigned char*), which frees;
// the Const ones to xmlCharToString(const unsigned char*), which does not.

std::string XmlReader::baseUri() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderBaseUri(reader)) : std::string();
}

std::string XmlReader::localName() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderLocalName(reader)) : std::string();
}

std::string XmlReader::name() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderName(reader)) : std::string();
}

std::string XmlReader::namespaceURI() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderNamespaceUri(reader)) : std::string();
}

std::string XmlReader::prefix() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderPrefix(reader)) : std::string();
}

std::string XmlReader::value() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderValue(reader)) : std::string();
}

// A null prefix asks for the default namespace, as xmlTextReaderLookupNamespace does.
std::string XmlReader::lookupNamespace(const char* namespacePrefix) const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderLookupNamespace(reader, xmlText(namespacePrefix)))
                             : std::string();
}

std::string XmlReader::lookupNamespace(const std::string& namespacePrefix) const
{
    return lookupNamespace(namespacePrefix.c_str());
}

std::string XmlReader::getAttribute(int index) const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderGetAttributeNo(reader, index)) : std::string();
}

std::string XmlReader::getAttribute(const char* attributeName) const
{
    if (reader == nullptr || attributeName == nullptr)
        return std::string();
    return xmlCharToString(xmlTextReaderGetAttribute(reader, xmlText(attributeName)));
}

std::string XmlReader::getAttribute(const std::string& attributeName) const
{
    return getAttribute(attributeName.c_str());
}

// A null namespace URI asks for the attribute in no namespace.
std::string XmlReader::getAttribute(const char* attributeLocalName, const char* attributeNamespaceURI) const
{
    if (reader == nullptr || attributeLocalName == nullptr)
        return std::string();
    return xmlCharToString(
        xmlTextReaderGetAttributeNs(reader, xmlText(attributeLocalName), xmlText(attributeNamespaceURI)));
}

std::string XmlReader::getAttribute(const std::string& attributeLocalName,
                                    const std::string& attributeNamespaceURI) const
{
    return getAttribute(attributeLocalName.c_str(), attributeNamespaceURI.c_str());
}

std::string XmlReader::innerXml()
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderReadInnerXml(reader)) : std::string();
}

std::string XmlReader::outerXml()
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderReadOuterXml(reader)) : std::string();
}

std::string XmlReader::encoding() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderConstEncoding(reader)) : std::string();
}

std::string XmlReader::lang() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderConstXmlLang(reader)) : std::string();
}

std::string XmlReader::xmlVersion() const
{
    return reader != nullptr ? xmlCharToString(xmlTextReaderConstXmlVersion(reader)) : std::string();
}

// ---------------------------------------------------------------------------------------------
// Typed values

void XmlReader::value(std::string& out) const
{
    std::string current = value();
    out.swap(current);
}

void XmlReader::value(bool& out) const { out = detail::readerBool(value()); }

// ---------------------------------------------------------------------------------------------
// Conversions

std::string XmlReader::xmlCharToString(unsigned char* owned) const
{
    // Owned from the first moment: if the control block or the copy cannot be allocated, the
    // shared pointer (or its constructor) still frees the libxml2 string.
    const std::shared_ptr<unsigned char> holder(owned, XmlCharDeleter());
    if (!holder)
        return std::string();
    return std::string(reinterpret_cast<const char*>(holder.get()));
}

std::string XmlReader::xmlCharToString(const unsigned char* kept) const
{
    return kept != nullptr ? std::string(reinterpret_cast<const char*>(kept)) : std::string();
}

bool XmlReader::xmlIntToBool(int result) const { return result > 0; }

} // namespace tarn
