// Data file locations by scope, the path string helpers, and the older preferences file.
#include <gtest/gtest.h>
#include <unistd.h>

#include "HostTesting.h"
#include "HostUI.h"
#include "StreamTestUtil.h"
#include "core/FileManager.h"

using streamtest::makeDirs;
using streamtest::readFile;
using streamtest::TempDir;
using streamtest::writeFile;
using ZUK::FileManager;

namespace {

// Three installation locations in a temporary folder; the scope roots are filled afresh for
// each test and the host's old locations come back afterwards.
class FileManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (int kind = 1; kind <= 3; ++kind)
            saved[kind] = ORV::Application().GetInstallationPath(kind).std();
        user = dir.path + "/user";
        shared = dir.path + "/shared";
        factory = dir.path + "/factory";
        for (const std::string* p : {&user, &shared, &factory}) makeDirs(*p);
        setLocations(user, shared, factory);
    }
    void TearDown() override {
        for (int kind = 1; kind <= 3; ++kind) orvhost::SetInstallationPath(kind, saved[kind]);
        FileManager::rootsFilled = false;
    }

    void setLocations(const std::string& u, const std::string& s, const std::string& f) {
        orvhost::SetInstallationPath(1, std::wstring(u.begin(), u.end()));
        orvhost::SetInstallationPath(2, std::wstring(s.begin(), s.end()));
        orvhost::SetInstallationPath(3, std::wstring(f.begin(), f.end()));
        FileManager::rootsFilled = false;
        FileManager manager;
    }

    // Puts a file into the data tree of a location.
    void put(const std::string& location, const std::string& folder, const std::string& name,
             const std::string& content = "x") {
        const std::string path = location + "/Addons/Trovo/Data/" + folder;
        makeDirs(path);
        writeFile(path + name, content);
    }

    static std::wstring w(const std::string& s) { return std::wstring(s.begin(), s.end()); }

    TempDir dir;
    std::string user, shared, factory;
    std::wstring saved[4];
};

}  // namespace

TEST_F(FileManagerTest, ScopeRootsAreTheLocationsWithTheAddonPath) {
    EXPECT_EQ(FileManager::roots[0].std(), w(user + "/Addons/Trovo/Data/"));
    EXPECT_EQ(FileManager::roots[1].std(), w(shared + "/Addons/Trovo/Data/"));
    EXPECT_EQ(FileManager::roots[2].std(), w(factory + "/Addons/Trovo/Data/"));
}

TEST_F(FileManagerTest, EmptyLocationStaysEmptyWithoutSuffix) {
    setLocations(user, "", factory);
    EXPECT_EQ(FileManager::roots[1].std(), L"");
}

TEST_F(FileManagerTest, RootsAreFilledOnlyByTheFirstConstruction) {
    orvhost::SetInstallationPath(1, L"/elsewhere");
    FileManager again;
    EXPECT_EQ(FileManager::roots[0].std(), w(user + "/Addons/Trovo/Data/"));
}

TEST_F(FileManagerTest, LoadPathWithANameInUserAndFactoryGivesTheUserCopy) {
    put(user, "Structures/", "biped.structure");
    put(factory, "Structures/", "biped.structure");
    ORV::CString path;
    ASSERT_TRUE(
        FileManager::getLoadPath(FileManager::STRUCTURE_FILE, L"biped", path, FileManager::USER_SCOPE));
    EXPECT_EQ(path.std(), w(user + "/Addons/Trovo/Data/Structures/biped.structure"));
}

TEST_F(FileManagerTest, LoadPathFromTheFactoryScopeDoesNotLookAtTheUserCopy) {
    put(user, "Structures/", "biped.structure");
    ORV::CString path(L"unchanged");
    EXPECT_FALSE(
        FileManager::getLoadPath(FileManager::STRUCTURE_FILE, L"biped", path, FileManager::FACTORY_SCOPE));
    EXPECT_EQ(path.std(), L"unchanged");
    put(factory, "Structures/", "biped.structure");
    ASSERT_TRUE(
        FileManager::getLoadPath(FileManager::STRUCTURE_FILE, L"biped", path, FileManager::FACTORY_SCOPE));
    EXPECT_EQ(path.std(), w(factory + "/Addons/Trovo/Data/Structures/biped.structure"));
}

TEST_F(FileManagerTest, LoadPathFallsBackToTheSharedCopy) {
    put(shared, "TagTemplates/", "hands.tagt");
    ORV::CString path;
    ASSERT_TRUE(
        FileManager::getLoadPath(FileManager::TAG_TEMPLATE_FILE, L"hands", path, FileManager::USER_SCOPE));
    EXPECT_EQ(path.std(), w(shared + "/Addons/Trovo/Data/TagTemplates/hands.tagt"));
}

TEST_F(FileManagerTest, LoadPathUsesTheSuffixOfTheType) {
    put(user, "Structures/Mocap/", "marker.structure");
    put(user, "Structures/", "biped.base");
    ORV::CString path;
    EXPECT_TRUE(FileManager::getLoadPath(FileManager::MOCAP_STRUCTURE_FILE, L"marker", path,
                                         FileManager::USER_SCOPE));
    EXPECT_TRUE(FileManager::getLoadPath(FileManager::BASE_FILE, L"biped", path, FileManager::USER_SCOPE));
    EXPECT_FALSE(
        FileManager::getLoadPath(FileManager::STRUCTURE_FILE, L"marker", path, FileManager::USER_SCOPE));
}

TEST_F(FileManagerTest, StorePathWithScopeThreeFailsAtOnce) {
    put(user, "Structures/", "biped.structure");
    ORV::CString path(L"unchanged");
    EXPECT_FALSE(
        FileManager::getStorePath(FileManager::STRUCTURE_FILE, path, static_cast<FileManager::Scope>(3)));
    EXPECT_EQ(path.std(), L"unchanged");
}

TEST_F(FileManagerTest, StorePathIsTheFirstReadableFolderOutward) {
    put(shared, "Structures/", "a.structure");
    put(factory, "Structures/", "a.structure");
    ORV::CString path;
    ASSERT_TRUE(FileManager::getStorePath(FileManager::STRUCTURE_FILE, path, FileManager::USER_SCOPE));
    EXPECT_EQ(path.std(), w(shared + "/Addons/Trovo/Data/Structures/"));
}

TEST_F(FileManagerTest, StorePathFailureHoldsTheLastTry) {
    ORV::CString path;
    EXPECT_FALSE(FileManager::getStorePath(FileManager::TAG_TEMPLATE_FILE, path, FileManager::USER_SCOPE));
    EXPECT_EQ(path.std(), w(factory + "/Addons/Trovo/Data/TagTemplates/"));
}

TEST_F(FileManagerTest, FilesOfTypeWithNoFilesIsEmptyAndNoFailure) {
    ORV::CStringArray files;
    files.Add(L"stale");
    EXPECT_TRUE(FileManager::getFilesOfType(files, FileManager::TAG_TEMPLATE_FILE, FileManager::USER_SCOPE));
    EXPECT_EQ(files.GetCount(), 0);
}

TEST_F(FileManagerTest, FilesOfTypeCollectsEveryScopeInGlobOrder) {
    put(user, "Structures/", "zeta.structure");
    put(user, "Structures/", "alpha.structure");
    put(user, "Structures/", "alpha.base");  // another type in the same folder
    put(factory, "Structures/", "alpha.structure");
    put(factory, "Structures/", "biped.structure");
    ORV::CStringArray files;
    ASSERT_TRUE(FileManager::getFilesOfType(files, FileManager::STRUCTURE_FILE, FileManager::USER_SCOPE));
    ASSERT_EQ(files.GetCount(), 4);
    EXPECT_EQ(files[0].std(), L"alpha.structure");
    EXPECT_EQ(files[1].std(), L"zeta.structure");
    EXPECT_EQ(files[2].std(), L"alpha.structure");
    EXPECT_EQ(files[3].std(), L"biped.structure");

    ASSERT_TRUE(FileManager::getFilesOfType(files, FileManager::STRUCTURE_FILE, FileManager::FACTORY_SCOPE));
    EXPECT_EQ(files.GetCount(), 2);
}

TEST_F(FileManagerTest, TypesWithoutAFolderAreRefused) {
    ORV::CString path;
    ORV::CStringArray files;
    EXPECT_FALSE(FileManager::getStorePath(FileManager::RETARGET_FILE, path, FileManager::USER_SCOPE));
    EXPECT_FALSE(FileManager::getLoadPath(FileManager::PRESET_FILE, L"a", path, FileManager::USER_SCOPE));
    EXPECT_FALSE(FileManager::getFilesOfType(files, FileManager::PRESET_FILE, FileManager::USER_SCOPE));
    EXPECT_EQ(files.GetCount(), 0);
}

TEST_F(FileManagerTest, TypeTablesHoldTheFoldersAndSuffixes) {
    EXPECT_EQ(std::wstring(FileManager::TYPE_PATHS[2]), L"Structures/Mocap/");
    EXPECT_EQ(std::wstring(FileManager::TYPE_PATHS[3]), L"TagTemplates/");
    EXPECT_EQ(std::wstring(FileManager::TYPE_SUFFIXES[1]), L".base");
    EXPECT_EQ(std::wstring(FileManager::TYPE_SUFFIXES[4]), L".retarget");
    EXPECT_EQ(std::wstring(FileManager::TYPE_SUFFIXES[5]), L".frpre");
    EXPECT_EQ(std::wstring(FileManager::ADDON_PATH), L"/Addons/Trovo/Data/");
}

TEST_F(FileManagerTest, StructurePathIsTheUserLocation) {
    EXPECT_EQ(FileManager::getStructurePath(L"ignored").std(), w(user));
}

TEST_F(FileManagerTest, ReadabilityTests) {
    put(user, "Structures/", "a.structure");
    EXPECT_TRUE(FileManager::dirIsReadable(ORV::CString((user + "/Addons/Trovo/Data/Structures/").c_str())));
    EXPECT_TRUE(FileManager::fileIsReadable(
        ORV::CString((user + "/Addons/Trovo/Data/Structures/a.structure").c_str())));
    EXPECT_FALSE(FileManager::fileIsReadable(ORV::CString((user + "/none").c_str())));
    EXPECT_FALSE(FileManager::dirIsReadable(ORV::CString((user + "/none/").c_str())));
}

TEST(FileManagerPaths, ExtractSuffixTakesTheTextBehindTheLastDotInUpperCase) {
    EXPECT_EQ(FileManager::extractSuffix(L"a.b.c").std(), L"C");
    EXPECT_EQ(FileManager::extractSuffix(L"walk.bvh").std(), L"BVH");
    EXPECT_EQ(FileManager::extractSuffix(L"map.MapFile").std(), L"MAPFILE");
}

TEST(FileManagerPaths, ExtractSuffixWithoutADotIsTheWholePathInUpperCase) {
    EXPECT_EQ(FileManager::extractSuffix(L"abc").std(), L"ABC");
}

TEST(FileManagerPaths, ExtractSuffixWithATrailingDotIsEmpty) {
    EXPECT_EQ(FileManager::extractSuffix(L"abc.").std(), L"");
}

TEST(FileManagerPaths, ExtractPathKeepsTheLastSeparatorOfEitherKind) {
    EXPECT_EQ(FileManager::extractPath(L"a/b\\c").std(), L"a/b\\");
    EXPECT_EQ(FileManager::extractPath(L"c").std(), L"");
    EXPECT_EQ(FileManager::extractPath(L"a/").std(), L"a/");
    EXPECT_EQ(FileManager::extractPath(L"/data/walk.bvh").std(), L"/data/");
}

TEST(FileManagerPaths, FileNameFromPathStopsAtTheFirstDotOfTheName) {
    EXPECT_EQ(FileManager::fileNameFromPath(L"d/x.y.z", true).std(), L"x");
    EXPECT_EQ(FileManager::fileNameFromPath(L"d.e\\name.tagt", false).std(), L"name");
    EXPECT_EQ(FileManager::fileNameFromPath(L"plain", false).std(), L"plain");
}

TEST(FileManagerPaths, ExtractBaseNameCutsAtStructure) {
    EXPECT_EQ(FileManager::extractBaseName(L"biped.structure").std(), L"biped");
    EXPECT_EQ(FileManager::extractBaseName(L"biped.base").std(), L"biped.base");
    EXPECT_EQ(FileManager::extractBaseName(L"a.structure.structure").std(), L"a");
}

// ---- The older preferences file

TEST_F(FileManagerTest, PreferencesStartFromTheUserLocationAndZero) {
    EXPECT_EQ(FileManager::getFilePath(L"BVHDir").std(), w(user));
    ASSERT_TRUE(FileManager::saveFilePath(L"BVHDir", L"/captures/bvh"));
    const std::string expected =
        "Version1.1\n" + user + "\n" + user + "\n/captures/bvh\n" + user + "\n" + user + "\n0 \n0 \n";
    EXPECT_EQ(readFile(user + "/retargetpref.cfg"), expected);
}

TEST_F(FileManagerTest, PreferencesKeepEveryOtherValue) {
    ASSERT_TRUE(FileManager::saveFilePath(L"C3DDir", L"/c3d"));
    ASSERT_TRUE(FileManager::saveFilePath(L"TrovoDir", L"/trovo"));
    ASSERT_TRUE(FileManager::saveStructurePath(L"", L"", L"StructureTag", 3));
    ASSERT_TRUE(FileManager::saveStructurePath(L"", L"", L"StructureFit", -2));
    EXPECT_EQ(FileManager::getFilePath(L"C3DDir").std(), L"/c3d");
    EXPECT_EQ(FileManager::getFilePath(L"TrovoDir").std(), L"/trovo");
    EXPECT_EQ(FileManager::getFilePath(L"MapFileDir").std(), w(user));
    EXPECT_EQ(readFile(user + "/retargetpref.cfg"),
              "Version1.1\n/c3d\n" + user + "\n" + user + "\n" + user + "\n/trovo\n-2 \n3 \n");
}

TEST_F(FileManagerTest, PreferencesOfAnUnknownKeyGiveTheUserLocation) {
    ASSERT_TRUE(FileManager::saveFilePath(L"AMCDir", L"/amc"));
    EXPECT_EQ(FileManager::getFilePath(L"StructureFit").std(), w(user));
    EXPECT_EQ(FileManager::getFilePath(L"amcdir").std(), w(user));
}

TEST_F(FileManagerTest, PreferencesOfAnotherVersionAreIgnored) {
    writeFile(user + "/retargetpref.cfg", "Version1.0\n/a\n/b\n/c\n/d\n/e\n1 \n2 \n");
    EXPECT_EQ(FileManager::getFilePath(L"C3DDir").std(), w(user));
    ASSERT_TRUE(FileManager::saveFilePath(L"AMCDir", L"/amc"));
    EXPECT_EQ(FileManager::getFilePath(L"C3DDir").std(), w(user));
    EXPECT_EQ(FileManager::getFilePath(L"AMCDir").std(), L"/amc");
}

TEST_F(FileManagerTest, PreferenceWithABlankDoesNotSurviveItsNeighboursSave) {
    ASSERT_TRUE(FileManager::saveFilePath(L"C3DDir", L"/my captures"));
    EXPECT_EQ(FileManager::getFilePath(L"C3DDir").std(), L"/my captures");  // read as a line
    ASSERT_TRUE(FileManager::saveFilePath(L"MapFileDir", L"/maps"));        // read as tokens
    EXPECT_EQ(FileManager::getFilePath(L"C3DDir").std(), L"/my");
}

// ---- Picking a file of a type on the headless host's page

TEST_F(FileManagerTest, UserSelectFileOfTypeGivesTheChosenValueOnOk) {
    put(user, "TagTemplates/", "hands.tagt");
    put(factory, "TagTemplates/", "feet.tagt");
    orvhost::NewScene();
    orvhost::ClearAnswers();
    orvhost::QueueAnswer(ORV::CValue(true));
    ORV::CString file;
    ASSERT_TRUE(
        FileManager::userSelectFileOfType(FileManager::TAG_TEMPLATE_FILE, L"Pick Template", L"feet", file));
    EXPECT_EQ(file.std(), L"feet");
    // The temporary page is gone again.
    ORV::Property left;
    const ORV::CRefArray properties = ORV::Application().GetActiveSceneRoot().GetProperties();
    for (long i = 0; i < properties.GetCount(); ++i)
        EXPECT_NE(ORV::Property(properties[i]).GetName().std(), L"Pick Template");
}

TEST_F(FileManagerTest, UserSelectFileOfTypeGivesWhatTheUserPicked) {
    put(user, "TagTemplates/", "hands.tagt");
    put(factory, "TagTemplates/", "feet.tagt");
    orvhost::NewScene();
    orvhost::ClearAnswers();
    const std::size_t asked = orvhost::Questions().size();
    orvhost::QueueAnswer(ORV::CValue(L"File=hands"));  // the user picks, then presses OK
    ORV::CString file;
    ASSERT_TRUE(
        FileManager::userSelectFileOfType(FileManager::TAG_TEMPLATE_FILE, L"Pick Template", L"feet", file));
    EXPECT_EQ(file.std(), L"hands");
    ASSERT_EQ(orvhost::Questions().size(), asked + 1);
    EXPECT_EQ(orvhost::Questions().back(), L"InspectObj: Pick Template");
}

TEST_F(FileManagerTest, UserSelectFileOfTypeFailsOnCancelAndRemovesThePage) {
    orvhost::NewScene();
    orvhost::ClearAnswers();
    orvhost::QueueAnswer(ORV::CValue(false));
    orvhost::ClearLog();
    ORV::CString file(L"unchanged");
    EXPECT_FALSE(
        FileManager::userSelectFileOfType(FileManager::STRUCTURE_FILE, L"Pick Structure", L"", file));
    EXPECT_EQ(file.std(), L"unchanged");
    const ORV::CRefArray properties = ORV::Application().GetActiveSceneRoot().GetProperties();
    for (long i = 0; i < properties.GetCount(); ++i)
        EXPECT_NE(ORV::Property(properties[i]).GetName().std(), L"Pick Structure");
    EXPECT_TRUE(orvhost::LogTexts(ORV::ovWarning).empty());
    EXPECT_TRUE(orvhost::LogTexts(ORV::ovError).empty());
}

// What the page holds while it is shown: a string parameter "File" of capabilities 4 with the
// default, and one combo box "File" whose items pair each file name with itself.
TEST_F(FileManagerTest, UserSelectFileOfTypeShowsAComboOfTheNamesOfEveryScope) {
    put(user, "TagTemplates/", "hands.tagt");
    put(shared, "TagTemplates/", "arms.v2.tagt");
    put(factory, "TagTemplates/", "feet.tagt");
    put(factory, "TagTemplates/", "hands.tagt");
    orvhost::NewScene();
    orvhost::ClearAnswers();
    orvhost::QueueAnswer(ORV::CValue(true));

    bool seen = false;
    auto& sink = orvhost::QuestionSink();
    const auto savedSink = sink;
    sink = [&seen](const std::wstring& question, const std::wstring&) {
        if (question != L"InspectObj: Pick Template") return;
        seen = true;
        ORV::Property page;
        const ORV::CRefArray properties = ORV::Application().GetActiveSceneRoot().GetProperties();
        for (long i = 0; i < properties.GetCount(); ++i)
            if (ORV::Property(properties[i]).GetName().std() == L"Pick Template")
                page = ORV::Property(properties[i]);
        ASSERT_TRUE(page.IsValid());
        EXPECT_TRUE(ORV::CustomProperty(page.GetRef()).IsValid());
        const ORV::Parameter file = page.GetParameter(L"File");
        ASSERT_TRUE(file.IsValid());
        EXPECT_EQ(file.GetValueType(), ORV::ovString);
        EXPECT_EQ(file.GetCapabilities(), 4);
        EXPECT_EQ(ORV::CString(file.GetValue()).std(), L"feet");

        const ORV::PPGLayout layout = page.GetPPGLayout();
        ASSERT_EQ(layout.GetCount(), 1);
        const ORV::PPGItem combo = layout.GetItem(0);
        EXPECT_EQ(combo.GetName().std(), L"File");
        EXPECT_EQ(combo.GetLabel().std(), L"File");
        EXPECT_EQ(combo.GetControlType(), ORV::ovControlCombo);
        const ORV::CValueArray items = combo.GetUIItems();
        const std::vector<std::wstring> expected = {L"hands", L"hands", L"arms",  L"arms",
                                                    L"feet",  L"feet",  L"hands", L"hands"};
        ASSERT_EQ(items.GetCount(), static_cast<long>(expected.size()));
        for (long i = 0; i < items.GetCount(); ++i)
            EXPECT_EQ(ORV::CString(items[i]).std(), expected[static_cast<size_t>(i)]) << i;
    };
    ORV::CString file;
    const bool picked =
        FileManager::userSelectFileOfType(FileManager::TAG_TEMPLATE_FILE, L"Pick Template", L"feet", file);
    sink = savedSink;
    EXPECT_TRUE(seen);
    EXPECT_TRUE(picked);
    EXPECT_EQ(file.std(), L"feet");
}

// An empty location gives an empty root, and the lookups that walk the scopes try its folder
// as it stands, relative to the working directory; only the listing passes it over.
TEST_F(FileManagerTest, EmptyRootIsTriedAsItStandsButNotListed) {
    setLocations(user, "", factory);
    const std::string work = dir.path + "/work";
    makeDirs(work + "/Structures");
    writeFile(work + "/Structures/biped.structure", "x");
    put(factory, "Structures/", "biped.structure");
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof old), nullptr);
    ASSERT_EQ(chdir(work.c_str()), 0);
    ORV::CString load, store;
    const bool loaded =
        FileManager::getLoadPath(FileManager::STRUCTURE_FILE, L"biped", load, FileManager::SHARED_SCOPE);
    const bool stored =
        FileManager::getStorePath(FileManager::STRUCTURE_FILE, store, FileManager::SHARED_SCOPE);
    ORV::CStringArray files;
    FileManager::getFilesOfType(files, FileManager::STRUCTURE_FILE, FileManager::SHARED_SCOPE);
    ASSERT_EQ(chdir(old), 0);
    EXPECT_TRUE(loaded);
    EXPECT_EQ(load.std(), L"Structures/biped.structure");
    EXPECT_TRUE(stored);
    EXPECT_EQ(store.std(), L"Structures/");
    ASSERT_EQ(files.GetCount(), 1);  // the factory's copy only
    EXPECT_EQ(files[0].std(), L"biped.structure");
}
