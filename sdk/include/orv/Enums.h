// Enumerations and numeric ids of the host. The values the plug-in relies on are fixed here:
// class ids 31, 72, 74, 77, 128; value types come from CValue.h (ovInt4 3, ovDouble 5, ...).
#pragma once

namespace ORV {

// Class ids, as CRef::IsA and CBase::IsA test them. A derived class answers true for its bases
// (a model IsA ov3DObjectID; every chain root, bone and effector IsA ovChainElementID).
enum ovClassID {
    ovUnknownID = 0,
    ovObjectID = 1,  // any scene item
    ovProjectItemID = 2,
    ovSceneItemID = 3,
    ovParameterID = 4,
    ovPropertyID = 5,
    ovCustomPropertyID = 6,
    ovKinematicsID = 7,
    ovKinematicStateID = 8,
    ovConstraintID = 9,
    ovPrimitiveID = 10,
    ovGridDataID = 11,
    ovUserDataBlobID = 12,
    ovExpressionID = 13,
    ovProjectID = 14,
    ovPortGroupID = 15,
    ovPortID = 16,
    ovFCurveKeyID = 17,
    ovMixerID = 18,
    ovNullID = 19,
    ovJointID = 20,
    ovChainRootID = 21,
    ovChainEffectorID = 22,
    ovOperatorID = 25,
    ovScriptedOperatorID = 26,
    ovContextID = 40,
    ovCommandID = 41,
    ovMenuID = 42,
    ovMenuItemID = 43,
    ovPPGLayoutID = 44,
    ovPPGItemID = 45,
    ovViewID = 46,
    ovLayoutID = 47,
    ovProgressBarID = 48,
    ovFCurveID = 31,
    ov3DObjectID = 72,
    ovModelID = 74,
    ovChainElementID = 77,
    ovChainBoneID = 78,
    ovCustomOperatorID = 128,
};

// Object families, as FindChild/FindChildren filter them (strings, as the host names them).
#define ov3DObjectFamily L"3D Objects"
#define ovNullPrimitiveFamily L"Nulls"
#define ovMeshFamily L"Mesh Geometries"
#define ovCurveFamily L"Curves"
#define ovChainElementFamily L"Chain Elements"
#define ovModelFamily L"Models"

// Severity of LogMessage.
enum ovSeverity {
    ovError = 2,
    ovWarning = 4,
    ovInfo = 8,
    ovVerbose = 16,
};

// Installation locations of GetInstallationPath.
enum ovInstallationPath {
    ovUserPath = 1,
    ovSharedPath = 2,
    ovFactoryPath = 3,
    ovDataRootPath = 4,
};

// Parameter capability flags (a bit word).
enum ovCapabilities {
    ovNone = 0,
    ovAnimatable = 1,
    ovPersistable = 4,
    ovNotInspectable = 8,
    ovSilent = 16,
    ovReadOnly = 2,
    ovNotPresetPersistable = 128,
    ovTexturable = 0x100,
    ovKeyable = 0x800,
};

// Sources of Parameter::IsAnimated and ProjectItem::GetAnimatedParameters.
enum ovSourceType {
    ovAnySource = 2,
    ovFCurveSource = 1,
    ovExpressionSource = 3,
    ovConstraintSource = 4,
    ovOperatorSource = 5,
};

// Function curves.
enum ovFCurveType {
    ovStandardFCurve = 20,
};
enum ovFCurveInterpolation {
    ovConstantInterpolation = 1,
    ovLinearInterpolation = 2,
    ovCubicInterpolation = 3,
};
enum ovFCurveKeyConstraint {
    ovParameterConstraint = 1,
    ovHorizontalTangentConstraint = 2,
    ovTangentContinuityConstraint = 4,
    ovAllKeyConstraints = 2047,
};

// Operator ports and construction.
enum ovPortFlags {
    ovDefaultPort = 0,
    ovOptionalInputPort = 1,
};
enum ovConstructionMode {
    ovConstructionModeDefault = 0,
    ovConstructionModeModeling = 1,
    ovConstructionModeAnimation = 4,
};

// Message boxes: flags combine a button set and an icon; results name the pressed button.
enum ovMsgBoxFlags {
    ovMsgOkOnly = 0,
    ovMsgOkCancel = 1,
    ovMsgYesNoCancel = 3,
    ovMsgYesNo = 4,
    ovMsgQuestion = 32,
    ovMsgExclamation = 48,
    ovMsgInformation = 64,
};
enum ovMsgBoxResult {
    ovMsgOk = 1,
    ovMsgCancel = 2,
    ovMsgYes = 6,
    ovMsgNo = 7,
};

// Command flags.
enum ovCommandFlags {
    ovNoLogging = 0x800000,
};

// Menu anchors: the one anchor the plug-in uses sits in the animation menus.
enum ovMenuAnchor {
    ovMenuTbAnimateActionsStoreID = 218,
};

// Property page building.
enum ovPPGControlType {
    ovControlNumber = 0,
    ovControlString = 1,
    ovControlBoolean = 2,
    ovControlCombo = 3,
    ovControlRadio = 4,
    ovControlButton = 5,
    ovControlFilePath = 6,
    ovControlFolder = 7,
    ovControlGrid = 8,
    ovControlStatic = 9,
    ovControlEdit = 10,
    ovControlCheck = 11,
    ovControlListBox = 12,
};
enum ovPPGEventID {
    ovUndefined = 0,
    ovOnInit = 1,
    ovOnClosed = 2,
    ovParameterChange = 3,
    ovButtonClicked = 4,
    ovTabChange = 5,
};
#define ovUINoLabel L"NoLabel"
#define ovUICX L"cx"
#define ovUIHelpFile L"HelpFile"
#define ovUIButtonDisable L"ButtonDisable"
#define ovUIStyle L"Style"
#define ovUIValueOnly L"ValueOnly"
#define ovUIItems L"UIItems"

// Inspection modes of "InspectObj".
enum ovInspectMode {
    ovInspectDefault = 0,
    ovFollow = 1,
    ovLock = 2,
    ovRecycle = 3,
    ovModal = 4,
};

// NURBS data format of AddNurbsCurve.
enum ovNurbsFormat {
    ovSINurbs = 0,
    ovIGESNurbs = 1,
};

}  // namespace ORV
