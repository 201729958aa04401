// Installation of the live retarget on a rig: the adjustment property, the motion blob, and the
// five kinds of operator wired to the rig's objects by the glue.
#include <initializer_list>

#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "glue/SpineMap.h"
#include "live/Motion.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "panels/AdjustPPG.h"
#include "panels/RotationOffsetPPG.h"

namespace ZUK {

namespace {
ORV::Application app;

// The operators' index inputs live on the adjustment property, hidden from its page.
ORV::Parameter addIndex(ORV::CustomProperty& property, const ORV::CString& name, int index) {
    ORV::Parameter parameter;
    property.AddParameter(name, ORV::ovInt4, ORV::ovNotInspectable, L"", L"", ORV::CValue(index), parameter);
    if (!parameter.IsValid()) parameter = property.GetParameter(name);
    return parameter;
}

// A new operator of `type` writing `output`, reading `inputs` in order.
void connect(const wchar_t* type, const ORV::KinematicState& output,
             std::initializer_list<ORV::CRef> inputs) {
    ORV::CustomOperator op(app.GetFactory().CreateObject(type));
    if (!op.IsValid()) {
        app.LogMessage(ORV::CString(L"The operator ") + type + L" could not be created.", 4);
        return;
    }
    op.AddOutputPort(output.GetRef(), L"");
    for (const ORV::CRef& input : inputs) op.AddInputPort(input, L"");
    op.PutAlwaysEvaluate(true);
    op.Connect();
}

ORV::KinematicState globalOf(const ORV::X3DObject& object) { return object.GetKinematics().GetGlobal(); }
ORV::KinematicState localOf(const ORV::X3DObject& object) { return object.GetKinematics().GetLocal(); }
ORV::KinematicState parentGlobalOf(const ORV::X3DObject& object) {
    return ORV::X3DObject(object.GetParent()).GetKinematics().GetGlobal();
}
}  // namespace

void RetargetOp::ApplyRetargetOp(GlueMap& glue, Motion& motion, int insertionFrame) {
    ModelMap& map = *motion.targetMap;
    ORV::Model model(map.GetRef());
    const ModelStructure& s = *map.structure;

    // 1. Any earlier installation goes.
    cleanupRetargetOp(model);

    // 2. The adjustment property, with the parameters of this rig.
    ORV::CustomProperty adjust(
        model.AddProperty(AdjustPPG::PROPERTY_NAME, false, AdjustPPG::PROPERTY_NAME).GetRef());
    AdjustPPG::addModelSpecificParameters(adjust, &map, model);

    // 3. The motion.
    ORV::UserDataBlob blob(model.AddProperty(L"UserDataBlob", false, DATA_NAME).GetRef());
    if (!blob.IsValid() || !stuffMotionDataIntoBlob(blob, motion, insertionFrame)) {
        // Nothing to play: leave no half installation behind.
        cleanupRetargetOp(model);
        return;
    }

    // 4. The main operator, which computes the pose and writes nothing.
    const ORV::KinematicState modelLocal = localOf(model);
    connect(L"RetargetOp", modelLocal,
            {modelLocal.GetRef(), blob.GetRef(), adjust.GetParameter(L"Ping").GetRef()});

    // 5. One small operator per driven thing.
    for (size_t ci = 0; ci < glue.mocaps.size(); ++ci) {
        const MocapConstraint& c = glue.mocaps[ci];
        const int n = c.nodeIndex;
        if (n < 0 || n >= s.numNodes || map.nodes[static_cast<size_t>(n)].translationSource < 0) continue;

        // Up vector of the limb whose span is this object's own node; the first match counts.
        for (size_t pi = 0; pi < glue.planes.size(); ++pi) {
            const PlaneConstraint& pc = glue.planes[pi];
            if (pc.planeIndex < 0 || pc.planeIndex >= s.numPlanes ||
                s.planes[pc.planeIndex].Span != c.ownNodeIndex)
                continue;
            const ORV::Parameter index = addIndex(adjust, pc.object.GetName(), static_cast<int>(pi));
            connect(L"RetargetUpVOp", globalOf(pc.object),
                    {modelLocal.GetRef(), index.GetRef(), blob.GetRef()});
            break;
        }

        // Rotation and position: split over the decomposition objects, or whole onto the object.
        // A structure read back from the model counts its unused channels as an empty target,
        // which the tag scan then pairs with the first object that has no override; such an
        // entry names no decomposition object and takes nothing from the node.
        const NodeMap& node = map.nodes[static_cast<size_t>(n)];
        bool decomposed = false;
        const ORV::CString owner = node.object.GetName();
        for (size_t di = 0; di < node.decomps.size(); ++di) {
            const DecompMap& d = node.decomps[di];
            if (d.tagName.IsEmpty() || !d.object.IsValid()) continue;
            decomposed = true;
            const ORV::Parameter source = addIndex(adjust, owner + L"src_" + d.tagName, n);
            const ORV::Parameter decomp =
                addIndex(adjust, owner + L"decomp_" + d.tagName, static_cast<int>(di));
            connect(L"RetargetDecompOp", localOf(d.object),
                    {parentGlobalOf(d.object).GetRef(), source.GetRef(), decomp.GetRef(), blob.GetRef()});
        }
        if (!decomposed) {
            const ORV::Parameter index = addIndex(adjust, c.object.GetName(), static_cast<int>(ci));
            connect(L"RetargetGlobalOp", globalOf(c.object),
                    {modelLocal.GetRef(), index.GetRef(), blob.GetRef()});
        }

        // Spines hanging from this object: every joint that the animator does not key.
        for (size_t si = 0; si < glue.spines.size(); ++si) {
            const SpineConstraint& spine = glue.spines[si];
            if (!(spine.anchor == c.object)) continue;
            for (int k = 0; k < spine.numNodes; ++k) {
                if (spine.spineMap && spine.spineMap->animated && spine.spineMap->animated[k]) continue;
                const ORV::X3DObject& joint = spine.segments[k].object;
                const ORV::Parameter spineIndex =
                    addIndex(adjust, joint.GetName() + L"_spine", static_cast<int>(si));
                const ORV::Parameter jointIndex = addIndex(adjust, joint.GetName(), k);
                connect(L"RetargetSpineOp", localOf(joint),
                        {parentGlobalOf(joint).GetRef(), spineIndex.GetRef(), jointIndex.GetRef(),
                         blob.GetRef()});
            }
        }
    }

    // 6. Panels that show the old installation.
    AdjustPPG(model, true);
    RotationOffsetPPG::closePanels();
}

}  // namespace ZUK
