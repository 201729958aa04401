// A plug-in of custom operators for the host's evaluation tests. Each operator keeps a heap
// counter as its user data from _Init to _Term, and logs (at severity 16) every _Update with
// the count, so that tests see how often and in which order operators run:
//   FollowOp  writes its output global pose as the pose of input 0 (a kinematic state);
//   ShiftOp   writes input 0's pose moved up by input 1 (a parameter; 1 without it);
//   SelfOp    reads its own output and writes it moved by 1 along Z;
//   IdleOp    writes nothing;
//   NowOp     as FollowOp, reading input 0 at "now";
//   BlobOp    on its first update reads three doubles from input 0 (a blob) and keeps them;
//             then writes the translation blob * input 1 (a grid parameter's cell 0, 0) plus
//             0.5 * time along Y, and the rotation of input 2 (a kinematic state), if any.
// It registers nothing else (no command, no scene event), so that loading it beside the
// host's test plug-in changes nothing that plug-in's tests count.
#include <orv/ORV.h>

#include <cstring>

#define OP_EXPORT extern "C" __attribute__((visibility("default")))

using namespace ORV;
using namespace ORV::MATH;

namespace {

Application app;

struct State {
    long updates = 0;
    bool loaded = false;
    double blob[3] = {0, 0, 0};
};

State* StateOf(OperatorContext& ctx) { return static_cast<State*>(static_cast<void*>(ctx.GetUserData())); }

CStatus Init(CRef& ref, const wchar_t* name) {
    Context ctx(ref);
    ctx.PutUserData(CValue(static_cast<void*>(new State)));
    app.LogMessage(CString(name) + L"_Init", ovInfo);
    return CStatus::OK;
}

CStatus Term(CRef& ref, const wchar_t* name) {
    Context ctx(ref);
    State* s = static_cast<State*>(static_cast<void*>(ctx.GetUserData()));
    app.LogMessage(CString(name) + L"_Term " + CValue(s ? s->updates : -1L).GetAsText(), ovInfo);
    delete s;
    ctx.PutUserData(CValue(static_cast<void*>(nullptr)));
    return CStatus::OK;
}

// Counts the update and logs it; null when the operator has no state (its _Init never ran).
State* Count(OperatorContext& ctx, const wchar_t* name) {
    State* s = StateOf(ctx);
    if (!s) return nullptr;
    ++s->updates;
    app.LogMessage(CString(name) + L"_Update " + CValue(s->updates).GetAsText() + L" at " +
                       CValue(static_cast<double>(ctx.GetTime())).GetAsText(),
                   ovVerbose);
    return s;
}

KinematicState Output(OperatorContext& ctx) { return KinematicState(ctx.GetOutputTarget()); }

}  // namespace

OP_EXPORT CStatus ORVLoadPlugin(PluginRegistrar& reg) {
    reg.PutAuthor(L"Trovo tests");
    reg.PutName(L"Operator Test Plug-in");
    reg.PutVersion(1, 0);
    reg.RegisterOperator(L"FollowOp");
    reg.RegisterOperator(L"ShiftOp");
    reg.RegisterOperator(L"SelfOp");
    reg.RegisterOperator(L"IdleOp");
    reg.RegisterOperator(L"BlobOp");
    reg.RegisterOperator(L"NowOp");
    return CStatus::OK;
}

// --- FollowOp

OP_EXPORT CStatus FollowOp_Init(CRef& ref) { return Init(ref, L"FollowOp"); }
OP_EXPORT CStatus FollowOp_Term(CRef& ref) { return Term(ref, L"FollowOp"); }
OP_EXPORT CStatus FollowOp_Update(CRef& ref) {
    OperatorContext ctx(ref);
    if (!Count(ctx, L"FollowOp")) return CStatus::OK;
    KinematicState in(static_cast<CRef>(ctx.GetInputValue(0)));
    const double t = ctx.GetTime();
    Output(ctx).PutTransform(in.GetTransform(t), t);
    return CStatus::OK;
}

// --- NowOp: as FollowOp, but reads its input at "now"

OP_EXPORT CStatus NowOp_Init(CRef& ref) { return Init(ref, L"NowOp"); }
OP_EXPORT CStatus NowOp_Term(CRef& ref) { return Term(ref, L"NowOp"); }
OP_EXPORT CStatus NowOp_Update(CRef& ref) {
    OperatorContext ctx(ref);
    if (!Count(ctx, L"NowOp")) return CStatus::OK;
    KinematicState in(static_cast<CRef>(ctx.GetInputValue(0)));
    Output(ctx).PutTransform(in.GetTransform(ovNow), ctx.GetTime());
    return CStatus::OK;
}

// --- ShiftOp

OP_EXPORT CStatus ShiftOp_Init(CRef& ref) { return Init(ref, L"ShiftOp"); }
OP_EXPORT CStatus ShiftOp_Term(CRef& ref) { return Term(ref, L"ShiftOp"); }
OP_EXPORT CStatus ShiftOp_Update(CRef& ref) {
    OperatorContext ctx(ref);
    if (!Count(ctx, L"ShiftOp")) return CStatus::OK;
    KinematicState in(static_cast<CRef>(ctx.GetInputValue(0)));
    const CValue shift = ctx.GetInputValue(1);
    const double t = ctx.GetTime();
    CTransformation pose = in.GetTransform(t);
    pose.SetPosY(pose.GetPosY() + (shift.IsEmpty() ? 1.0 : static_cast<double>(shift)));
    Output(ctx).PutTransform(pose, t);
    return CStatus::OK;
}

// --- SelfOp

OP_EXPORT CStatus SelfOp_Init(CRef& ref) { return Init(ref, L"SelfOp"); }
OP_EXPORT CStatus SelfOp_Term(CRef& ref) { return Term(ref, L"SelfOp"); }
OP_EXPORT CStatus SelfOp_Update(CRef& ref) {
    OperatorContext ctx(ref);
    if (!Count(ctx, L"SelfOp")) return CStatus::OK;
    const double t = ctx.GetTime();
    CTransformation pose = Output(ctx).GetTransform(t);
    pose.SetPosZ(pose.GetPosZ() + 1.0);
    Output(ctx).PutTransform(pose, t);
    return CStatus::OK;
}

// --- IdleOp

OP_EXPORT CStatus IdleOp_Init(CRef& ref) { return Init(ref, L"IdleOp"); }
OP_EXPORT CStatus IdleOp_Term(CRef& ref) { return Term(ref, L"IdleOp"); }
OP_EXPORT CStatus IdleOp_Update(CRef& ref) {
    OperatorContext ctx(ref);
    Count(ctx, L"IdleOp");
    return CStatus::OK;
}

// --- BlobOp

OP_EXPORT CStatus BlobOp_Init(CRef& ref) { return Init(ref, L"BlobOp"); }
OP_EXPORT CStatus BlobOp_Term(CRef& ref) { return Term(ref, L"BlobOp"); }
OP_EXPORT CStatus BlobOp_Update(CRef& ref) {
    OperatorContext ctx(ref);
    State* s = Count(ctx, L"BlobOp");
    if (!s) return CStatus::OK;
    if (!s->loaded) {
        UserDataBlob blob(static_cast<CRef>(ctx.GetInputValue(0)));
        const unsigned char* bytes = nullptr;
        unsigned int size = 0;
        if (blob.GetValue(bytes, size) != CStatus::OK || size < sizeof s->blob) return CStatus::OK;
        std::memcpy(s->blob, bytes, sizeof s->blob);
        s->loaded = true;
        app.LogMessage(L"BlobOp loaded its blob", ovInfo);
    }
    GridData grid(Parameter(static_cast<CRef>(ctx.GetInputValue(1))).GetValue());
    const double k = grid.IsValid() ? static_cast<double>(grid.GetCell(0, 0)) : 1.0;
    const double t = ctx.GetTime();
    CTransformation pose;
    KinematicState turn(static_cast<CRef>(ctx.GetInputValue(2)));
    if (turn.IsValid()) pose.SetRotation(turn.GetTransform(t).GetRotation());
    pose.SetTranslationFromValues(s->blob[0] * k, s->blob[1] * k + 0.5 * t, s->blob[2] * k);
    Output(ctx).PutTransform(pose, t);
    return CStatus::OK;
}
