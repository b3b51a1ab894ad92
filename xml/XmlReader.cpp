// tarn::XmlReader: a pull reader over an owned copy of XML text, on top of libxml2's text reader.
//
// Every libxml2 call goes through the guards below: a closed reader (null xmlTextReaderPtr)
// answers with the neutral value at once and never reaches libxml2, so nothing depends on how
// each libxml2 function treats a null reader.
#include "tarnxml/XmlReader.h"

#include "EntityText.h"
#include "ParserSetup.h"
#include "ReaderExtras.h"
#include "ValueText.h"

#include <libxml/xmlmemory.h>
#include <libxml/xmlreader.h>

#include <cstddef>
#include <memory>
#include <new>

void XmlCharDeleter::operator()(unsigned char* text) const noexcept
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

// The conversions behind the public xmlCharToString / xmlIntToBool members. The getters call
// these directly: the members are exported, so calls to them from inside the library would go
// through the dynamic linker's indirection and could not be inlined.

// Copies a libxml2-allocated string and frees it; "" for null.
std::string takeString(xmlChar* owned)
{
    if (owned == nullptr)
        return std::string();
    // Owned from the first moment: if the copy cannot be allocated, the holder still frees the
    // libxml2 string. A unique owner is enough here, as the string never leaves this function:
    // no shared count, so no atomic operations and no control block per string.
    const std::unique_ptr<xmlChar, XmlCharDeleter> holder(owned);
    return std::string(reinterpret_cast<const char*>(holder.get()));
}

// Copies a string that libxml2 keeps; "" for null.
std::string copyString(const xmlChar* kept)
{
    return kept != nullptr ? std::string(reinterpret_cast<const char*>(kept)) : std::string();
}

// libxml2 reports success as a positive result, "no" as 0 and errors as -1.
bool positive(int result) { return result > 0; }

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
    detail::closeOwnedFile(extras.get());
}

void XmlReader::reset()
{
    close();
    if (text.empty())
        return;
    detail::ReaderExtras& state = detail::beginRead(extras, std::string());
    state.sink.printWithoutHost = true;
    // libxml2 reads the characters of `text` in place; they stay untouched until the next
    // reset(text), which frees this reader first. The reader is made with the host's parser
    // defaults set aside (ParserSetup.h).
    const detail::ParserDefaults defaults;
    reader = detail::adoptReader(xmlReaderForDoc(xmlText(text.c_str()), "", nullptr, 0), state);
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

// The movements that make libxml2 parse on run as one of the library's parses (ParserSetup.h).
bool XmlReader::read()
{
    if (reader == nullptr)
        return false;
    const detail::LibraryParse gate;
    return positive(xmlTextReaderRead(reader));
}

bool XmlReader::readAttributeValue()
{
    return reader != nullptr && positive(xmlTextReaderReadAttributeValue(reader));
}

bool XmlReader::nextElement()
{
    if (reader == nullptr)
        return false;
    const detail::LibraryParse gate;
    return positive(xmlTextReaderNext(reader));
}

bool XmlReader::nextSibling()
{
    return reader != nullptr && positive(xmlTextReaderNextSibling(reader));
}

bool XmlReader::firstAttribute()
{
    return reader != nullptr && positive(xmlTextReaderMoveToFirstAttribute(reader));
}

bool XmlReader::nextAttribute()
{
    return reader != nullptr && positive(xmlTextReaderMoveToNextAttribute(reader));
}

bool XmlReader::moveToElement()
{
    return reader != nullptr && positive(xmlTextReaderMoveToElement(reader));
}

bool XmlReader::moveToAttribute(int index)
{
    return reader != nullptr && positive(xmlTextReaderMoveToAttributeNo(reader, index));
}

bool XmlReader::moveToAttribute(const char* attributeName)
{
    return reader != nullptr && attributeName != nullptr &&
           positive(xmlTextReaderMoveToAttribute(reader, xmlText(attributeName)));
}

bool XmlReader::moveToAttribute(const std::string& attributeName)
{
    return moveToAttribute(attributeName.c_str());
}

// ---------------------------------------------------------------------------------------------
// Predicates

bool XmlReader::hasValue() const
{
    return reader != nullptr && positive(xmlTextReaderHasValue(reader));
}

bool XmlReader::isDefault() const
{
    return reader != nullptr && positive(xmlTextReaderIsDefault(reader));
}

bool XmlReader::isEmpty() const
{
    return reader != nullptr && positive(xmlTextReaderIsEmptyElement(reader));
}

bool XmlReader::isNamespaceDecl() const
{
    return reader != nullptr && positive(xmlTextReaderIsNamespaceDecl(reader));
}

bool XmlReader::isValid() const
{
    return reader != nullptr && positive(xmlTextReaderIsValid(reader));
}

bool XmlReader::hasAttributes() const
{
    return reader != nullptr && positive(xmlTextReaderHasAttributes(reader));
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
// Texts. The libxml2 functions that allocate go to takeString(unsigned char*), which frees;
// the Const ones to copyString, which does not.

std::string XmlReader::baseUri() const
{
    return reader != nullptr ? takeString(xmlTextReaderBaseUri(reader)) : std::string();
}

std::string XmlReader::localName() const
{
    return reader != nullptr ? takeString(xmlTextReaderLocalName(reader)) : std::string();
}

std::string XmlReader::name() const
{
    // The same text xmlTextReaderName would allocate, read from the reader's dictionary instead:
    // one copy, no allocation and free of libxml2's own per node.
    return reader != nullptr ? copyString(xmlTextReaderConstName(reader)) : std::string();
}

std::string XmlReader::namespaceURI() const
{
    return reader != nullptr ? takeString(xmlTextReaderNamespaceUri(reader)) : std::string();
}

std::string XmlReader::prefix() const
{
    return reader != nullptr ? takeString(xmlTextReaderPrefix(reader)) : std::string();
}

std::string XmlReader::value() const
{
    if (reader == nullptr)
        return std::string();
    // An attribute's value is read in linear time through entity references (EntityText.h);
    // every other node's as libxml2 gives it.
    const xmlNode* const current = xmlTextReaderCurrentNode(reader);
    if (current != nullptr && current->type == XML_ATTRIBUTE_NODE)
        return detail::attributeNodeText(current);
    // For every other node libxml2's value is text the node itself holds (content, a namespace
    // URI): copied once from there rather than from a duplicate libxml2 allocates and frees.
    return copyString(xmlTextReaderConstValue(reader));
}

// A null prefix asks for the default namespace, as xmlTextReaderLookupNamespace does.
std::string XmlReader::lookupNamespace(const char* namespacePrefix) const
{
    return reader != nullptr ? takeString(xmlTextReaderLookupNamespace(reader, xmlText(namespacePrefix)))
                             : std::string();
}

std::string XmlReader::lookupNamespace(const std::string& namespacePrefix) const
{
    return lookupNamespace(namespacePrefix.c_str());
}

std::string XmlReader::getAttribute(int index) const
{
    return reader != nullptr ? takeString(xmlTextReaderGetAttributeNo(reader, index)) : std::string();
}

std::string XmlReader::getAttribute(const char* attributeName) const
{
    if (reader == nullptr || attributeName == nullptr)
        return std::string();
    return detail::readerAttribute(reader, attributeName);
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
    return detail::readerAttribute(reader, attributeLocalName, attributeNamespaceURI);
}

std::string XmlReader::getAttribute(const std::string& attributeLocalName,
                                    const std::string& attributeNamespaceURI) const
{
    return getAttribute(attributeLocalName.c_str(), attributeNamespaceURI.c_str());
}

std::string XmlReader::innerXml()
{
    return reader != nullptr ? takeString(xmlTextReaderReadInnerXml(reader)) : std::string();
}

std::string XmlReader::outerXml()
{
    if (reader == nullptr)
        return std::string();
    // After a parse error libxml2 can leave the reader on the document node itself. Serialising
    // that node copies the whole document and frees the copy as a plain node, which leaks the
    // copy's version and encoding strings (libxml2 2.9). The reader stands there only after an
    // error, so it answers with the neutral empty text instead.
    if (xmlTextReaderNodeType(reader) == XML_READER_TYPE_DOCUMENT)
        return std::string();
    return takeString(xmlTextReaderReadOuterXml(reader));
}

std::string XmlReader::encoding() const
{
    return reader != nullptr ? copyString(xmlTextReaderConstEncoding(reader)) : std::string();
}

std::string XmlReader::lang() const
{
    return reader != nullptr ? copyString(xmlTextReaderConstXmlLang(reader)) : std::string();
}

std::string XmlReader::xmlVersion() const
{
    return reader != nullptr ? copyString(xmlTextReaderConstXmlVersion(reader)) : std::string();
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

std::string XmlReader::xmlCharToString(unsigned char* owned) const { return takeString(owned); }

std::string XmlReader::xmlCharToString(const unsigned char* kept) const { return copyString(kept); }

bool XmlReader::xmlIntToBool(int result) const { return positive(result); }

} // namespace tarn
