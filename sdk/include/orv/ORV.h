// Everything of the host's SDK.
#pragma once

#include <orv/Application.h>
#include <orv/Arrays.h>
#include <orv/CBase.h>
#include <orv/CRef.h>
#include <orv/CStatus.h>
#include <orv/CString.h>
#include <orv/CTime.h>
#include <orv/CValue.h>
#include <orv/Enums.h>
#include <orv/Math.h>
#include <orv/Operator.h>
#include <orv/Plugin.h>
#include <orv/Scene.h>
#include <orv/UI.h>
