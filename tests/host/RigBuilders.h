// Rigs that tests build in the headless host through the SDK alone, so that tests of every
// area can use them (include "host/RigBuilders.h").
//
// The IK biped stands on the XZ plane facing +Z with Y up, in one model:
//   Hips (a null at height 10), under it a spine of nulls Spine1..Spine3, Chest, Neck, Head;
//   two legs, each a two-bone IK chain from the hip (under Hips) to the ankle, its effector
//   held by a position constraint on a goal null (LeftLegGoal, RightLegGoal) that stands
//   under the model, and an up-vector null (LeftLegUp, RightLegUp) in front of the knee;
//   two arms, each a two-bone IK chain from the shoulder (under Chest) to the wrist, the
//   effector on a goal null (LeftArmGoal, RightArmGoal) under the model, and an up-vector
//   null (LeftArmUp, RightArmUp) behind the elbow.
// A chain named N has the root N, the bones NBone and NLower and the effector NEff.
// Left is +X. Moving a goal moves the end of its limb; moving Hips leaves the feet planted.
#pragma once

#include <orv/ORV.h>

#include <string>

namespace rigs {

struct Limb {
    ORV::ChainRoot root;
    ORV::ChainBone upper, lower;
    ORV::ChainEffector effector;
    ORV::Null goal, upVector;
    // Rest positions: start of the upper bone, the middle joint, the end.
    ORV::MATH::CVector3 start, mid, end;
};

struct IKBiped {
    ORV::Model model;
    ORV::Null hips, spine1, spine2, spine3, chest, neck, head;
    Limb leftLeg, rightLeg, leftArm, rightArm;
};

inline ORV::Null AddNullAt(ORV::X3DObject parent, const wchar_t* name, const ORV::MATH::CVector3& at) {
    ORV::Null n;
    parent.AddNull(name, n);
    ORV::MATH::CTransformation t;
    t.SetTranslation(at);
    n.GetKinematics().GetGlobal().PutTransform(t);
    return n;
}

// A two-bone chain under `parent` from start through mid to end, bending in the plane of
// `normal`; its effector is constrained to a goal null at `end` under `goalParent`, and its
// first joint takes an up-vector null at `up` under `goalParent`.
inline Limb AddTwoBoneLimb(ORV::X3DObject parent, ORV::X3DObject goalParent, const std::wstring& name,
                           const ORV::MATH::CVector3& start, const ORV::MATH::CVector3& mid,
                           const ORV::MATH::CVector3& end, const ORV::MATH::CVector3& normal,
                           const ORV::MATH::CVector3& up) {
    Limb limb;
    limb.start = start;
    limb.mid = mid;
    limb.end = end;
    parent.Add2DChain(start, mid, normal, name.c_str(), limb.root);
    limb.upper = ORV::ChainBone(limb.root.GetBones()[0]);
    limb.root.AddBone(end, (name + L"Lower").c_str(), limb.lower);
    limb.effector = limb.root.GetEffector();
    limb.goal = AddNullAt(goalParent, (name + L"Goal").c_str(), end);
    limb.upVector = AddNullAt(goalParent, (name + L"Up").c_str(), up);
    ORV::Constraint c;
    limb.effector.GetKinematics().AddConstraint(L"Position", limb.goal, c);
    limb.upper.GetJoint().PutUpVectorReference(limb.upVector);
    return limb;
}

inline IKBiped BuildIKBiped(ORV::X3DObject parent, const wchar_t* name = L"Biped") {
    using ORV::MATH::CVector3;
    IKBiped b;
    parent.AddModel(ORV::CRefArray(), name, b.model);
    b.hips = AddNullAt(b.model, L"Hips", CVector3(0, 10, 0));
    b.spine1 = AddNullAt(b.hips, L"Spine1", CVector3(0, 11, 0));
    b.spine2 = AddNullAt(b.spine1, L"Spine2", CVector3(0, 12, 0));
    b.spine3 = AddNullAt(b.spine2, L"Spine3", CVector3(0, 13, 0));
    b.chest = AddNullAt(b.spine3, L"Chest", CVector3(0, 14, 0));
    b.neck = AddNullAt(b.chest, L"Neck", CVector3(0, 15.5, 0));
    b.head = AddNullAt(b.neck, L"Head", CVector3(0, 16.5, 0));
    // Knees bend forward (+Z), elbows backward (-Z).
    b.leftLeg = AddTwoBoneLimb(b.hips, b.model, L"LeftLeg", CVector3(1, 10, 0), CVector3(1, 5.5, 0.3),
                               CVector3(1, 1, 0), CVector3(1, 0, 0), CVector3(1, 5.5, 4));
    b.rightLeg = AddTwoBoneLimb(b.hips, b.model, L"RightLeg", CVector3(-1, 10, 0), CVector3(-1, 5.5, 0.3),
                                CVector3(-1, 1, 0), CVector3(1, 0, 0), CVector3(-1, 5.5, 4));
    b.leftArm = AddTwoBoneLimb(b.chest, b.model, L"LeftArm", CVector3(2, 14.5, 0), CVector3(4.5, 14.5, -0.3),
                               CVector3(7, 14.5, 0), CVector3(0, 1, 0), CVector3(4.5, 14.5, -4));
    b.rightArm =
        AddTwoBoneLimb(b.chest, b.model, L"RightArm", CVector3(-2, 14.5, 0), CVector3(-4.5, 14.5, -0.3),
                       CVector3(-7, 14.5, 0), CVector3(0, 1, 0), CVector3(-4.5, 14.5, -4));
    return b;
}

}  // namespace rigs
