// The one wrapper of the XML library: one DOM document, opened or created, navigated by
// element name, with typed attributes, host parameter sets, and a list of errors shown in one
// summary when the stream closes. Also the per-user settings document "TROVO.ini", read and
// written as section/key values. A stream is a scope: a document opened for writing is
// written when the stream goes away.
#pragma once

// Only the node interfaces: the whole DOM header set would make every includer link the XML
// library itself, and nothing outside this wrapper should.
#include <orv/ORV.h>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMNodeList.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class XercesDOMParser;
XERCES_CPP_NAMESPACE_END

// Bridge between single-byte text and the parser's 16-bit characters. Holds what it
// converted and releases it on destruction; a null source leaves it empty.
class XMLStringConverter {
public:
    explicit XMLStringConverter(const char* text);
    explicit XMLStringConverter(const XMLCh* text);
    ~XMLStringConverter();

    XMLStringConverter(const XMLStringConverter&) = delete;
    XMLStringConverter& operator=(const XMLStringConverter&) = delete;

    // The side that was not filled reads as null.
    operator const XMLCh*() const { return wide; }
    operator const char*() const { return narrow; }

    XMLCh* wide = nullptr;
    char* narrow = nullptr;
};

class XMLFileStream {
public:
    // The settings document: "TROVO.ini" in the host's user location, read and written.
    XMLFileStream();
    // `read`: load an existing readable file (and show collected errors on close);
    // `write`: create a new document when none was loaded, and write it on close.
    XMLFileStream(ORV::CString path, bool read, bool write);
    ~XMLFileStream();

    XMLFileStream(const XMLFileStream&) = delete;
    XMLFileStream& operator=(const XMLFileStream&) = delete;

    void Init(ORV::CString path, bool read, bool write);
    // True exactly when the file is longer than 4 bytes and begins with "<?xml". A
    // byte-order mark is not skipped.
    static bool IsXMLFile(ORV::CString path);

    void AddError(const ORV::CString& error);
    // One message box with every error collected since opening; nothing when there is none.
    void DisplayErrors();

    // ---- Navigation
    int GetNumChildElements(xercesc::DOMNode* node);
    // The child element of that index counting elements only; null when there is none.
    xercesc::DOMElement* GetChildElement(xercesc::DOMNode* node, int index);
    // The next element after `node` among its siblings; null when there is none.
    xercesc::DOMElement* GetNextSiblingElement(xercesc::DOMNode* node);
    // The first direct child element named `name`, case included; null when there is none.
    xercesc::DOMElement* FindElement(xercesc::DOMElement* parent, ORV::CString name);
    ORV::CString GetNodeName(xercesc::DOMNode* node);

    // ---- Element values
    // The text of the node's first child when that is a text node, otherwise empty.
    ORV::CString readElementValue(xercesc::DOMNode* node);
    // The text of the child element `name`; `out` is left alone when it has none. False, with
    // an error, when the element is missing.
    bool readElementValue(xercesc::DOMElement* parent, const ORV::CString& name, ORV::CString& out);
    void SetElementValue(xercesc::DOMNode* node, ORV::CString value);
    // The document element; null when there is no document.
    xercesc::DOMElement* GetRootElement();
    // Appends a comment node with `text` under `parent`. False, with an error, when it cannot.
    bool WriteComment(xercesc::DOMElement* parent, const ORV::CString& text);
    xercesc::DOMElement* WriteElement(xercesc::DOMElement* parent, const ORV::CString& name);
    xercesc::DOMElement* WriteElement(xercesc::DOMElement* parent, const ORV::CString& name,
                                      const ORV::CString& value);
    xercesc::DOMElement* WriteElement(xercesc::DOMElement* parent, const ORV::CString& name,
                                      const ORV::CString& attributeName, const ORV::CString& attributeValue);

    // ---- Attributes. Vectors, rotations and transforms are comma-separated numbers in the
    // host's text form: x,y,z; axis x,y,z,angle; axis x,y,z,angle,translation x,y,z.
    void SetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name, const ORV::CString& value);
    void SetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name,
                           const ORV::MATH::CVector3& value);
    void SetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name,
                           const ORV::MATH::CRotation& value);
    void SetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name,
                           const ORV::MATH::CTransformation& value);
    // Whether the element has the attribute; no error either way (optional attributes).
    bool HasAttribute(xercesc::DOMElement* element, const ORV::CString& name);
    bool GetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name, ORV::CString& out);
    bool GetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name, ORV::MATH::CVector3& out);
    bool GetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name, ORV::MATH::CRotation& out);
    bool GetAttributeValue(xercesc::DOMElement* element, const ORV::CString& name,
                           ORV::MATH::CTransformation& out);

    // ---- Settings: section and key elements below the document element. Even a read
    // leaves the section and key behind, and a first read records its default.
    xercesc::DOMElement* getINIElement(const ORV::CString& section, const ORV::CString& key);
    ORV::CString getINIValue(const ORV::CString& section, const ORV::CString& key,
                             const ORV::CString& defaultValue);
    int getINIValue(const ORV::CString& section, const ORV::CString& key, int defaultValue);
    // Under "FILEPATHS" only the folder of the value is kept.
    bool setINIValue(const ORV::CString& section, const ORV::CString& key, const ORV::CString& value);

    // ---- Host parameter sets
    xercesc::DOMElement* WriteParameter(ORV::Parameter parameter, xercesc::DOMElement* parent);
    xercesc::DOMElement* WriteParameterSet(ORV::CustomProperty property, xercesc::DOMElement* parent,
                                           ORV::CString name);
    bool ReadParameter(ORV::Parameter parameter, xercesc::DOMNode* node);
    bool ReadParameterSet(ORV::CustomProperty property, xercesc::DOMNode* node);
    // Adds parameters described by the attributes "DataType" (a word such as "ovInt4"),
    // "Capabilities", "Name", "Description" and "DefaultValue" of each child element.
    bool CreateParameterSet(ORV::CustomProperty property, xercesc::DOMNode* node);

    // ---- Reading and writing the file
    void ReadDOMTree();
    void CreateNewDOMTree();
    bool writeDocument(const ORV::CString& target);

    xercesc::DOMDocument* document = nullptr;
    ORV::CString path;
    bool readErrorsShown = false;  // the `read` argument: errors are shown on close
    bool writeOnClose = false;     // the `write` argument: the document is written on close
    ORV::CStringArray errors;
    bool ok = true;

    // The parser owns a document that was read; the platform is initialised once per stream
    // and terminated by the destructor.
    xercesc::XercesDOMParser* parser = nullptr;
    bool platformInitialised = false;

private:
    bool initialisePlatform();
};
