// Truncated and random inputs for every reader of the core services: the text reader, the
// binary reader, the XML document stream, its sniff, and the preferences file. Each must
// fail cleanly: no crash, no read outside its data, and a clear state afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "../../fuzz/StreamReads.h"
#include "HostTesting.h"
#include "StreamTestUtil.h"
#include "core/FileManager.h"
#include "core/FileStream.h"
#include "core/InputStream.h"
#include "core/XMLFileStream.h"

using streamtest::TempDir;
using streamtest::writeFile;

namespace {

std::string randomBytes(std::mt19937& engine, size_t length, bool printable) {
    static const char alphabet[] = "0123456789 .-+eE#\n\r\t,{}<>/=\"abcXYZ";
    std::string out;
    for (size_t i = 0; i < length; ++i) {
        if (printable)
            out += alphabet[engine() % (sizeof(alphabet) - 1)];
        else
            out += static_cast<char>(engine() & 0xFF);
    }
    return out;
}

}  // namespace

TEST(StreamFuzz, TextReaderTakesRandomAndTruncatedInput) {
    TempDir dir;
    std::mt19937 engine(1234);
    const std::string valid = "Version1.1 # header\n{ hips 0 1.5 -2e3 TRUE\r\n  0.1 0.2 0.3 4 5 6 }\n";
    for (size_t cut = 0; cut <= valid.size(); ++cut) {
        writeFile(dir.file("t.txt"), valid.substr(0, cut));
        ZUK::InputStream in(dir.wfile("t.txt"));
        ASSERT_NE(in.buffer, nullptr);
        ASSERT_TRUE(trovofuzz::DrainTextStream(in, engine, 10000)) << "cut " << cut;
    }
    for (int round = 0; round < 300; ++round) {
        writeFile(dir.file("r.txt"), randomBytes(engine, engine() % 300, round % 2 == 0));
        ZUK::InputStream in(dir.wfile("r.txt"));
        ASSERT_NE(in.buffer, nullptr);
        ASSERT_TRUE(trovofuzz::DrainTextStream(in, engine, 10000)) << "round " << round;
    }
}

TEST(StreamFuzz, BinaryReaderTakesRandomAndTruncatedInput) {
    TempDir dir;
    std::mt19937 engine(99);
    orvhost::ClearLog();
    for (int round = 0; round < 200; ++round) {
        const size_t length = engine() % 64;
        writeFile(dir.file("b.bin"), randomBytes(engine, length, false));
        FileStream in(dir.wfile("b.bin"));
        ASSERT_TRUE(in.ok());
        trovofuzz::ReadBinaryFields(in, engine, 40, 80);
    }
    // Every short read was logged with the one message form.
    for (const std::wstring& text : orvhost::LogTexts(4))
        EXPECT_EQ(text.rfind(L"readBytes() failed: expected ", 0), 0u)
            << std::string(text.begin(), text.end());
}

TEST(StreamFuzz, XMLDocumentStreamFailsCleanlyOnBrokenDocuments) {
    TempDir dir;
    std::mt19937 engine(4321);
    orvhost::ClearAnswers();
    const std::string valid =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ROOT>\n  <HEADER><VERSION>1.0</VERSION></HEADER>\n"
        "  <NODES><NODE name=\"hips\" global=\"0,0,1,0.5,1,2,3\"/></NODES>\n</ROOT>\n";
    int parsed = 0, refused = 0;
    for (size_t step = 0; step <= valid.size() / 3 + 1; ++step) {
        const size_t cut = std::min(step * 3, valid.size());  // the last round is the whole text
        writeFile(dir.file("t.xml"), valid.substr(0, cut));
        XMLFileStream in(dir.wfile("t.xml"), true, false);
        if (in.document) {
            ++parsed;
            EXPECT_TRUE(in.ok);
        } else {
            ++refused;
            EXPECT_FALSE(in.ok);
            EXPECT_GT(in.errors.GetCount(), 0);
        }
        // Navigation on whatever came out never crashes.
        xercesc::DOMElement* root = in.document ? in.document->getDocumentElement() : nullptr;
        xercesc::DOMElement* nodes = in.FindElement(root, L"NODES");
        ORV::MATH::CTransformation t;
        in.GetAttributeValue(in.GetChildElement(nodes, 0), L"global", t);
        in.getINIValue(L"A", L"B", L"x");
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(parsed, 0);  // only the whole document parses
    for (int round = 0; round < 100; ++round) {
        std::string bytes = randomBytes(engine, engine() % 200, round % 2 == 0);
        if (round % 3 == 0) bytes = "<?xml version=\"1.0\"?>" + bytes;
        writeFile(dir.file("r.xml"), bytes);
        EXPECT_EQ(XMLFileStream::IsXMLFile(dir.wfile("r.xml")),
                  bytes.size() > 4 && bytes.compare(0, 5, "<?xml") == 0);
        XMLFileStream in(dir.wfile("r.xml"), true, round % 4 == 0);
        if (!in.document) {
            EXPECT_FALSE(in.ok);
        }
    }
}

TEST(StreamFuzz, AttributeReadersTakeMalformedNumbers) {
    TempDir dir;
    std::mt19937 engine(5);
    XMLFileStream out(dir.wfile("a.xml"), false, true);
    xercesc::DOMElement* node = out.WriteElement(out.document->getDocumentElement(), L"NODE");
    for (int round = 0; round < 300; ++round) {
        const std::string text = randomBytes(engine, engine() % 40, true);
        std::string clean;
        for (char c : text)
            if (c != '<' && c != '"' && c != '\r') clean += c;  // what an attribute can carry
        out.SetAttributeValue(node, L"a", ORV::CString(clean.c_str()));
        ORV::MATH::CVector3 v;
        ORV::MATH::CRotation r;
        ORV::MATH::CTransformation t;
        const ORV::CStringArray parts = ORV::CString(clean.c_str()).Split(L",");
        EXPECT_EQ(out.GetAttributeValue(node, L"a", v), parts.GetCount() == 3);
        EXPECT_EQ(out.GetAttributeValue(node, L"a", r), parts.GetCount() == 4);
        EXPECT_EQ(out.GetAttributeValue(node, L"a", t), parts.GetCount() == 7);
    }
    out.errors.Clear();
}

TEST(StreamFuzz, PreferencesFileReadersTakeGarbage) {
    TempDir dir;
    std::mt19937 engine(17);
    const std::wstring saved = ORV::Application().GetInstallationPath(1).std();
    orvhost::SetInstallationPath(1, std::wstring(dir.path.begin(), dir.path.end()));
    for (int round = 0; round < 100; ++round) {
        std::string bytes = randomBytes(engine, engine() % 200, round % 2 == 0);
        if (round % 3 == 0) bytes = "Version1.1\n" + bytes;
        writeFile(dir.file("retargetpref.cfg"), bytes);
        ZUK::FileManager::getFilePath(L"BVHDir");
        ASSERT_TRUE(ZUK::FileManager::saveFilePath(L"BVHDir", L"/bvh"));
        // Garbage tokens may shift the lines, but the file is always written whole again.
        const std::string content = streamtest::readFile(dir.file("retargetpref.cfg"));
        EXPECT_EQ(content.rfind("Version1.1\n", 0), 0u);
        EXPECT_NE(content.find("/bvh\n"), std::string::npos);
        ZUK::FileManager::getFilePath(L"TrovoDir");
    }
    orvhost::SetInstallationPath(1, saved);
}

TEST(StreamFuzz, ParameterSetReadersTakeRandomTemplates) {
    TempDir dir;
    std::mt19937 engine(8);
    orvhost::NewScene();
    ORV::CustomProperty target;
    ORV::Application().GetActiveSceneRoot().AddCustomProperty(L"Fuzz", false, target);
    ORV::Parameter p;
    target.AddParameter(L"Gain", ORV::ovDouble, ORV::ovPersistable, L"Gain", L"", ORV::CValue(1.0), p);
    static const char* const names[] = {"DataType", "Capabilities", "Name", "Description", "DefaultValue"};
    static const char* const types[] = {"ovInt4", "ovFloat", "ovDouble", "ovString", "ovBool", "3", ""};
    static const char* const values[] = {"1", "-2.5", "abc", "", "1e999", "nan", "99999999999"};
    for (int round = 0; round < 60; ++round) {
        std::string xml = "<?xml version=\"1.0\"?><ROOT><SET>";
        const int elements = static_cast<int>(engine() % 5);
        for (int e = 0; e < elements; ++e) {
            xml += "<P" + std::to_string(round) + "_" + std::to_string(e);
            for (const char* name : names) {
                if (engine() % 5 == 0) continue;  // now and then an attribute is missing
                const char* value =
                    std::string(name) == "DataType" ? types[engine() % 7] : values[engine() % 7];
                xml += std::string(" ") + name + "=\"" + value + "\"";
            }
            xml += ">" + std::string(values[engine() % 7]) + "</P" + std::to_string(round) + "_" +
                   std::to_string(e) + ">";
        }
        xml += "<Gain>" + std::string(values[engine() % 7]) + "</Gain></SET></ROOT>";
        writeFile(dir.file("t.xml"), xml);
        XMLFileStream in(dir.wfile("t.xml"), true, false);
        ASSERT_NE(in.document, nullptr) << xml;
        xercesc::DOMElement* set = in.FindElement(in.document->getDocumentElement(), L"SET");
        EXPECT_TRUE(in.ReadParameterSet(target, set));
        const bool complete = in.CreateParameterSet(target, set);
        EXPECT_EQ(complete, in.errors.GetCount() == 0);
    }
}
