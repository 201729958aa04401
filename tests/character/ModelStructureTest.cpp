// Reading structure and base files: grammar, nodes, planes, decompositions, mirrors, lookups,
// and every failure message.
#include <memory>

#include "StructureTestSupport.h"
#include "core/InputStream.h"

using structtest::Messages;
using structtest::One;
using structtest::Text;
using ZUK::ModelStructure;

namespace {

const double DEG = 0.017453292519943295;

// The torso used by most files here: node 0 under world, a free chest above it.
const char* const TORSO_BASE =
    "torso {\n"
    "    world\n"
    "    pelvis   hip    0 1 0    0 0 1    0 100 0\n"
    "    chest    free   0 1 0    0 0 1    0 40 0\n"
    "}\n";

class ModelStructureFile : public ::testing::Test {
protected:
    void SetUp() override {
        structtest::UseLocations(root.dir, "");
        orvhost::ClearLog();
    }

    std::unique_ptr<ModelStructure> Load(const char* name) {
        return std::unique_ptr<ModelStructure>(ModelStructure::CreateFromFile(ORV::CString(name)));
    }

    // A structure "s" on the base "tb" (TORSO_BASE) with the given blocks after the first word.
    std::unique_ptr<ModelStructure> LoadBlocks(const std::string& blocks) {
        root.Write("Structures/tb.base", TORSO_BASE);
        root.Write("Structures/s.structure", "tb\n" + blocks);
        return Load("s");
    }

    structtest::SavedLocations savedLocations;
    structtest::ScratchRoot root;
};

void ExpectVector(const ORV::MATH::CVector3& v, double x, double y, double z) {
    EXPECT_DOUBLE_EQ(v.x, x);
    EXPECT_DOUBLE_EQ(v.y, y);
    EXPECT_DOUBLE_EQ(v.z, z);
}

std::vector<long> Bones(const ModelStructure::Plane& plane) {
    std::vector<long> out;
    for (long i = 0; i < plane.bones.GetCount(); ++i) out.push_back(plane.bones[i]);
    return out;
}

}  // namespace

TEST_F(ModelStructureFile, FirstBaseGroupUnderWorldGivesNodeZeroWithoutParent) {
    auto s = LoadBlocks("");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->numNodes, 2);
    EXPECT_EQ(s->numPlanes, 0);
    EXPECT_EQ(Text(s->nodes[0].Name), L"pelvis");
    EXPECT_EQ(s->nodes[0].Parent, -1);
    EXPECT_EQ(s->nodes[0].OffsetParent, -1);
    EXPECT_EQ(s->nodes[0].Type, 0);
    ExpectVector(s->nodes[0].Position, 0, 100, 0);
    EXPECT_EQ(s->nodes[1].Parent, 0);
    EXPECT_EQ(s->nodes[1].Type, 3);
    ExpectVector(s->nodes[1].Position, 0, 140, 0);
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructureFile, ExampleStructureReadsIntoNodesPlaneAndDecomposition) {
    auto s = LoadBlocks(
        "leftarm {\n"
        "    chest\n"
        "    lshoulder  anchor    1 0 0   0 0 1    8 30 0\n"
        "    lelbow     child     1 0 0   0 0 1   30 0 0\n"
        "    lhand      ik        1 0 0   0 0 1   25 0 0   limits: -90 -90 -90   90 90 90\n"
        "}\n"
        "twist {\n"
        "    decompose\n"
        "    lelbow\n"
        "    Unused Unused Unused   ltwist Unused Unused   Unused Unused Unused\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(Text(s->Type), L"tb");
    EXPECT_EQ(Text(s->Source), L"s");
    ASSERT_EQ(s->numNodes, 5);
    ASSERT_EQ(s->numPlanes, 1);
    ASSERT_EQ(s->baseGroups.size(), 1u);
    ASSERT_EQ(s->groups.size(), 1u);
    EXPECT_EQ(Text(s->groups[0].Name), L"leftarm");
    EXPECT_EQ(Text(s->groups[0].Parent), L"chest");

    const ModelStructure::Node& shoulder = s->nodes[2];
    EXPECT_EQ(Text(shoulder.Name), L"lshoulder");
    EXPECT_EQ(shoulder.Parent, 1);
    EXPECT_EQ(shoulder.OffsetParent, 1);
    EXPECT_EQ(shoulder.Type, 1);
    ExpectVector(shoulder.align, 1, 0, 0);
    ExpectVector(shoulder.roll, 0, 0, 1);
    ExpectVector(shoulder.Offset, 8, 30, 0);
    ExpectVector(shoulder.Position, 8, 170, 0);

    const ModelStructure::Node& hand = s->nodes[4];
    EXPECT_EQ(hand.Parent, 2);  // the anchor
    EXPECT_EQ(hand.OffsetParent, 3);
    EXPECT_EQ(hand.Type, 2);
    EXPECT_FALSE(hand.Friction);
    ExpectVector(hand.Position, 63, 170, 0);
    ExpectVector(hand.Minlimits, -90 * DEG, -90 * DEG, -90 * DEG);
    ExpectVector(hand.Maxlimits, 90 * DEG, 90 * DEG, 90 * DEG);

    const ModelStructure::Plane& plane = s->planes[0];
    EXPECT_EQ(Text(plane.Name), L"lelbow");
    EXPECT_EQ(plane.AnchorIndex, 2);
    EXPECT_EQ(plane.Mid, 3);
    EXPECT_EQ(plane.Span, 4);
    EXPECT_EQ(Bones(plane), (std::vector<long>{4, 3, 2}));

    ASSERT_EQ(s->decomps.size(), 1u);
    const ModelStructure::Decomp& d = s->decomps[0];
    EXPECT_EQ(Text(d.Name), L"twist");
    EXPECT_EQ(Text(d.SrcName), L"lelbow");
    EXPECT_EQ(Text(d.RX), L"ltwist");
    for (const ORV::CString* empty : {&d.PX, &d.PY, &d.PZ, &d.RY, &d.RZ, &d.RtoP_X, &d.RtoP_Y, &d.RtoP_Z})
        EXPECT_TRUE(empty->IsEmpty());
    ASSERT_EQ(d.targets.GetCount(), 1);
    EXPECT_EQ(Text(d.targets[0]), L"ltwist");
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructureFile, BlockWithoutBraceIsPassedOverTwoWordsAtATime) {
    // "stray notabrace" goes as a pair, and "inner {" then opens a block. In "odd head {"
    // the pair "odd head" goes, reading resumes inside at "{ neck", and every later pair of
    // that block is no block either, so it vanishes without a word.
    auto s = LoadBlocks(
        "stray notabrace inner {\n"
        "    chest\n"
        "    neck child 0 1 0  0 0 1  0 10 0\n"
        "}\n"
        "odd head {\n"
        "    neck\n"
        "    top child 0 1 0  0 0 1  0 10 0\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->groups.size(), 1u);
    EXPECT_EQ(Text(s->groups[0].Name), L"inner");
    EXPECT_EQ(s->numNodes, 3);
    EXPECT_EQ(Text(s->nodes[2].Name), L"neck");
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructureFile, UnusedChannelStaysEmptyAndRepeatedTargetEntersOnce) {
    auto s = LoadBlocks(
        "split {\n"
        "    decompose\n"
        "    chest\n"
        "    Unused unused ltwist   UNUSED ltwist Unused   uNuSeD Unused other\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->decomps.size(), 1u);
    const ModelStructure::Decomp& d = s->decomps[0];
    EXPECT_TRUE(d.PX.IsEmpty());
    EXPECT_TRUE(d.PY.IsEmpty());
    EXPECT_EQ(Text(d.PZ), L"ltwist");
    EXPECT_TRUE(d.RX.IsEmpty());
    EXPECT_EQ(Text(d.RY), L"ltwist");
    EXPECT_TRUE(d.RZ.IsEmpty());
    EXPECT_TRUE(d.RtoP_X.IsEmpty());
    EXPECT_TRUE(d.RtoP_Y.IsEmpty());
    EXPECT_EQ(Text(d.RtoP_Z), L"other");
    ASSERT_EQ(d.targets.GetCount(), 2);
    EXPECT_EQ(Text(d.targets[0]), L"ltwist");
    EXPECT_EQ(Text(d.targets[1]), L"other");
}

TEST_F(ModelStructureFile, DecomposeWordsBeyondTheNinthFillNoChannelButEnterTargets) {
    auto s = LoadBlocks(
        "split {\n"
        "    decompose\n"
        "    chest\n"
        "    a b c d e f g h i extra Unused\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    const ModelStructure::Decomp& d = s->decomps[0];
    EXPECT_EQ(Text(d.RtoP_Z), L"i");
    ASSERT_EQ(d.targets.GetCount(), 10);
    EXPECT_EQ(Text(d.targets[9]), L"extra");
    EXPECT_EQ(s->numNodes, 2);  // a decompose block makes no node
}

TEST_F(ModelStructureFile, DecomposeBlockMissingItsLastBraceEndsTheFile) {
    auto s = LoadBlocks("split {\n decompose\n chest\n Unused Unused Unused ltwist");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->decomps.size(), 1u);
    EXPECT_EQ(Text(s->decomps[0].RX), L"ltwist");
}

TEST_F(ModelStructureFile, LeftfootPairsWithRightfootRegardlessOfCase) {
    auto s = LoadBlocks(
        "legs {\n"
        "    pelvis\n"
        "    Leftfoot  child  0 -1 0  0 0 1   10 -50 0\n"
        "    rightfoot child  0 -1 0  0 0 1  -20 0 0\n"
        "    LKnee     child  0 -1 0  0 0 1   0 1 0\n"
        "    rknee     child  0 -1 0  0 0 1   0 1 0\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->nodes[2].mirror_node_index, 3);
    EXPECT_EQ(s->nodes[3].mirror_node_index, 2);
    EXPECT_EQ(s->nodes[4].mirror_node_index, 5);
    EXPECT_EQ(s->nodes[5].mirror_node_index, 4);
    EXPECT_EQ(s->nodes[0].mirror_node_index, -1);
    EXPECT_EQ(s->nodes[1].mirror_node_index, -1);
}

TEST_F(ModelStructureFile, NameBeginningWithLeftFindsItsCounterpartByThatRuleOnly) {
    // "Leftfoot" looks for "rightfoot" only. Were it to fall through to the letter rule it
    // would take "reftfoot" from "leftfoot", which "reftfoot" itself paired with before.
    auto s = LoadBlocks(
        "feet {\n"
        "    pelvis\n"
        "    leftfoot  child  0 -1 0  0 0 1   1 0 0\n"
        "    reftfoot  child  0 -1 0  0 0 1   1 0 0\n"
        "    Leftfoot  child  0 -1 0  0 0 1   1 0 0\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->nodes[2].mirror_node_index, 3);
    EXPECT_EQ(s->nodes[3].mirror_node_index, 2);
    EXPECT_EQ(s->nodes[4].mirror_node_index, -1);
}

TEST_F(ModelStructureFile, IkWithoutAnchorPassesTheCountButFillsNoPlane) {
    auto s = LoadBlocks(
        "arm {\n"
        "    chest\n"
        "    upper  child  1 0 0  0 0 1  10 0 0\n"
        "    lower  child  1 0 0  0 0 1  10 0 0\n"
        "    hand   ik     1 0 0  0 0 1  10 0 0\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->numPlanes, 1);
    const ModelStructure::Plane& unset = s->planes[0];
    EXPECT_TRUE(unset.Name.IsEmpty());
    EXPECT_EQ(unset.AnchorIndex, 0);
    EXPECT_EQ(unset.Mid, 0);
    EXPECT_EQ(unset.Span, 0);
    EXPECT_EQ(unset.bones.GetCount(), 0);
    EXPECT_EQ(s->nodes[4].Parent, 3);  // no anchor to take over
    EXPECT_EQ(s->nodes[4].Type, 2);
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructureFile, TwoIkItemsAfterOneAnchorGiveTwoPlanesWithEqualAnchorMidAndName) {
    auto s = LoadBlocks(
        "arm {\n"
        "    chest\n"
        "    lshoulder anchor  1 0 0  0 0 1  10 0 0\n"
        "    lelbow    child   1 0 0  0 0 1  10 0 0\n"
        "    lhand     ik      1 0 0  0 0 1  10 0 0\n"
        "    lthumb    ik      1 0 0  0 0 1   2 0 3\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->numPlanes, 2);
    for (int p = 0; p < 2; ++p) {
        EXPECT_EQ(s->planes[p].AnchorIndex, 2);
        EXPECT_EQ(s->planes[p].Mid, 3);
        EXPECT_EQ(Text(s->planes[p].Name), L"lelbow");
    }
    EXPECT_EQ(s->planes[0].Span, 4);
    EXPECT_EQ(s->planes[1].Span, 5);
    EXPECT_EQ(Bones(s->planes[1]), (std::vector<long>{5, 4, 3, 2}));
    EXPECT_EQ(s->nodes[5].Parent, 2);
    EXPECT_EQ(s->nodes[5].OffsetParent, 4);
    ExpectVector(s->nodes[5].Position, 32, 140, 3);
}

TEST_F(ModelStructureFile, KeywordsSetTypeAndFriction) {
    auto s = LoadBlocks(
        "leg {\n"
        "    pelvis\n"
        "    lthigh  anchor    0 -1 0  0 0 1   10 0 0\n"
        "    lshin   child     0 -1 0  0 0 1   0 -40 0\n"
        "    lfoot   friction  0 0 1   0 1 0   0 -40 0\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    const int expectedType[] = {0, 3, 1, 1, 2};
    const bool expectedFriction[] = {false, false, false, false, true};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(s->nodes[i].Type, expectedType[i]) << i;
        EXPECT_EQ(s->nodes[i].Friction, expectedFriction[i]) << i;
    }
    EXPECT_EQ(s->nodes[4].Parent, 2);
    EXPECT_EQ(Text(s->FindTagItem(ORV::CString(L"lfoot"))->Type), L"friction");
}

TEST_F(ModelStructureFile, LimitsTurnIntoRadiansAndDefaultsLeaveMinimumAboveMaximum) {
    auto s = LoadBlocks(
        "arm {\n"
        "    chest\n"
        "    a  child  1 0 0  0 0 1  1 0 0  limits: -10 1 1   160 -1 -1\n"
        "    b  child  1 0 0  0 0 1  1 0 0\n"
        "}\n");
    ASSERT_NE(s, nullptr);
    ExpectVector(s->nodes[2].Minlimits, -10 * DEG, 1 * DEG, 1 * DEG);
    ExpectVector(s->nodes[2].Maxlimits, 160 * DEG, -1 * DEG, -1 * DEG);
    ExpectVector(s->nodes[3].Minlimits, DEG, DEG, DEG);
    ExpectVector(s->nodes[3].Maxlimits, -DEG, -DEG, -DEG);
    // The items keep degrees, and their defaults.
    const ModelStructure::GroupItem* a = s->FindTagItem(ORV::CString(L"a"));
    const ModelStructure::GroupItem* b = s->FindTagItem(ORV::CString(L"b"));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    ExpectVector(a->Minlimits, -10, 1, 1);
    ExpectVector(b->Minlimits, 1, 1, 1);
    ExpectVector(b->Maxlimits, -1, -1, -1);
}

TEST_F(ModelStructureFile, MissingLastBraceIsAccepted) {
    auto s = LoadBlocks("arm {\n chest\n a child 1 0 0  0 0 1  1 0 0\n b child 1 0 0 0 0 1 1 0 0");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->numNodes, 4);
    EXPECT_EQ(Text(s->nodes[3].Name), L"b");
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructureFile, CommentsMayStandWhereverWhiteSpaceMay) {
    root.Write("Structures/tb.base",
               "# base\ntorso { # the body\n world\n pelvis hip 0 1 0 0 0 1 0 100 0 # root\n}# done");
    root.Write("Structures/s.structure",
               "tb# the base\n# blocks\narm {\n pelvis\n a child 1 0 0 # align\n 0 0 1 1 0 0 limits: # x\n "
               "-5 -5 -5 5 5 5\n}\n");
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(Text(s->Type), L"tb");
    ASSERT_EQ(s->numNodes, 2);
    ExpectVector(s->nodes[1].Minlimits, -5 * DEG, -5 * DEG, -5 * DEG);
}

TEST_F(ModelStructureFile, CaptureStructureIsFoundWhenNoStructureFileHasTheName) {
    root.Write("Structures/tb.base", TORSO_BASE);
    root.Write("Structures/Mocap/cap.structure", "tb\n");
    auto s = Load("cap");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(Text(s->Source), L"cap");
    EXPECT_EQ(s->numNodes, 2);
}

TEST_F(ModelStructureFile, StructureFolderWinsOverCaptureFolder) {
    root.Write("Structures/tb.base", TORSO_BASE);
    root.Write("Structures/s.structure", "tb\n");
    root.Write("Structures/Mocap/s.structure", "tb\narm {\n chest\n extra child 1 0 0 0 0 1 1 0 0\n}\n");
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->numNodes, 2);
}

TEST_F(ModelStructureFile, BaseFileIsNotLookedForInTheCaptureFolder) {
    root.Write("Structures/Mocap/mb.base", TORSO_BASE);
    root.Write("Structures/s.structure", "mb\n");
    EXPECT_EQ(Load("s"), nullptr);
    EXPECT_EQ(Messages(4), One(L"cannot find basefile structure file: mb"));
}

TEST_F(ModelStructureFile, UserCopyOfAStructureWinsOverTheFactoryOne) {
    structtest::ScratchRoot factory;
    structtest::UseLocations(root.dir, factory.dir);
    factory.Write("Structures/tb.base", TORSO_BASE);
    factory.Write("Structures/s.structure", "tb\narm {\n chest\n extra child 1 0 0 0 0 1 1 0 0\n}\n");
    factory.Write("Structures/f.structure", "tb\n");
    root.Write("Structures/s.structure", "tb\n");
    auto mine = Load("s");
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(mine->numNodes, 2);  // the user's copy, on the factory's base file
    auto theirs = Load("f");
    ASSERT_NE(theirs, nullptr);
    EXPECT_EQ(Text(theirs->Source), L"f");
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructureFile, GroupParentNamesMatchExactly) {
    EXPECT_EQ(LoadBlocks("leftarm {\n Chest\n lupper child 1 0 0 0 0 1 1 0 0\n}\n"), nullptr);
    EXPECT_EQ(Messages(4), One(L"group parent node Chest must be defined before the leftarm group"));
}

TEST_F(ModelStructureFile, GroupParentUnknownInTheBaseFileIsRefused) {
    root.Write("Structures/gb.base",
               std::string(TORSO_BASE) + "legs {\n hips\n lthigh child 0 -1 0 0 0 1 9 -5 0\n}\n");
    root.Write("Structures/s.structure", "gb\n");
    EXPECT_EQ(Load("s"), nullptr);
    EXPECT_EQ(Messages(4), One(L"group parent node hips must be defined before the legs group"));
}

TEST_F(ModelStructureFile, IkInTheBaseFileNeedsItsAnchorAndMidJointToo) {
    root.Write("Structures/ib.base",
               std::string(TORSO_BASE) + "legs {\n pelvis\n lfoot friction 0 0 1 0 1 0 0 -1 0\n}\n");
    root.Write("Structures/s.structure", "ib\n");
    EXPECT_EQ(Load("s"), nullptr);
    EXPECT_EQ(Messages(4), One(L"the ik node lfoot is missing an anchor or midjoint"));
}

TEST_F(ModelStructureFile, AWorldGroupAfterTheFirstHasNoParentAndStartsAtItsOffset) {
    auto s = LoadBlocks("prop {\n world\n stick child 0 1 0 0 0 1 5 6 7\n}\n");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->nodes[2].Parent, -1);
    EXPECT_EQ(s->nodes[2].OffsetParent, -1);
    ExpectVector(s->nodes[2].Position, 5, 6, 7);
}

TEST_F(ModelStructureFile, LookupsAnswerTheFirstMatch) {
    root.Write("Structures/tb.base", TORSO_BASE);
    root.Write("Structures/s.structure",
               "tb\n"
               "arm {\n chest\n"
               " lshoulder anchor 1 0 0 0 0 1 1 0 0\n"
               " lelbow child 1 0 0 0 0 1 1 0 0\n"
               " lhand ik 1 0 0 0 0 1 1 0 0\n"
               " pelvis child 7 7 7 0 0 1 1 0 0\n"
               "}\n");
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->findNodeIndex(ORV::CString(L"lelbow")), 3);
    EXPECT_EQ(s->nodeIndex(ORV::CString(L"pelvis")), 0);
    EXPECT_EQ(s->nodeIndex(ORV::CString(L"LELBOW")), -1);  // exact names only
    EXPECT_EQ(s->findNodeIndex(ORV::CString(L"none")), -1);
    EXPECT_EQ(s->FindChild(0), 1);
    EXPECT_EQ(s->FindChild(2), 3);  // lelbow before lhand, whose parent is also node 2
    EXPECT_EQ(s->FindChild(5), -1);
    EXPECT_EQ(s->FindPlaneWithParent(2, 4), 0);
    EXPECT_EQ(s->FindPlaneWithParent(2, 3), -1);
    // FindTagItem searches the base groups first: the base's "pelvis", not the later one.
    ModelStructure::GroupItem* item = s->FindTagItem(ORV::CString(L"pelvis"));
    ASSERT_NE(item, nullptr);
    ExpectVector(item->Align, 0, 1, 0);
    EXPECT_EQ(s->FindTagItem(ORV::CString(L"none")), nullptr);

    ORV::CString world(L"world"), pelvis(L"pelvis"), lhand(L"lhand");
    EXPECT_EQ(ZUK::findParentIndex(s.get(), s->numNodes, world), -1);
    EXPECT_EQ(ZUK::findParentIndex(s.get(), s->numNodes, pelvis), 0);
    EXPECT_EQ(ZUK::findParentIndex(s.get(), 4, lhand), -1);  // only the first four nodes count
    EXPECT_EQ(ZUK::findParentIndex(s.get(), 5, lhand), 4);
}

TEST_F(ModelStructureFile, ConstructorClearsNodesAndStoresType) {
    ModelStructure s(2, 1, ORV::CString(L"fam"));
    EXPECT_EQ(Text(s.Type), L"fam");
    EXPECT_EQ(s.numNodes, 2);
    EXPECT_EQ(s.numPlanes, 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(s.nodes[i].Parent, -1);
        EXPECT_EQ(s.nodes[i].mirror_node_index, -1);
        EXPECT_FALSE(s.nodes[i].Friction);
        EXPECT_FALSE(s.nodes[i].objIsValid);
        ExpectVector(s.nodes[i].Offset, 0, 0, 0);
        ExpectVector(s.nodes[i].Maxlimits, 0, 0, 0);
    }
    EXPECT_EQ(s.planes[0].bones.GetCount(), 0);
}

TEST_F(ModelStructureFile, GetNextTokenTellsWhetherMoreFollows) {
    root.Write("words.txt", "one two");
    ZUK::InputStream stream(ORV::CString((root.Data() / "words.txt").string().c_str()));
    ORV::CString word;
    EXPECT_TRUE(ZUK::GetNextToken(stream, word));
    EXPECT_EQ(Text(word), L"one");
    EXPECT_FALSE(ZUK::GetNextToken(stream, word));
    EXPECT_EQ(Text(word), L"two");
}

TEST_F(ModelStructureFile, ParseBaseReadsGroupsOfABaseFile) {
    root.Write("Structures/tb.base",
               std::string(TORSO_BASE) + "legs {\n pelvis\n lthigh anchor 0 -1 0 0 0 1 9 -5 0\n}\n");
    std::vector<ModelStructure::Group> groups;
    ASSERT_TRUE(ModelStructure::parseBase(ORV::CString(L"tb"), groups));
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(Text(groups[1].Name), L"legs");
    EXPECT_EQ(Text(groups[1].Parent), L"pelvis");
    ASSERT_EQ(groups[1].items.size(), 1u);
    EXPECT_EQ(Text(groups[1].items[0].Type), L"anchor");
    ExpectVector(groups[1].items[0].Offset, 9, -5, 0);
}

// ---- Failures: each gives its exact message at severity 4, and nothing comes back. --------

TEST_F(ModelStructureFile, MissingStructureFileIsReported) {
    EXPECT_EQ(Load("nosuch"), nullptr);
    EXPECT_EQ(Messages(4), One(L"cannot find structure file: nosuch"));
}

TEST_F(ModelStructureFile, EmptyStructureFileIsAnInvalidStream) {
    root.Write("Structures/empty.structure", "");
    EXPECT_EQ(Load("empty"), nullptr);
    EXPECT_EQ(Messages(4), One(L"structure input stream is invalid"));
}

TEST_F(ModelStructureFile, UnreadableStructureFileIsAnInvalidStream) {
    structtest::fs::create_directories(root.Data() / "Structures" / "folder.structure");
    EXPECT_EQ(Load("folder"), nullptr);
    EXPECT_EQ(Messages(4), One(L"structure input stream is invalid"));
}

TEST_F(ModelStructureFile, UnknownKindKeywordStopsTheStructure) {
    EXPECT_EQ(
        LoadBlocks(
            "leftarm {\n chest\n lshoulder anchor 1 0 0 0 0 1 1 0 0\n lelbow elbow 1 0 0 0 0 1 1 0 0\n}\n"),
        nullptr);
    EXPECT_EQ(Messages(4), One(L"error while parsing the structure leftarm group"));
}

TEST_F(ModelStructureFile, IkAsFirstItemOfItsGroupLacksAnchorAndMidJoint) {
    EXPECT_EQ(LoadBlocks("leftarm {\n chest\n lhand ik 1 0 0 0 0 1 1 0 0\n}\n"), nullptr);
    EXPECT_EQ(Messages(4), One(L"the ik node lhand is missing an anchor or midjoint"));
}

TEST_F(ModelStructureFile, FrictionAsSecondItemOfItsGroupLacksAnchorAndMidJoint) {
    EXPECT_EQ(
        LoadBlocks(
            "leg {\n pelvis\n lthigh anchor 0 -1 0 0 0 1 1 0 0\n lfoot friction 0 0 1 0 1 0 0 -1 0\n}\n"),
        nullptr);
    EXPECT_EQ(Messages(4), One(L"the ik node lfoot is missing an anchor or midjoint"));
}

TEST_F(ModelStructureFile, GroupParentDefinedLaterIsRefused) {
    EXPECT_EQ(LoadBlocks("leftarm {\n lclavicle\n lupper child 1 0 0 0 0 1 1 0 0\n}\n"
                         "shoulder {\n chest\n lclavicle child 1 0 0 0 0 1 1 0 0\n}\n"),
              nullptr);
    EXPECT_EQ(Messages(4), One(L"group parent node lclavicle must be defined before the leftarm group"));
}

TEST_F(ModelStructureFile, MissingBaseFileIsReported) {
    root.Write("Structures/s.structure", "nobase\n");
    EXPECT_EQ(Load("s"), nullptr);
    EXPECT_EQ(Messages(4), One(L"cannot find basefile structure file: nobase"));
}

TEST_F(ModelStructureFile, EmptyBaseFileIsAnInvalidStream) {
    root.Write("Structures/eb.base", "");
    root.Write("Structures/s.structure", "eb\n");
    EXPECT_EQ(Load("s"), nullptr);
    EXPECT_EQ(Messages(4), One(L"basefile structure input stream is invalid"));
}

TEST_F(ModelStructureFile, UnknownKindKeywordStopsTheBaseFile) {
    root.Write("Structures/bb.base", "torso {\n world\n pelvis hips 0 1 0 0 0 1 0 100 0\n}\n");
    root.Write("Structures/s.structure", "bb\n");
    EXPECT_EQ(Load("s"), nullptr);
    EXPECT_EQ(Messages(4), One(L"error while parsing the basefile torso group"));
}

TEST_F(ModelStructureFile, DecomposeBlockInABaseFileReadsAsAGroup) {
    root.Write("Structures/db.base",
               std::string(TORSO_BASE) + "twist {\n decompose\n chest\n Unused Unused Unused\n}\n");
    std::vector<ModelStructure::Group> groups;
    EXPECT_FALSE(ModelStructure::parseBase(ORV::CString(L"db"), groups));
    EXPECT_EQ(Messages(4), One(L"error while parsing the basefile twist group"));
}

TEST_F(ModelStructureFile, ParseBaseReportsAMissingFileInItsOwnWords) {
    std::vector<ModelStructure::Group> groups;
    EXPECT_FALSE(ModelStructure::parseBase(ORV::CString(L"absent"), groups));
    EXPECT_EQ(Messages(4), One(L"cannot find basefile structure file: absent"));
}
