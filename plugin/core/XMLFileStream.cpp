#include "core/XMLFileStream.h"

#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/LocalFileFormatTarget.hpp>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "core/FileManager.h"
#include "core/FileStream.h"
#include "shell/Util.h"

using namespace xercesc;

// ---- XMLStringConverter -------------------------------------------------------------------

// Conversion failures (a character the other side cannot hold) leave the converter empty:
// nothing of the library's exceptions leaves this wrapper.
XMLStringConverter::XMLStringConverter(const char* text) {
    if (!text) return;
    try {
        wide = XMLString::transcode(text);
    } catch (...) {
        wide = nullptr;
    }
}

XMLStringConverter::XMLStringConverter(const XMLCh* text) {
    if (!text) return;
    try {
        narrow = XMLString::transcode(text);
    } catch (...) {
        narrow = nullptr;
    }
}

XMLStringConverter::~XMLStringConverter() {
    if (wide) XMLString::release(&wide);
    if (narrow) XMLString::release(&narrow);
}

namespace {

// All text passes through the host string's single-byte form on its way in and out.
ORV::CString fromXML(const XMLCh* text) {
    XMLStringConverter converted(text);
    ORV::CString out;
    out.PutAsciiString(converted);
    return out;
}

ORV::CString numberText(double value) { return ORV::CValue(value).GetAsText(); }

ORV::CString intText(int value) { return ORV::CValue(value).GetAsText(); }

// The host's text of a vector is "x,y,z", each number in its round-trip form.
ORV::CString vectorText(const ORV::MATH::CVector3& v) { return ORV::CValue(v).GetAsText(); }

ORV::CString rotationText(const ORV::MATH::CRotation& r) {
    double angle = 0.0;
    const ORV::MATH::CVector3 axis = r.GetAxisAngle(angle);
    return vectorText(axis) + L"," + numberText(angle);
}

double toDouble(const ORV::CString& text) { return static_cast<double>(ORV::CValue(text)); }

bool startsWithNoCase(const XMLCh* text, const char* prefix) {
    if (!text) return false;
    for (size_t i = 0; prefix[i]; ++i) {
        XMLCh c = text[i];
        if (c >= u'a' && c <= u'z') c = static_cast<XMLCh>(c - u'a' + u'A');
        if (c != static_cast<XMLCh>(prefix[i])) return false;
    }
    return true;
}

// The message of an exception of the library, as text.
ORV::CString exceptionText(const XMLException& e) { return fromXML(e.getMessage()); }
ORV::CString exceptionText(const DOMException& e) { return fromXML(e.getMessage()); }

}  // namespace

// ---- Opening and closing -------------------------------------------------------------------

XMLFileStream::XMLFileStream() {
    const ORV::CString user = ORV::Application().GetInstallationPath(ORV::ovUserPath);
    // Without a user location there is no place for the settings: the stream stays empty
    // and every read gives its default.
    if (user.IsEmpty()) {
        Init(ORV::CString(), false, false);
        return;
    }
    Init(user + L"/TROVO.ini", true, true);
}

XMLFileStream::XMLFileStream(ORV::CString path, bool read, bool write) { Init(path, read, write); }

void XMLFileStream::Init(ORV::CString filePath, bool read, bool write) {
    // A stream opened again lets go of its old document unwritten.
    if (parser) {
        delete parser;
        parser = nullptr;
    } else if (document) {
        document->release();
    }
    document = nullptr;
    path = filePath;
    readErrorsShown = read;
    writeOnClose = write;
    ok = true;
    if (read && ZUK::FileManager::fileIsReadable(path)) {
        ReadDOMTree();
        return;
    }
    if (write) CreateNewDOMTree();
}

XMLFileStream::~XMLFileStream() {
    if (writeOnClose && document) writeDocument(path);
    // A document read from a file belongs to the parser.
    if (parser) {
        delete parser;
        parser = nullptr;
    } else if (document) {
        document->release();
    }
    document = nullptr;
    if (platformInitialised) XMLPlatformUtils::Terminate();
    if (readErrorsShown) DisplayErrors();
}

bool XMLFileStream::initialisePlatform() {
    if (platformInitialised) return true;
    XMLPlatformUtils::Initialize();  // the default locale
    platformInitialised = true;
    return true;
}

bool XMLFileStream::IsXMLFile(ORV::CString filePath) {
    if (filePath.IsEmpty()) return false;
    FILE* file = std::fopen(filePath.GetAsciiString(), "rb");
    if (!file) return false;
    char head[5] = {0, 0, 0, 0, 0};
    const bool longEnough = StdFileLength(file) > 4;
    const bool read = longEnough && std::fread(head, 1, 5, file) == 5;
    std::fclose(file);
    return read && std::memcmp(head, "<?xml", 5) == 0;
}

void XMLFileStream::ReadDOMTree() {
    if (!ZUK::FileManager::fileIsReadable(path)) AddError(L"File Not found: " + path);
    try {
        initialisePlatform();
        parser = new XercesDOMParser;
        parser->setValidationScheme(XercesDOMParser::Val_Auto);
        parser->setDoNamespaces(false);
        parser->setDoSchema(false);
        parser->setCreateEntityReferenceNodes(false);
        // The XML library loses a reader's buffer when it is handed a folder; a folder is
        // refused here as the one error the parser would report for it.
        struct stat info;
        const bool folder = ::stat(path.GetAsciiString(), &info) == 0 && S_ISDIR(info.st_mode);
        XMLStringConverter file(path.GetAsciiString());
        LocalFileInputSource source(file);
        if (!folder) parser->parse(source);
        const XMLSize_t count = folder ? 1 : parser->getErrorCount();
        ok = count == 0;
        if (count > 0) AddError(L"Parsing " + path + L" error count: " + intText(static_cast<int>(count)));
    } catch (const XMLException& e) {
        AddError(L"DOM Exception parsing " + path + L"\n reports: \n" + exceptionText(e));
    } catch (const DOMException& e) {
        AddError(L"DOM Exception parsing " + path + L"\n reports: \n" + exceptionText(e));
    } catch (...) {
        AddError(L"An Exception parsing " + path);
    }
    if (ok && parser) document = parser->getDocument();
}

void XMLFileStream::CreateNewDOMTree() {
    try {
        initialisePlatform();
        XMLStringConverter core("Core");
        DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(core);
        XMLStringConverter root("ROOT");
        if (implementation) document = implementation->createDocument(nullptr, root, nullptr);
    } catch (...) {
        AddError(L"DOM Exception Writing " + path + L"\n reports: \n");
    }
}

bool XMLFileStream::writeDocument(const ORV::CString& target) {
    if (!document) return false;
    bool written = false;
    DOMLSSerializer* serializer = nullptr;
    DOMLSOutput* output = nullptr;
    LocalFileFormatTarget* file = nullptr;
    try {
        XMLStringConverter core("Core");
        DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(core);
        if (!implementation) return false;
        serializer = implementation->createLSSerializer();
        DOMConfiguration* config = serializer->getDomConfig();
        if (config->canSetParameter(XMLUni::fgDOMWRTFormatPrettyPrint, true))
            config->setParameter(XMLUni::fgDOMWRTFormatPrettyPrint, true);
        // No encoding is set, so the library picks the document's own, else UTF-8. The
        // byte-order mark is asked for only on UTF-16 and UCS-4 output, the encodings the
        // writer of old gave one: today's library would also put one before UTF-8, and a UTF-8
        // file must begin with "<?xml" for IsXMLFile, and the readers that sniff with it, to
        // know our own files again.
        const XMLCh* encoding = document->getInputEncoding();
        if (!encoding || !*encoding) encoding = document->getXmlEncoding();
        const bool wideEncoding = startsWithNoCase(encoding, "UTF-16") || startsWithNoCase(encoding, "UCS-4");
        if (wideEncoding && config->canSetParameter(XMLUni::fgDOMWRTBOM, true))
            config->setParameter(XMLUni::fgDOMWRTBOM, true);
        XMLStringConverter name(target.GetAsciiString());
        file = new LocalFileFormatTarget(static_cast<const XMLCh*>(name));
        output = implementation->createLSOutput();
        output->setByteStream(file);
        written = serializer->write(document, output);
        file->flush();
    } catch (...) {
        AddError(L"DOM Exception Writing " + target + L"\n reports: \n");
        written = false;
    }
    if (output) output->release();
    if (serializer) serializer->release();
    try {
        delete file;
    } catch (...) {
        written = false;
    }
    return written;
}

void XMLFileStream::AddError(const ORV::CString& error) {
    errors.Add(error);
    ok = false;
}

void XMLFileStream::DisplayErrors() {
    if (errors.GetCount() == 0) return;
    ORV::CString message = L"Errors occured while loading the following file : \n" + path + L"\n";
    for (long i = 0; i < static_cast<long>(errors.GetCount()); ++i)
        message += L"Error : " + errors[i] + L"\n";
    ZUK::Util::alert(message);
}

// ---- Navigation ---------------------------------------------------------------------------

int XMLFileStream::GetNumChildElements(DOMNode* node) {
    if (!node) return 0;
    int count = 0;
    for (DOMNode* child = node->getFirstChild(); child; child = child->getNextSibling())
        if (child->getNodeType() == DOMNode::ELEMENT_NODE) ++count;
    return count;
}

DOMElement* XMLFileStream::GetChildElement(DOMNode* node, int index) {
    if (!node || index < 0) return nullptr;
    int i = 0;
    for (DOMNode* child = node->getFirstChild(); child; child = child->getNextSibling()) {
        if (child->getNodeType() != DOMNode::ELEMENT_NODE) continue;
        if (i == index) return static_cast<DOMElement*>(child);
        ++i;
    }
    return nullptr;
}

DOMElement* XMLFileStream::GetNextSiblingElement(DOMNode* node) {
    if (!node) return nullptr;
    for (DOMNode* next = node->getNextSibling(); next; next = next->getNextSibling())
        if (next->getNodeType() == DOMNode::ELEMENT_NODE) return static_cast<DOMElement*>(next);
    return nullptr;
}

DOMElement* XMLFileStream::FindElement(DOMElement* parent, ORV::CString name) {
    if (!parent) return nullptr;
    XMLStringConverter wanted(name.GetAsciiString());
    const XMLCh* wantedName = wanted;
    if (!wantedName) return nullptr;
    for (DOMNode* child = parent->getFirstChild(); child; child = child->getNextSibling()) {
        if (child->getNodeType() == DOMNode::ELEMENT_NODE &&
            XMLString::equals(child->getNodeName(), wantedName))
            return static_cast<DOMElement*>(child);
    }
    return nullptr;
}

ORV::CString XMLFileStream::GetNodeName(DOMNode* node) {
    if (!node) return ORV::CString();
    return fromXML(node->getNodeName());
}

// ---- Element values -----------------------------------------------------------------------

ORV::CString XMLFileStream::readElementValue(DOMNode* node) {
    if (!node) return ORV::CString();
    DOMNode* first = node->getFirstChild();
    if (!first || first->getNodeType() != DOMNode::TEXT_NODE) return ORV::CString();
    return fromXML(first->getNodeValue());
}

bool XMLFileStream::readElementValue(DOMElement* parent, const ORV::CString& name, ORV::CString& out) {
    DOMElement* element = FindElement(parent, name);
    if (!element) {
        AddError(L"DOMElement : <" + name + L"> not found under : " + GetNodeName(parent));
        return false;
    }
    DOMNode* first = element->getFirstChild();
    if (first && first->getNodeType() == DOMNode::TEXT_NODE) out = fromXML(first->getNodeValue());
    return true;
}

void XMLFileStream::SetElementValue(DOMNode* node, ORV::CString value) {
    if (!node) return;
    XMLStringConverter text(value.GetAsciiString());
    try {
        DOMNode* first = node->getFirstChild();
        if (first) {
            if (first->getNodeType() == DOMNode::TEXT_NODE) first->setNodeValue(text);
            return;
        }
        DOMDocument* owner = node->getOwnerDocument();
        if (owner) node->appendChild(owner->createTextNode(text));
    } catch (const DOMException& e) {
        AddError(L"DOM Exception Writing " + path + L"\n reports: \n" + exceptionText(e));
    }
}

DOMElement* XMLFileStream::GetRootElement() { return document ? document->getDocumentElement() : nullptr; }

bool XMLFileStream::WriteComment(DOMElement* parent, const ORV::CString& text) {
    if (!parent) return false;
    DOMDocument* owner = parent->getOwnerDocument();
    if (!owner) return false;
    XMLStringConverter content(text.GetAsciiString());
    try {
        parent->appendChild(owner->createComment(content));
        return true;
    } catch (const DOMException& e) {
        // A comment may not hold "--".
        AddError(L"DOM Exception Writing " + path + L"\n reports: \n" + exceptionText(e));
        return false;
    }
}

DOMElement* XMLFileStream::WriteElement(DOMElement* parent, const ORV::CString& name) {
    if (!parent) return nullptr;
    DOMDocument* owner = parent->getOwnerDocument();
    if (!owner) return nullptr;
    XMLStringConverter tag(name.GetAsciiString());
    try {
        DOMElement* element = owner->createElement(tag);
        parent->appendChild(element);
        return element;
    } catch (const DOMException& e) {
        // A name that is no XML name ("", "a b", "1x"): the element cannot exist.
        AddError(L"DOM Exception Writing " + path + L"\n reports: \n" + exceptionText(e));
        return nullptr;
    }
}

DOMElement* XMLFileStream::WriteElement(DOMElement* parent, const ORV::CString& name,
                                        const ORV::CString& value) {
    DOMElement* element = WriteElement(parent, name);
    if (element) SetElementValue(element, value);
    return element;
}

DOMElement* XMLFileStream::WriteElement(DOMElement* parent, const ORV::CString& name,
                                        const ORV::CString& attributeName,
                                        const ORV::CString& attributeValue) {
    DOMElement* element = WriteElement(parent, name);
    if (element) SetAttributeValue(element, attributeName, attributeValue);
    return element;
}

// ---- Attributes ---------------------------------------------------------------------------

void XMLFileStream::SetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      const ORV::CString& value) {
    if (!element) return;
    XMLStringConverter attribute(name.GetAsciiString());
    XMLStringConverter text(value.GetAsciiString());
    try {
        element->setAttribute(attribute, text);
    } catch (const DOMException& e) {
        AddError(L"DOM Exception Writing " + path + L"\n reports: \n" + exceptionText(e));
    }
}

void XMLFileStream::SetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      const ORV::MATH::CVector3& value) {
    SetAttributeValue(element, name, vectorText(value));
}

void XMLFileStream::SetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      const ORV::MATH::CRotation& value) {
    SetAttributeValue(element, name, rotationText(value));
}

void XMLFileStream::SetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      const ORV::MATH::CTransformation& value) {
    SetAttributeValue(element, name,
                      rotationText(value.GetRotation()) + L"," + vectorText(value.GetTranslation()));
}

bool XMLFileStream::HasAttribute(DOMElement* element, const ORV::CString& name) {
    if (!element) return false;
    XMLStringConverter attribute(name.GetAsciiString());
    const XMLCh* attributeName = attribute;
    return attributeName && element->hasAttribute(attributeName);
}

bool XMLFileStream::GetAttributeValue(DOMElement* element, const ORV::CString& name, ORV::CString& out) {
    // No element, no transcoding: a stream without a document may have no platform to do it.
    if (element) {
        XMLStringConverter attribute(name.GetAsciiString());
        const XMLCh* attributeName = attribute;
        if (attributeName && element->hasAttribute(attributeName)) {
            out = fromXML(element->getAttribute(attributeName));
            return true;
        }
    }
    AddError(L"Atribute : <" + name + L"> not found under : " + GetNodeName(element));
    return false;
}

namespace {

// Reads an attribute of `count` comma-separated numbers; a wrong count is an error naming the
// type that was expected.
bool readNumbers(XMLFileStream& stream, DOMElement* element, const ORV::CString& name,
                 const wchar_t* typeName, long count, double* out) {
    ORV::CString text;
    if (!stream.GetAttributeValue(element, name, text)) return false;
    const ORV::CStringArray parts = text.Split(L",");
    if (parts.GetCount() != count) {
        stream.AddError(L"Error reading " + ORV::CString(typeName) + L" Attribute : <" + name +
                        L"> not found under : " + stream.GetNodeName(element));
        return false;
    }
    for (long i = 0; i < count; ++i) out[i] = toDouble(parts[i]);
    return true;
}

}  // namespace

bool XMLFileStream::GetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      ORV::MATH::CVector3& out) {
    double v[3];
    if (!readNumbers(*this, element, name, L"CVector3", 3, v)) return false;
    out.Set(v[0], v[1], v[2]);
    return true;
}

bool XMLFileStream::GetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      ORV::MATH::CRotation& out) {
    double v[4];
    if (!readNumbers(*this, element, name, L"CRotation", 4, v)) return false;
    out.SetFromAxisAngle(ORV::MATH::CVector3(v[0], v[1], v[2]), v[3]);
    return true;
}

bool XMLFileStream::GetAttributeValue(DOMElement* element, const ORV::CString& name,
                                      ORV::MATH::CTransformation& out) {
    double v[7];
    if (!readNumbers(*this, element, name, L"CTransformation", 7, v)) return false;
    out.SetRotationFromAxisAngle(ORV::MATH::CVector3(v[0], v[1], v[2]), v[3]);
    out.SetTranslationFromValues(v[4], v[5], v[6]);
    return true;
}

// ---- Settings -----------------------------------------------------------------------------

DOMElement* XMLFileStream::getINIElement(const ORV::CString& section, const ORV::CString& key) {
    if (!document) return nullptr;
    DOMElement* root = document->getDocumentElement();
    if (!root) return nullptr;
    DOMElement* sectionElement = FindElement(root, section);
    if (!sectionElement) sectionElement = WriteElement(root, section);
    if (!sectionElement) return nullptr;
    DOMElement* keyElement = FindElement(sectionElement, key);
    if (!keyElement) keyElement = WriteElement(sectionElement, key);
    return keyElement;
}

ORV::CString XMLFileStream::getINIValue(const ORV::CString& section, const ORV::CString& key,
                                        const ORV::CString& defaultValue) {
    DOMElement* element = getINIElement(section, key);
    if (!element) return defaultValue;
    DOMNode* first = element->getFirstChild();
    if (first && first->getNodeType() == DOMNode::TEXT_NODE) return fromXML(first->getNodeValue());
    SetElementValue(element, defaultValue);
    return defaultValue;
}

int XMLFileStream::getINIValue(const ORV::CString& section, const ORV::CString& key, int defaultValue) {
    const ORV::CString text = getINIValue(section, key, intText(defaultValue));
    return static_cast<int>(ORV::CValue(text));
}

bool XMLFileStream::setINIValue(const ORV::CString& section, const ORV::CString& key,
                                const ORV::CString& value) {
    DOMElement* element = getINIElement(section, key);
    if (!element) return false;
    // "FILEPATHS" holds last used folders, whatever the caller passes.
    if (section == L"FILEPATHS")
        SetElementValue(element, ZUK::FileManager::extractPath(value));
    else
        SetElementValue(element, value);
    return true;
}

// ---- Host parameter sets ------------------------------------------------------------------

DOMElement* XMLFileStream::WriteParameter(ORV::Parameter parameter, DOMElement* parent) {
    DOMElement* element =
        WriteElement(parent, parameter.GetScriptName(), ORV::CValue(parameter.GetValue()).GetAsText());
    if (!element) return nullptr;
    SetAttributeValue(element, L"Capabilities", intText(parameter.GetCapabilities()));
    SetAttributeValue(element, L"Name", parameter.GetName());
    SetAttributeValue(element, L"Description", parameter.GetDescription());
    SetAttributeValue(element, L"DataType", intText(static_cast<int>(parameter.GetValueType())));
    return element;
}

DOMElement* XMLFileStream::WriteParameterSet(ORV::CustomProperty property, DOMElement* parent,
                                             ORV::CString name) {
    DOMElement* element = WriteElement(parent, name);
    if (!element) return nullptr;
    const ORV::CRefArray parameters = property.GetParameters();
    for (long i = 0; i < static_cast<long>(parameters.GetCount()); ++i)
        WriteParameter(ORV::Parameter(parameters[i]), element);
    return element;
}

bool XMLFileStream::ReadParameter(ORV::Parameter parameter, DOMNode* node) {
    if (!node || !parameter.IsValid()) return false;
    return parameter.PutValue(ORV::CValue(readElementValue(node))) == ORV::CStatus::OK;
}

bool XMLFileStream::ReadParameterSet(ORV::CustomProperty property, DOMNode* node) {
    if (!node) return false;
    for (DOMNode* child = node->getFirstChild(); child; child = child->getNextSibling()) {
        if (child->getNodeType() != DOMNode::ELEMENT_NODE) continue;
        ORV::Parameter parameter = property.GetParameter(GetNodeName(child));
        if (parameter.IsValid()) ReadParameter(parameter, child);
    }
    return true;
}

bool XMLFileStream::CreateParameterSet(ORV::CustomProperty property, DOMNode* node) {
    if (!node) return false;
    bool result = true;
    for (DOMNode* child = node->getFirstChild(); child; child = child->getNextSibling()) {
        if (child->getNodeType() != DOMNode::ELEMENT_NODE) continue;
        DOMElement* element = static_cast<DOMElement*>(child);
        const ORV::CString scriptName = GetNodeName(element);
        ORV::CString dataType, capabilities, label, description, defaultText;
        bool found = GetAttributeValue(element, L"DataType", dataType);
        found = GetAttributeValue(element, L"Capabilities", capabilities) && found;
        found = GetAttributeValue(element, L"Name", label) && found;
        found = GetAttributeValue(element, L"Description", description) && found;

        // The type is a word here, not the decimal that WriteParameter writes.
        bool known = true;
        ORV::ovValueType type = ORV::ovString;
        if (dataType == L"ovInt4")
            type = ORV::ovInt4;
        else if (dataType == L"ovFloat" || dataType == L"ovDouble")
            type = ORV::ovDouble;
        else if (dataType == L"ovString")
            type = ORV::ovString;
        else
            known = false;
        if (known) found = GetAttributeValue(element, L"DefaultValue", defaultText) && found;

        if (!found) result = false;
        if (!result || !known) continue;
        ORV::CValue defaultValue;
        if (type == ORV::ovInt4)
            defaultValue = ORV::CValue(static_cast<int>(ORV::CValue(defaultText)));
        else if (type == ORV::ovDouble)
            defaultValue = ORV::CValue(toDouble(defaultText));
        else
            defaultValue = ORV::CValue(defaultText);
        ORV::Parameter added;
        property.AddParameter(scriptName, type, static_cast<int>(ORV::CValue(capabilities)), label,
                              description, defaultValue, added);
    }
    return result;
}
