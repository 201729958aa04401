// The XML document stream: opening and writing on close, navigation, element values, typed
// attributes, the settings document, parameter sets, and the errors shown when it closes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <random>

#include "HostTesting.h"
#include "StreamTestUtil.h"
#include "core/XMLFileStream.h"

using streamtest::readFile;
using streamtest::TempDir;
using streamtest::writeFile;

namespace {

std::wstring w(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// The summary that DisplayErrors shows for one file.
std::wstring summary(const std::string& path, const std::vector<std::wstring>& errors) {
    std::wstring text = L"Errors occured while loading the following file : \n" + w(path) + L"\n";
    for (const auto& e : errors) text += L"Error : " + e + L"\n";
    return text;
}

// Log and dialog state of the headless host, cleared for each test.
class XMLFileStreamTest : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ClearLog();
        orvhost::ClearAnswers();
        questionsBefore = orvhost::Questions().size();
    }
    std::vector<std::wstring> newQuestions() const {
        const auto& all = orvhost::Questions();
        return std::vector<std::wstring>(all.begin() + static_cast<long>(questionsBefore), all.end());
    }

    TempDir dir;
    std::size_t questionsBefore = 0;
};

}  // namespace

// ---- Sniffing

TEST_F(XMLFileStreamTest, IsXMLFileOnAFileOfFourBytesIsFalse) {
    writeFile(dir.file("four.xml"), "<?xm");
    EXPECT_FALSE(XMLFileStream::IsXMLFile(dir.wfile("four.xml")));
}

TEST_F(XMLFileStreamTest, IsXMLFileOnExactlyTheHeaderIsTrue) {
    writeFile(dir.file("five.xml"), "<?xml");
    EXPECT_TRUE(XMLFileStream::IsXMLFile(dir.wfile("five.xml")));
}

TEST_F(XMLFileStreamTest, IsXMLFileSkipsNoByteOrderMarkAndMindsCase) {
    writeFile(dir.file("bom.xml"), "\xEF\xBB\xBF<?xml version=\"1.0\"?><ROOT/>");
    writeFile(dir.file("upper.xml"), "<?XML version=\"1.0\"?><ROOT/>");
    EXPECT_FALSE(XMLFileStream::IsXMLFile(dir.wfile("bom.xml")));
    EXPECT_FALSE(XMLFileStream::IsXMLFile(dir.wfile("upper.xml")));
    EXPECT_FALSE(XMLFileStream::IsXMLFile(dir.wfile("missing.xml")));
    EXPECT_FALSE(XMLFileStream::IsXMLFile(ORV::CString()));
}

TEST_F(XMLFileStreamTest, WrittenDocumentsAreKnownAsXML) {
    {
        XMLFileStream out(dir.wfile("doc.xml"), false, true);
        ASSERT_NE(out.document, nullptr);
        out.WriteElement(out.document->getDocumentElement(), L"HEADER", L"text");
    }
    EXPECT_TRUE(XMLFileStream::IsXMLFile(dir.wfile("doc.xml")));
    EXPECT_EQ(readFile(dir.file("doc.xml")).substr(0, 5), "<?xml");
}

// ---- Opening and closing

TEST_F(XMLFileStreamTest, NewDocumentHasTheRootElementROOT) {
    XMLFileStream out(dir.wfile("new.xml"), false, false);
    EXPECT_EQ(out.document, nullptr);  // neither read nor write: nothing at all
    XMLFileStream created(dir.wfile("new.xml"), false, true);
    ASSERT_NE(created.document, nullptr);
    EXPECT_EQ(created.GetNodeName(created.document->getDocumentElement()).std(), L"ROOT");
    EXPECT_TRUE(created.ok);
}

TEST_F(XMLFileStreamTest, ReadOnlyStreamOnAMissingFileHasNoDocumentAndShowsNothing) {
    {
        XMLFileStream in(dir.wfile("missing.xml"), true, false);
        EXPECT_EQ(in.document, nullptr);
        EXPECT_TRUE(in.ok);
        EXPECT_EQ(in.errors.GetCount(), 0);
    }
    EXPECT_TRUE(orvhost::LogTexts(4).empty());
    EXPECT_TRUE(newQuestions().empty());
    EXPECT_FALSE(streamtest::readFile(dir.file("missing.xml")).size() > 0);
}

TEST_F(XMLFileStreamTest, WriteOnlyStreamNeverLoadsAndReplacesTheOldContent) {
    {
        XMLFileStream first(dir.wfile("doc.xml"), false, true);
        first.WriteElement(first.document->getDocumentElement(), L"OLD", L"1");
    }
    ASSERT_NE(readFile(dir.file("doc.xml")).find("OLD"), std::string::npos);
    {
        XMLFileStream second(dir.wfile("doc.xml"), false, true);
        EXPECT_EQ(second.FindElement(second.document->getDocumentElement(), L"OLD"), nullptr);
        second.WriteElement(second.document->getDocumentElement(), L"NEW", L"2");
    }
    const std::string content = readFile(dir.file("doc.xml"));
    EXPECT_EQ(content.find("OLD"), std::string::npos);
    EXPECT_NE(content.find("NEW"), std::string::npos);
}

TEST_F(XMLFileStreamTest, ReadWriteStreamKeepsAndExtendsTheOldContent) {
    {
        XMLFileStream first(dir.wfile("doc.xml"), false, true);
        first.WriteElement(first.document->getDocumentElement(), L"OLD", L"1");
    }
    {
        XMLFileStream second(dir.wfile("doc.xml"), true, true);
        ASSERT_NE(second.document, nullptr);
        second.WriteElement(second.document->getDocumentElement(), L"NEW", L"2");
    }
    XMLFileStream check(dir.wfile("doc.xml"), true, false);
    ASSERT_NE(check.document, nullptr);
    ORV::CString value;
    EXPECT_TRUE(check.readElementValue(check.document->getDocumentElement(), L"OLD", value));
    EXPECT_EQ(value.std(), L"1");
    EXPECT_TRUE(check.readElementValue(check.document->getDocumentElement(), L"NEW", value));
    EXPECT_EQ(value.std(), L"2");
}

TEST_F(XMLFileStreamTest, DocumentThatFailsToParseGivesTheParsingLineAndAnAlertOnClose) {
    const std::string path = dir.file("broken.xml");
    writeFile(path, "<?xml version=\"1.0\"?>\n<ROOT><A></ROOT>\n");
    std::wstring parsingLine;
    {
        XMLFileStream in(ORV::CString(path.c_str()), true, false);
        EXPECT_EQ(in.document, nullptr);
        EXPECT_FALSE(in.ok);
        ASSERT_EQ(in.errors.GetCount(), 1);
        parsingLine = in.errors[0].std();
        EXPECT_EQ(parsingLine, L"Parsing " + w(path) + L" error count: 1");
        EXPECT_TRUE(newQuestions().empty());  // nothing is shown before the stream closes
        // Reads on the empty stream fail cleanly.
        ORV::CString value;
        EXPECT_EQ(in.getINIValue(L"A", L"B", L"default").std(), L"default");
        EXPECT_FALSE(in.readElementValue(nullptr, L"A", value));
    }
    const std::wstring expected = summary(path, {parsingLine, L"DOMElement : <A> not found under : "});
    const std::vector<std::wstring> warnings = orvhost::LogTexts(4);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0], expected);
    const std::vector<std::wstring> asked = newQuestions();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0], L"MsgBox: " + expected);
    // The broken file is left as it was.
    EXPECT_EQ(readFile(path), "<?xml version=\"1.0\"?>\n<ROOT><A></ROOT>\n");
}

TEST_F(XMLFileStreamTest, BrokenDocumentOpenedForWritingIsNotOverwritten) {
    const std::string path = dir.file("broken.xml");
    writeFile(path, "<ROOT><unclosed>");
    { XMLFileStream in(ORV::CString(path.c_str()), true, true); }
    EXPECT_EQ(readFile(path), "<ROOT><unclosed>");
}

TEST_F(XMLFileStreamTest, ErrorsOfAStreamOpenedWithoutReadAreNotShown) {
    {
        XMLFileStream out(dir.wfile("doc.xml"), false, true);
        ORV::CString value;
        EXPECT_FALSE(out.readElementValue(out.document->getDocumentElement(), L"NONE", value));
        EXPECT_FALSE(out.ok);
    }
    EXPECT_TRUE(newQuestions().empty());
}

TEST_F(XMLFileStreamTest, DisplayErrorsWithNoErrorsShowsNothing) {
    XMLFileStream out(dir.wfile("doc.xml"), false, false);
    out.DisplayErrors();
    EXPECT_TRUE(newQuestions().empty());
    EXPECT_TRUE(orvhost::LogTexts(4).empty());
}

TEST_F(XMLFileStreamTest, DisplayErrorsBuildsOneMessage) {
    XMLFileStream out(dir.wfile("doc.xml"), false, false);
    out.AddError(L"first");
    out.AddError(L"second");
    EXPECT_FALSE(out.ok);
    out.DisplayErrors();
    const std::wstring expected = summary(dir.file("doc.xml"), {L"first", L"second"});
    ASSERT_EQ(orvhost::LogTexts(4).size(), 1u);
    EXPECT_EQ(orvhost::LogTexts(4)[0], expected);
}

TEST_F(XMLFileStreamTest, NestedStreamsEachPairTheirPlatformUse) {
    XMLFileStream outer(dir.wfile("outer.xml"), false, true);
    {
        XMLFileStream inner(dir.wfile("inner.xml"), false, true);
        inner.WriteElement(inner.document->getDocumentElement(), L"INNER");
    }
    { XMLFileStream idle(dir.wfile("idle.xml"), false, false); }  // never initialised, never terminates
    // The outer stream still works after the inner ones have gone.
    xercesc::DOMElement* e = outer.WriteElement(outer.document->getDocumentElement(), L"OUTER", L"v");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(outer.readElementValue(e).std(), L"v");
}

TEST_F(XMLFileStreamTest, InitAgainOpensAnotherFileAndDropsTheOldDocument) {
    writeFile(dir.file("second.xml"), "<ROOT><SECOND/></ROOT>");
    XMLFileStream stream(dir.wfile("first.xml"), false, true);
    stream.WriteElement(stream.document->getDocumentElement(), L"FIRST");
    stream.Init(dir.wfile("second.xml"), true, false);
    ASSERT_NE(stream.document, nullptr);
    EXPECT_NE(stream.FindElement(stream.document->getDocumentElement(), L"SECOND"), nullptr);
    EXPECT_EQ(stream.FindElement(stream.document->getDocumentElement(), L"FIRST"), nullptr);
    EXPECT_FALSE(stream.writeOnClose);
}

// ---- Navigation and element values

TEST_F(XMLFileStreamTest, ChildElementsCountOnlyElements) {
    writeFile(dir.file("doc.xml"),
              "<?xml version=\"1.0\"?>\n<ROOT>text<!-- c --><A/>\n  <B>b</B><A>second</A></ROOT>");
    XMLFileStream in(dir.wfile("doc.xml"), true, false);
    xercesc::DOMElement* root = in.document->getDocumentElement();
    EXPECT_EQ(in.GetNumChildElements(root), 3);
    EXPECT_EQ(in.GetNodeName(in.GetChildElement(root, 0)).std(), L"A");
    EXPECT_EQ(in.GetNodeName(in.GetChildElement(root, 1)).std(), L"B");
    EXPECT_EQ(in.readElementValue(in.GetChildElement(root, 2)).std(), L"second");
    EXPECT_EQ(in.GetChildElement(root, 3), nullptr);
    EXPECT_EQ(in.GetChildElement(root, -1), nullptr);
    EXPECT_EQ(in.GetNumChildElements(nullptr), 0);
    EXPECT_EQ(in.GetNodeName(nullptr).std(), L"");
}

TEST_F(XMLFileStreamTest, FindElementSearchesDirectChildrenWithCase) {
    writeFile(dir.file("doc.xml"), "<ROOT><A><DEEP/></A><a/></ROOT>");
    XMLFileStream in(dir.wfile("doc.xml"), true, false);
    xercesc::DOMElement* root = in.document->getDocumentElement();
    EXPECT_EQ(in.FindElement(root, L"DEEP"), nullptr);
    ASSERT_NE(in.FindElement(root, L"a"), nullptr);
    EXPECT_EQ(in.FindElement(root, L"a"), in.GetChildElement(root, 1));
    EXPECT_EQ(in.FindElement(nullptr, L"a"), nullptr);
}

TEST_F(XMLFileStreamTest, ReadElementValueOfAMissingElementAddsItsError) {
    writeFile(dir.file("doc.xml"), "<ROOT><A>x</A><E/></ROOT>");
    XMLFileStream in(dir.wfile("doc.xml"), true, false);
    xercesc::DOMElement* root = in.document->getDocumentElement();
    ORV::CString out(L"kept");
    EXPECT_FALSE(in.readElementValue(root, L"B", out));
    EXPECT_EQ(out.std(), L"kept");
    ASSERT_EQ(in.errors.GetCount(), 1);
    EXPECT_EQ(in.errors[0].std(), L"DOMElement : <B> not found under : ROOT");
    EXPECT_TRUE(in.readElementValue(root, L"E", out));  // there, but without text
    EXPECT_EQ(out.std(), L"kept");
    EXPECT_TRUE(in.readElementValue(root, L"A", out));
    EXPECT_EQ(out.std(), L"x");
    in.errors.Clear();  // nothing to show on close
}

TEST_F(XMLFileStreamTest, SetElementValueDependsOnTheFirstChild) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* root = out.document->getDocumentElement();
    xercesc::DOMElement* empty = out.WriteElement(root, L"EMPTY");
    out.SetElementValue(empty, L"first");
    EXPECT_EQ(out.readElementValue(empty).std(), L"first");
    out.SetElementValue(empty, L"second");  // replaces the text node's value
    EXPECT_EQ(out.readElementValue(empty).std(), L"second");
    EXPECT_EQ(empty->getChildNodes()->getLength(), 1u);

    xercesc::DOMElement* parent = out.WriteElement(root, L"PARENT");
    out.WriteElement(parent, L"CHILD");
    out.SetElementValue(parent, L"ignored");  // first child is an element: nothing happens
    EXPECT_EQ(out.readElementValue(parent).std(), L"");
    EXPECT_EQ(out.GetNumChildElements(parent), 1);
    out.SetElementValue(nullptr, L"x");
}

TEST_F(XMLFileStreamTest, WriteElementFormsAreReadBack) {
    {
        XMLFileStream out(dir.wfile("doc.xml"), false, true);
        xercesc::DOMElement* root = out.document->getDocumentElement();
        out.WriteElement(root, L"PLAIN");
        out.WriteElement(root, L"VALUE", L"some text");
        out.WriteElement(root, L"ATTR", L"name", L"hips");
    }
    XMLFileStream in(dir.wfile("doc.xml"), true, false);
    xercesc::DOMElement* root = in.document->getDocumentElement();
    EXPECT_EQ(in.GetNumChildElements(root), 3);
    EXPECT_EQ(in.readElementValue(in.FindElement(root, L"VALUE")).std(), L"some text");
    ORV::CString name;
    EXPECT_TRUE(in.GetAttributeValue(in.FindElement(root, L"ATTR"), L"name", name));
    EXPECT_EQ(name.std(), L"hips");
}

TEST_F(XMLFileStreamTest, ElementNameThatIsNoXMLNameGivesAnErrorAndNoElement) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* root = out.document->getDocumentElement();
    EXPECT_EQ(out.WriteElement(root, L"two words"), nullptr);
    EXPECT_EQ(out.WriteElement(root, L""), nullptr);
    EXPECT_EQ(out.WriteElement(nullptr, L"A"), nullptr);
    EXPECT_FALSE(out.ok);
    ASSERT_EQ(out.errors.GetCount(), 2);
    EXPECT_EQ(
        out.errors[0].std().rfind(L"DOM Exception Writing " + w(dir.file("doc.xml")) + L"\n reports: \n", 0),
        0u);
    EXPECT_EQ(out.GetNumChildElements(root), 0);
}

// ---- Attributes

TEST_F(XMLFileStreamTest, VectorAttributeWithTwoOrFourNumbersFailsWithItsError) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE");
    out.SetAttributeValue(node, L"two", L"1,2");
    out.SetAttributeValue(node, L"four", L"1,2,3,4");
    ORV::MATH::CVector3 v(7.0, 8.0, 9.0);
    EXPECT_FALSE(out.GetAttributeValue(node, L"two", v));
    EXPECT_FALSE(out.GetAttributeValue(node, L"four", v));
    EXPECT_EQ(v.GetX(), 7.0);
    ASSERT_EQ(out.errors.GetCount(), 2);
    EXPECT_EQ(out.errors[0].std(), L"Error reading CVector3 Attribute : <two> not found under : NODE");
    EXPECT_EQ(out.errors[1].std(), L"Error reading CVector3 Attribute : <four> not found under : NODE");
    EXPECT_FALSE(out.ok);
}

TEST_F(XMLFileStreamTest, RotationAndTransformWithWrongCountsFailWithTheirErrors) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"POSE");
    out.SetAttributeValue(node, L"three", L"1,2,3");
    ORV::MATH::CRotation r;
    ORV::MATH::CTransformation t;
    EXPECT_FALSE(out.GetAttributeValue(node, L"three", r));
    EXPECT_FALSE(out.GetAttributeValue(node, L"three", t));
    ASSERT_EQ(out.errors.GetCount(), 2);
    EXPECT_EQ(out.errors[0].std(), L"Error reading CRotation Attribute : <three> not found under : POSE");
    EXPECT_EQ(out.errors[1].std(),
              L"Error reading CTransformation Attribute : <three> not found under : POSE");
}

TEST_F(XMLFileStreamTest, MissingAttributeAddsItsError) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE");
    ORV::CString text(L"kept");
    ORV::MATH::CVector3 v;
    EXPECT_FALSE(out.GetAttributeValue(node, L"name", text));
    EXPECT_FALSE(out.GetAttributeValue(node, L"global", v));
    EXPECT_FALSE(out.GetAttributeValue(nullptr, L"id", text));  // as on a missing child element
    EXPECT_EQ(text.std(), L"kept");
    ASSERT_EQ(out.errors.GetCount(), 3);
    EXPECT_EQ(out.errors[0].std(), L"Atribute : <name> not found under : NODE");
    EXPECT_EQ(out.errors[1].std(), L"Atribute : <global> not found under : NODE");
    EXPECT_EQ(out.errors[2].std(), L"Atribute : <id> not found under : ");
}

TEST_F(XMLFileStreamTest, HasAttributeAnswersWithoutAddingAnError) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE");
    out.SetAttributeValue(node, L"override", ORV::CString(L"lhand"));
    EXPECT_TRUE(out.HasAttribute(node, L"override"));
    EXPECT_FALSE(out.HasAttribute(node, L"Override"));
    EXPECT_FALSE(out.HasAttribute(node, L"name"));
    EXPECT_FALSE(out.HasAttribute(nullptr, L"override"));
    EXPECT_EQ(out.errors.GetCount(), 0);
}

TEST_F(XMLFileStreamTest, EmptyAttributeIsFoundAndEmpty) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE", L"name", L"");
    ORV::CString text(L"x");
    EXPECT_TRUE(out.GetAttributeValue(node, L"name", text));
    EXPECT_EQ(text.std(), L"");
}

TEST_F(XMLFileStreamTest, AttributeFormsAreCommaSeparatedHostNumbers) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE");
    ORV::MATH::CTransformation t;
    t.SetRotationFromAxisAngle(ORV::MATH::CVector3(0.0, 0.0, 1.0), 0.5);
    t.SetTranslationFromValues(1.0, -2.0, 0.25);
    t.SetScalingFromValues(3.0, 3.0, 3.0);
    out.SetAttributeValue(node, L"v", ORV::MATH::CVector3(1.0, 2.5, -3.0));
    out.SetAttributeValue(node, L"r", t.GetRotation());
    out.SetAttributeValue(node, L"t", t);
    ORV::CString text;
    ASSERT_TRUE(out.GetAttributeValue(node, L"v", text));
    EXPECT_EQ(text.std(), L"1,2.5,-3");
    ASSERT_TRUE(out.GetAttributeValue(node, L"r", text));
    EXPECT_EQ(text.std(), L"0,0,1,0.5");
    ASSERT_TRUE(out.GetAttributeValue(node, L"t", text));
    EXPECT_EQ(text.std(), L"0,0,1,0.5,1,-2,0.25");
}

// Budget 1e-12: numbers travel in a text that carries every bit; the axis-angle form and its
// rebuilding into a rotation add a few rounding steps.
TEST_F(XMLFileStreamTest, VectorsRotationsAndTransformsReadBackFromAttributes) {
    std::mt19937_64 engine(77);
    std::uniform_real_distribution<double> angle(-3.1, 3.1), number(-1000.0, 1000.0);
    std::vector<ORV::MATH::CVector3> vectors;
    std::vector<ORV::MATH::CRotation> rotations;
    std::vector<ORV::MATH::CTransformation> transforms;
    for (int i = 0; i < 100; ++i) {
        vectors.emplace_back(number(engine), number(engine) * 1e-5, number(engine) * 1e5);
        rotations.emplace_back(angle(engine), angle(engine) / 2.0, angle(engine));
        ORV::MATH::CTransformation t;
        t.SetRotationFromXYZAnglesValues(angle(engine), angle(engine) / 2.0, angle(engine));
        t.SetTranslationFromValues(number(engine), number(engine), number(engine));
        transforms.push_back(t);
    }
    {
        XMLFileStream out(dir.wfile("poses.xml"), false, true);
        xercesc::DOMElement* root = out.document->getDocumentElement();
        for (int i = 0; i < 100; ++i) {
            xercesc::DOMElement* node = out.WriteElement(root, L"NODE");
            out.SetAttributeValue(node, L"v", vectors[i]);
            out.SetAttributeValue(node, L"rot", rotations[i]);
            out.SetAttributeValue(node, L"global", transforms[i]);
        }
    }
    XMLFileStream in(dir.wfile("poses.xml"), true, false);
    ASSERT_NE(in.document, nullptr);
    xercesc::DOMElement* root = in.document->getDocumentElement();
    ASSERT_EQ(in.GetNumChildElements(root), 100);
    for (int i = 0; i < 100; ++i) {
        xercesc::DOMElement* node = in.GetChildElement(root, i);
        ORV::MATH::CVector3 v;
        ORV::MATH::CRotation r;
        ORV::MATH::CTransformation t;
        t.SetScalingFromValues(2.0, 2.0, 2.0);
        ASSERT_TRUE(in.GetAttributeValue(node, L"v", v));
        ASSERT_TRUE(in.GetAttributeValue(node, L"rot", r));
        ASSERT_TRUE(in.GetAttributeValue(node, L"global", t));
        EXPECT_TRUE(v.Equals(vectors[i], 0.0)) << i;
        EXPECT_TRUE(r.GetMatrix().Equals(rotations[i].GetMatrix(), 1e-12)) << i;
        EXPECT_TRUE(t.GetRotation().GetMatrix().Equals(transforms[i].GetRotation().GetMatrix(), 1e-12)) << i;
        EXPECT_TRUE(t.GetTranslation().Equals(transforms[i].GetTranslation(), 0.0)) << i;
        EXPECT_EQ(t.GetScaling().GetX(), 2.0);  // scaling is not stored, so not touched
    }
    EXPECT_TRUE(in.ok);
}

TEST_F(XMLFileStreamTest, IdentityAndHalfTurnRotationsReadBack) {
    XMLFileStream out(dir.wfile("doc.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE");
    const ORV::MATH::CRotation identity;
    const ORV::MATH::CRotation halfTurn(ORV::MATH::CVector3(0.0, 1.0, 0.0), 3.141592653589793);
    out.SetAttributeValue(node, L"id", identity);
    out.SetAttributeValue(node, L"half", halfTurn);
    ORV::MATH::CRotation a, b;
    ASSERT_TRUE(out.GetAttributeValue(node, L"id", a));
    ASSERT_TRUE(out.GetAttributeValue(node, L"half", b));
    EXPECT_TRUE(a.GetMatrix().Equals(identity.GetMatrix(), 1e-12));
    EXPECT_TRUE(b.GetMatrix().Equals(halfTurn.GetMatrix(), 1e-12));
}

// ---- Settings

TEST_F(XMLFileStreamTest, FirstReadOfASettingReturnsAndRecordsTheDefault) {
    const std::string path = dir.file("TROVO.ini");
    {
        XMLFileStream settings(ORV::CString(path.c_str()), true, true);
        EXPECT_EQ(settings.getINIValue(L"A", L"B", L"x").std(), L"x");
        EXPECT_EQ(settings.getINIValue(L"A", L"B", L"other").std(), L"x");  // now recorded
    }
    XMLFileStream saved(ORV::CString(path.c_str()), true, false);
    ASSERT_NE(saved.document, nullptr);
    xercesc::DOMElement* section = saved.FindElement(saved.document->getDocumentElement(), L"A");
    ASSERT_NE(section, nullptr);
    xercesc::DOMElement* key = saved.FindElement(section, L"B");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(saved.readElementValue(key).std(), L"x");
}

TEST_F(XMLFileStreamTest, IntegerSettingsGoThroughText) {
    XMLFileStream settings(dir.wfile("TROVO.ini"), true, true);
    EXPECT_EQ(settings.getINIValue(L"MOCAP", L"Choice", 3), 3);
    EXPECT_EQ(settings.getINIValue(L"MOCAP", L"Choice", L"").std(), L"3");
    EXPECT_TRUE(settings.setINIValue(L"MOCAP", L"Choice", L"-12"));
    EXPECT_EQ(settings.getINIValue(L"MOCAP", L"Choice", 0), -12);
}

TEST_F(XMLFileStreamTest, EvenAReadLeavesSectionAndKeyBehind) {
    XMLFileStream settings(dir.wfile("TROVO.ini"), true, true);
    xercesc::DOMElement* key = settings.getINIElement(L"S", L"K");
    ASSERT_NE(key, nullptr);
    xercesc::DOMElement* root = settings.document->getDocumentElement();
    EXPECT_EQ(settings.GetNumChildElements(root), 1);
    EXPECT_EQ(settings.getINIElement(L"S", L"K"), key);
    EXPECT_EQ(settings.GetNumChildElements(root), 1);
}

TEST_F(XMLFileStreamTest, FilePathsSettingStoresOnlyTheFolder) {
    XMLFileStream settings(dir.wfile("TROVO.ini"), true, true);
    EXPECT_TRUE(settings.setINIValue(L"FILEPATHS", L"BVH_FILES", L"/data/captures/walk.bvh"));
    EXPECT_EQ(settings.getINIValue(L"FILEPATHS", L"BVH_FILES", L"").std(), L"/data/captures/");
    EXPECT_TRUE(settings.setINIValue(L"OTHER", L"BVH_FILES", L"/data/captures/walk.bvh"));
    EXPECT_EQ(settings.getINIValue(L"OTHER", L"BVH_FILES", L"").std(), L"/data/captures/walk.bvh");
}

TEST_F(XMLFileStreamTest, SettingsWithoutADocumentGiveTheirDefault) {
    XMLFileStream none(dir.wfile("nothing.ini"), false, false);
    EXPECT_EQ(none.getINIValue(L"A", L"B", L"d").std(), L"d");
    EXPECT_EQ(none.getINIValue(L"A", L"B", 5), 5);
    EXPECT_FALSE(none.setINIValue(L"A", L"B", L"v"));
}

TEST_F(XMLFileStreamTest, DefaultStreamIsTROVOIniInTheUserLocation) {
    const std::wstring saved = ORV::Application().GetInstallationPath(1).std();
    orvhost::SetInstallationPath(1, w(dir.path));
    {
        XMLFileStream settings;
        EXPECT_EQ(settings.path.std(), w(dir.path + "/TROVO.ini"));
        EXPECT_TRUE(settings.readErrorsShown);
        EXPECT_TRUE(settings.writeOnClose);
        settings.setINIValue(L"PANEL", L"Last", L"value");
    }
    {
        XMLFileStream again;
        EXPECT_EQ(again.getINIValue(L"PANEL", L"Last", L"").std(), L"value");
    }
    orvhost::SetInstallationPath(1, saved);
}

TEST_F(XMLFileStreamTest, DefaultStreamWithoutAUserLocationKeepsNothing) {
    const std::wstring saved = ORV::Application().GetInstallationPath(1).std();
    orvhost::SetInstallationPath(1, L"");
    {
        XMLFileStream settings;
        EXPECT_EQ(settings.document, nullptr);
        EXPECT_EQ(settings.getINIValue(L"PANEL", L"Last", L"fallback").std(), L"fallback");
        EXPECT_FALSE(settings.setINIValue(L"PANEL", L"Last", L"value"));
    }
    EXPECT_TRUE(newQuestions().empty());
    orvhost::SetInstallationPath(1, saved);
}

// A settings document written here is read by a second process: the test binary itself, run
// on the child test below with the file's path in its environment.
TEST_F(XMLFileStreamTest, SettingsWrittenByOneProcessAreReadByAnother) {
    const std::string settingsPath = dir.file("TROVO.ini");
    const std::string childOutput = dir.file("child.txt");
    {
        XMLFileStream settings(ORV::CString(settingsPath.c_str()), true, true);
        settings.setINIValue(L"FILEPATHS", L"C3D_FILES", L"/capture/day1/take.c3d");
        settings.setINIValue(L"MOCAP", L"Structure", L"biped");
        settings.getINIValue(L"MOCAP", L"Fit", 2);
    }
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        FILE* out = std::freopen(childOutput.c_str(), "w", stdout);
        (void)out;
        setenv("TROVO_XML_CHILD_FILE", settingsPath.c_str(), 1);
        execl("/proc/self/exe", "core_tests",
              "--gtest_filter=XMLFileStreamChild.ReadsAndExtendsTheParentsSettings",
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << readFile(childOutput);
    const std::string report = readFile(childOutput);
    EXPECT_NE(report.find("[  PASSED  ] 1 test."), std::string::npos) << report;
    EXPECT_EQ(report.find("SKIPPED"), std::string::npos) << report;

    // And what the child added is read back here.
    XMLFileStream settings(ORV::CString(settingsPath.c_str()), true, false);
    EXPECT_EQ(settings.getINIValue(L"CHILD", L"Seen", L"no").std(), L"yes");
}

// Runs only as the second process of the test above.
TEST(XMLFileStreamChild, ReadsAndExtendsTheParentsSettings) {
    const char* path = std::getenv("TROVO_XML_CHILD_FILE");
    if (!path) GTEST_SKIP() << "run by SettingsWrittenByOneProcessAreReadByAnother";
    XMLFileStream settings(ORV::CString(path), true, true);
    ASSERT_NE(settings.document, nullptr);
    EXPECT_EQ(settings.getINIValue(L"FILEPATHS", L"C3D_FILES", L"").std(), L"/capture/day1/");
    EXPECT_EQ(settings.getINIValue(L"MOCAP", L"Structure", L"").std(), L"biped");
    EXPECT_EQ(settings.getINIValue(L"MOCAP", L"Fit", 0), 2);
    EXPECT_TRUE(settings.setINIValue(L"CHILD", L"Seen", L"yes"));
    EXPECT_TRUE(settings.ok);
}

// ---- Parameter sets

namespace {

ORV::CustomProperty makePreset() {
    orvhost::NewScene();
    ORV::Model root = ORV::Application().GetActiveSceneRoot();
    ORV::CustomProperty preset;
    root.AddCustomProperty(L"Preset", false, preset);
    ORV::Parameter p;
    preset.AddParameter(L"Gain", ORV::ovDouble, ORV::ovAnimatable | ORV::ovPersistable, L"Gain Label",
                        L"How strong", ORV::CValue(1.5), p);
    preset.AddParameter(L"Count", ORV::ovInt4, ORV::ovPersistable, L"Count", L"", ORV::CValue(4), p);
    preset.AddParameter(L"Label", ORV::ovString, ORV::ovPersistable, L"Label", L"Text", ORV::CValue(L"left"),
                        p);
    return preset;
}

}  // namespace

TEST_F(XMLFileStreamTest, ParameterSetIsWrittenWithItsAttributesAndReadBack) {
    ORV::CustomProperty preset = makePreset();
    ASSERT_TRUE(preset.IsValid());
    ORV::Parameter gain = preset.GetParameter(L"Gain");
    {
        XMLFileStream out(dir.wfile("preset.adj"), false, true);
        xercesc::DOMElement* set =
            out.WriteParameterSet(preset, out.document->getDocumentElement(), L"ADJUST");
        ASSERT_NE(set, nullptr);
        EXPECT_EQ(out.GetNumChildElements(set), 3);
        xercesc::DOMElement* element = out.FindElement(set, L"Gain");
        ASSERT_NE(element, nullptr);
        EXPECT_EQ(out.readElementValue(element).std(), L"1.5");
        ORV::CString text;
        ASSERT_TRUE(out.GetAttributeValue(element, L"Capabilities", text));
        EXPECT_EQ(text.std(), std::to_wstring(gain.GetCapabilities()));
        ASSERT_TRUE(out.GetAttributeValue(element, L"Name", text));
        EXPECT_EQ(text.std(), gain.GetName().std());
        ASSERT_TRUE(out.GetAttributeValue(element, L"Description", text));
        EXPECT_EQ(text.std(), L"How strong");
        ASSERT_TRUE(out.GetAttributeValue(element, L"DataType", text));
        EXPECT_EQ(text.std(), L"5");  // ovDouble as decimal text
        // Attributes in their order of writing.
        xercesc::DOMNamedNodeMap* attributes = element->getAttributes();
        ASSERT_EQ(attributes->getLength(), 4u);
    }
    preset.PutParameterValue(L"Gain", ORV::CValue(0.0));
    preset.PutParameterValue(L"Count", ORV::CValue(0));
    preset.PutParameterValue(L"Label", ORV::CValue(L""));
    XMLFileStream in(dir.wfile("preset.adj"), true, false);
    xercesc::DOMElement* set = in.FindElement(in.document->getDocumentElement(), L"ADJUST");
    ASSERT_TRUE(in.ReadParameterSet(preset, set));
    EXPECT_EQ(static_cast<double>(preset.GetParameterValue(L"Gain")), 1.5);
    EXPECT_EQ(static_cast<int>(preset.GetParameterValue(L"Count")), 4);
    EXPECT_EQ(ORV::CString(preset.GetParameterValue(L"Label")).std(), L"left");
}

TEST_F(XMLFileStreamTest, ReadParameterSetSkipsElementsThatMatchNoParameter) {
    ORV::CustomProperty preset = makePreset();
    writeFile(dir.file("preset.adj"),
              "<?xml version=\"1.0\"?><ROOT><SET><Unknown>9</Unknown><Count>11</Count><Other "
              "a=\"1\"/></SET></ROOT>");
    XMLFileStream in(dir.wfile("preset.adj"), true, false);
    xercesc::DOMElement* set = in.FindElement(in.document->getDocumentElement(), L"SET");
    EXPECT_TRUE(in.ReadParameterSet(preset, set));
    EXPECT_EQ(static_cast<int>(preset.GetParameterValue(L"Count")), 11);
    EXPECT_EQ(static_cast<double>(preset.GetParameterValue(L"Gain")), 1.5);  // no element: kept
    EXPECT_FALSE(preset.GetParameter(L"Unknown").IsValid());
    EXPECT_TRUE(in.ok);
}

TEST_F(XMLFileStreamTest, CreateParameterSetBuildsParametersFromATemplate) {
    orvhost::NewScene();
    ORV::CustomProperty target;
    ORV::Application().GetActiveSceneRoot().AddCustomProperty(L"Built", false, target);
    writeFile(
        dir.file("template.xml"),
        "<?xml version=\"1.0\"?><ROOT><SET>"
        "<Steps DataType=\"ovInt4\" Capabilities=\"4\" Name=\"Steps\" Description=\"d1\" DefaultValue=\"7\"/>"
        "<Weight DataType=\"ovFloat\" Capabilities=\"5\" Name=\"Weight\" Description=\"d2\" "
        "DefaultValue=\"0.25\"/>"
        "<Scale DataType=\"ovDouble\" Capabilities=\"4\" Name=\"Scale\" Description=\"\" DefaultValue=\"2\"/>"
        "<Title DataType=\"ovString\" Capabilities=\"4\" Name=\"Title\" Description=\"\" "
        "DefaultValue=\"hello\"/>"
        "<Odd DataType=\"ovBool\" Capabilities=\"4\" Name=\"Odd\" Description=\"\"/>"
        "</SET></ROOT>");
    XMLFileStream in(dir.wfile("template.xml"), true, false);
    xercesc::DOMElement* set = in.FindElement(in.document->getDocumentElement(), L"SET");
    EXPECT_TRUE(in.CreateParameterSet(target, set));
    ORV::Parameter steps = target.GetParameter(L"Steps");
    ASSERT_TRUE(steps.IsValid());
    EXPECT_EQ(steps.GetValueType(), ORV::ovInt4);
    EXPECT_EQ(static_cast<int>(steps.GetValue()), 7);
    EXPECT_EQ(steps.GetCapabilities(), 4);
    ORV::Parameter weight = target.GetParameter(L"Weight");
    ASSERT_TRUE(weight.IsValid());
    EXPECT_EQ(weight.GetValueType(), ORV::ovDouble);  // ovFloat becomes a double too
    EXPECT_EQ(static_cast<double>(weight.GetValue()), 0.25);
    EXPECT_EQ(target.GetParameter(L"Scale").GetValueType(), ORV::ovDouble);
    EXPECT_EQ(ORV::CString(target.GetParameter(L"Title").GetValue()).std(), L"hello");
    EXPECT_FALSE(target.GetParameter(L"Odd").IsValid());  // an unknown type adds nothing
    EXPECT_TRUE(in.ok);
}

TEST_F(XMLFileStreamTest, CreateParameterSetStopsAddingAtTheFirstMissingAttribute) {
    orvhost::NewScene();
    ORV::CustomProperty target;
    ORV::Application().GetActiveSceneRoot().AddCustomProperty(L"Built", false, target);
    writeFile(
        dir.file("template.xml"),
        "<?xml version=\"1.0\"?><ROOT><SET>"
        "<First DataType=\"ovInt4\" Capabilities=\"4\" Name=\"First\" Description=\"\" DefaultValue=\"1\"/>"
        "<Broken DataType=\"ovInt4\" Name=\"Broken\" DefaultValue=\"1\"/>"
        "<Third DataType=\"ovInt4\" Capabilities=\"4\" Name=\"Third\" Description=\"\" DefaultValue=\"3\"/>"
        "</SET></ROOT>");
    std::vector<std::wstring> errors;
    {
        XMLFileStream in(dir.wfile("template.xml"), true, false);
        xercesc::DOMElement* set = in.FindElement(in.document->getDocumentElement(), L"SET");
        EXPECT_FALSE(in.CreateParameterSet(target, set));
        for (long i = 0; i < in.errors.GetCount(); ++i) errors.push_back(in.errors[i].std());
    }
    EXPECT_TRUE(target.GetParameter(L"First").IsValid());
    EXPECT_FALSE(target.GetParameter(L"Broken").IsValid());
    EXPECT_FALSE(target.GetParameter(L"Third").IsValid());  // the walk goes on, adding nothing
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0], L"Atribute : <Capabilities> not found under : Broken");
    EXPECT_EQ(errors[1], L"Atribute : <Description> not found under : Broken");
}

TEST_F(XMLFileStreamTest, WrittenParameterSetIsNoTemplate) {
    ORV::CustomProperty preset = makePreset();
    {
        XMLFileStream out(dir.wfile("preset.adj"), false, true);
        out.WriteParameterSet(preset, out.document->getDocumentElement(), L"SET");
    }
    ORV::CustomProperty target;
    ORV::Application().GetActiveSceneRoot().AddCustomProperty(L"Built", false, target);
    XMLFileStream in(dir.wfile("preset.adj"), true, false);
    xercesc::DOMElement* set = in.FindElement(in.document->getDocumentElement(), L"SET");
    EXPECT_TRUE(in.CreateParameterSet(target, set));  // every attribute is there...
    EXPECT_EQ(target.GetParameters().GetCount(), 0);  // ...but "5" is not a type word
}

// ---- The converter

TEST_F(XMLFileStreamTest, StringConverterHoldsOneSideAndReleasesIt) {
    XMLFileStream open(dir.wfile("doc.xml"), false, true);  // the platform is initialised
    XMLStringConverter toWide("abc");
    const XMLCh* wideText = toWide;
    const char* narrowSide = toWide;
    ASSERT_NE(wideText, nullptr);
    EXPECT_EQ(narrowSide, nullptr);
    XMLStringConverter back(wideText);
    const char* narrowText = back;
    ASSERT_NE(narrowText, nullptr);
    EXPECT_STREQ(narrowText, "abc");
    XMLStringConverter none(static_cast<const char*>(nullptr));
    EXPECT_EQ(static_cast<const XMLCh*>(none), nullptr);
}

// ---- Writing and the failures around it

TEST_F(XMLFileStreamTest, WrittenDocumentIsPrettyPrintedUTF8WithoutAByteOrderMark) {
    {
        XMLFileStream out(dir.wfile("doc.xml"), false, true);
        xercesc::DOMElement* header = out.WriteElement(out.document->getDocumentElement(), L"HEADER");
        out.WriteElement(header, L"VERSION", L"1.0");
    }
    const std::string content = readFile(dir.file("doc.xml"));
    EXPECT_EQ(content.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"", 0), 0u);
    EXPECT_NE(content.find("\n<ROOT>\n"), std::string::npos) << content;
    EXPECT_NE(content.find("\n  <HEADER>\n"), std::string::npos) << content;
    EXPECT_NE(content.find("\n    <VERSION>1.0</VERSION>\n"), std::string::npos) << content;
}

// The byte-order mark is asked for where the writer of old gave one: a document in UTF-16
// goes back out in UTF-16 with its mark, in the byte order of this machine.
TEST_F(XMLFileStreamTest, UTF16DocumentIsWrittenBackWithAByteOrderMark) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"UTF-16\"?><ROOT><A>1</A></ROOT>";
    std::string utf16 = "\xFF\xFE";  // little-endian mark, then the text
    for (char c : text) {
        utf16 += c;
        utf16 += '\0';
    }
    writeFile(dir.file("wide.xml"), utf16);
    {
        XMLFileStream doc(dir.wfile("wide.xml"), true, true);
        ASSERT_NE(doc.document, nullptr);
        doc.WriteElement(doc.document->getDocumentElement(), L"B", L"2");
    }
    const std::string content = readFile(dir.file("wide.xml"));
    ASSERT_GE(content.size(), 4u);
    const std::uint16_t probe = 1;
    const bool little = *reinterpret_cast<const unsigned char*>(&probe) == 1;
    EXPECT_EQ(content.substr(0, 2), little ? std::string("\xFF\xFE") : std::string("\xFE\xFF"));
    EXPECT_FALSE(XMLFileStream::IsXMLFile(dir.wfile("wide.xml")));
    XMLFileStream check(dir.wfile("wide.xml"), true, false);
    ASSERT_NE(check.document, nullptr);
    ORV::CString value;
    EXPECT_TRUE(check.readElementValue(check.document->getDocumentElement(), L"B", value));
    EXPECT_EQ(value.std(), L"2");
}

TEST_F(XMLFileStreamTest, WriteFailureOnCloseIsShownWithTheWritingMessage) {
    const std::string path = dir.file("no_such_folder/doc.xml");
    {
        XMLFileStream doc(ORV::CString(path.c_str()), true, true);
        ASSERT_NE(doc.document, nullptr);  // not readable, so a new document
        EXPECT_TRUE(doc.errors.GetCount() == 0);
    }
    const std::wstring expected = summary(path, {L"DOM Exception Writing " + w(path) + L"\n reports: \n"});
    const std::vector<std::wstring> warnings = orvhost::LogTexts(4);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0], expected);
    ASSERT_EQ(newQuestions().size(), 1u);
    EXPECT_EQ(newQuestions()[0], L"MsgBox: " + expected);
}

TEST_F(XMLFileStreamTest, FolderInPlaceOfADocumentGivesTheParsingLine) {
    // A folder passes the readability test, and the parser refuses it like any broken file.
    const std::string path = dir.file("folder.xml");
    ASSERT_TRUE(streamtest::makeDirs(path));
    std::vector<std::wstring> errors;
    {
        XMLFileStream in(ORV::CString(path.c_str()), true, true);
        EXPECT_EQ(in.document, nullptr);
        EXPECT_FALSE(in.ok);
        for (long i = 0; i < in.errors.GetCount(); ++i) errors.push_back(in.errors[i].std());
    }
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0], L"Parsing " + w(path) + L" error count: 1");
    ASSERT_EQ(newQuestions().size(), 1u);
    EXPECT_EQ(newQuestions()[0], L"MsgBox: " + summary(path, errors));
}

TEST_F(XMLFileStreamTest, AttributeReadWithoutAnyDocumentFailsCleanly) {
    XMLFileStream none(dir.wfile("missing.xml"), true, false);
    ASSERT_EQ(none.document, nullptr);
    ORV::CString text(L"kept");
    ORV::MATH::CVector3 v(1.0, 2.0, 3.0);
    EXPECT_FALSE(none.GetAttributeValue(nullptr, L"name", text));
    EXPECT_FALSE(none.GetAttributeValue(nullptr, L"pos", v));
    EXPECT_EQ(text.std(), L"kept");
    EXPECT_EQ(v.GetX(), 1.0);
    ASSERT_EQ(none.errors.GetCount(), 2);
    EXPECT_EQ(none.errors[0].std(), L"Atribute : <name> not found under : ");
    none.errors.Clear();
}

// One element per parameter, its value as text and the four attributes (which the library
// lists by name, whatever the order of setting).
TEST_F(XMLFileStreamTest, ParameterElementCarriesItsValueAndFourAttributes) {
    ORV::CustomProperty preset = makePreset();
    {
        XMLFileStream out(dir.wfile("preset.adj"), false, true);
        out.WriteParameter(preset.GetParameter(L"Count"), out.document->getDocumentElement());
    }
    const std::string content = readFile(dir.file("preset.adj"));
    const std::string expected = "<Count Capabilities=\"" + std::to_string(ORV::ovPersistable) +
                                 "\" DataType=\"" + std::to_string(static_cast<int>(ORV::ovInt4)) +
                                 "\" Description=\"\" Name=\"Count\">4</Count>";
    EXPECT_NE(content.find(expected), std::string::npos) << content;
}

// A settings file that does not parse: every read gives its default, the file is left as it
// was, and the user hears of it once, when the stream closes.
TEST_F(XMLFileStreamTest, UnreadableSettingsGiveDefaultsAndAreNotOverwritten) {
    const std::wstring saved = ORV::Application().GetInstallationPath(1).std();
    orvhost::SetInstallationPath(1, w(dir.path));
    const std::string path = dir.file("TROVO.ini");
    const std::string garbage("\x01\x02<ROOT><FILEPATHS>\xFF\xFE</ROOT", 27);
    writeFile(path, garbage);
    {
        XMLFileStream settings;
        EXPECT_EQ(settings.document, nullptr);
        EXPECT_EQ(settings.getINIValue(L"FILEPATHS", L"BVH_FILES", L"/home").std(), L"/home");
        EXPECT_EQ(settings.getINIValue(L"MOCAP", L"Fit", 3), 3);
        EXPECT_FALSE(settings.setINIValue(L"MOCAP", L"Fit", L"4"));
        EXPECT_TRUE(newQuestions().empty());
    }
    orvhost::SetInstallationPath(1, saved);
    EXPECT_EQ(readFile(path), garbage);
    const std::vector<std::wstring> asked = newQuestions();
    ASSERT_EQ(asked.size(), 1u);
    const std::wstring head =
        L"MsgBox: Errors occured while loading the following file : \n" + w(path) + L"\nError : ";
    EXPECT_EQ(asked[0].rfind(head, 0), 0u);
}
