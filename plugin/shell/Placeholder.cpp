#include "shell/Placeholder.h"

#include <cstdio>
#include <cstdlib>

namespace ZUK {

namespace {

// The shortest text that reads back as the same double.
ORV::CString doubleText(double value) {
    char buffer[40];
    for (int digits = 15; digits <= 17; ++digits) {
        std::snprintf(buffer, sizeof buffer, "%.*g", digits, value);
        if (std::strtod(buffer, nullptr) == value) {
            break;
        }
    }
    return ORV::CString(buffer);
}

ORV::CString valueText(const ORV::CValue& value) {
    switch (value.GetType()) {
        case ORV::ovEmpty:
            return L"(empty)";
        case ORV::ovRef: {
            ORV::OVObject object(static_cast<ORV::CRef>(value));
            return object.IsValid() ? object.GetFullName() : ORV::CString(L"(no object)");
        }
        case ORV::ovString:
        case ORV::ovLPStr:
            return L"\"" + value.GetAsText() + L"\"";
        case ORV::ovBool:
            return static_cast<bool>(value) ? L"true" : L"false";
        case ORV::ovDouble:
        case ORV::ovFloat:
            return doubleText(static_cast<double>(value));
        default:
            return value.GetAsText();
    }
}

}  // namespace

void logPlaceholderCall(const wchar_t* function, std::initializer_list<ORV::CValue> values) {
    ORV::CString text(function);
    text += L" was called with (";
    bool first = true;
    for (const ORV::CValue& value : values) {
        if (!first) {
            text += L", ";
        }
        text += valueText(value);
        first = false;
    }
    text += L")";
    ORV::Application().LogMessage(text, 8);
}

}  // namespace ZUK
