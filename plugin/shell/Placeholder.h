// What a placeholder does besides saying that its logic is not built yet: it shows the values
// it was handed, so that a script (and a test) sees which function a command or a panel
// reached, with which values.
#pragma once

#include <orv/ORV.h>

#include <initializer_list>

namespace ZUK {

// Logs at severity 8 "<function> was called with (<values>)": an object as its full name, a
// string in double quotes, a bool as true or false, numbers as they are.
void logPlaceholderCall(const wchar_t* function, std::initializer_list<ORV::CValue> values);

}  // namespace ZUK
