// The XML document stream: parse, then every element as the readers visit them (name, text,
// every attribute as text, vector, rotation and transform, the element as a parameter set),
// and the error summary on close.
#include <vector>
#include <xercesc/util/XMLString.hpp>

#include "FuzzTarget.h"
#include "HostTesting.h"
#include "core/XMLFileStream.h"

TROVO_FUZZ_TARGET(xml_stream) {
    trovofuzz::Prepare();
    const std::string path = trovofuzz::ScratchFile("input.xml", data, size);
    const ORV::CString file(path.c_str());
    XMLFileStream::IsXMLFile(file);
    orvhost::NewScene();
    ORV::CustomProperty target;
    ORV::Application().GetActiveSceneRoot().AddCustomProperty(L"Fuzz", false, target);
    ORV::Parameter gain;
    target.AddParameter(L"Gain", ORV::ovDouble, ORV::ovPersistable, L"Gain", L"", ORV::CValue(1.0), gain);
    {
        XMLFileStream in(file, true, false);
        xercesc::DOMElement* root = in.document ? in.document->getDocumentElement() : nullptr;
        // Depth first without recursion: a document may nest as deep as the parser lets it.
        std::vector<xercesc::DOMElement*> pending;
        if (root) pending.push_back(root);
        for (int visited = 0; !pending.empty() && visited < 5000; ++visited) {
            xercesc::DOMElement* element = pending.back();
            pending.pop_back();
            in.GetNodeName(element);
            in.readElementValue(element);
            ORV::CString text;
            in.readElementValue(element, L"VERSION", text);
            in.FindElement(element, L"NODES");
            if (xercesc::DOMNamedNodeMap* attributes = element->getAttributes()) {
                for (XMLSize_t i = 0; i < attributes->getLength() && i < 16; ++i) {
                    const ORV::CString name = in.GetNodeName(attributes->item(i));
                    ORV::CString s;
                    ORV::MATH::CVector3 v;
                    ORV::MATH::CRotation r;
                    ORV::MATH::CTransformation t;
                    in.GetAttributeValue(element, name, s);
                    in.GetAttributeValue(element, name, v);
                    in.GetAttributeValue(element, name, r);
                    in.GetAttributeValue(element, name, t);
                }
            }
            in.ReadParameterSet(target, element);
            in.CreateParameterSet(target, element);
            const int children = in.GetNumChildElements(element);
            for (int c = 0; c < children && c < 64; ++c)
                if (xercesc::DOMElement* child = in.GetChildElement(element, c)) pending.push_back(child);
        }
    }
    orvhost::NewScene();
    return 0;
}
