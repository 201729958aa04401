// UTF-8 text of the host's wide strings, for the files the host reads and writes (scene files,
// character files). Code points a wide string cannot stand for become U+FFFD.
#pragma once

#include <string>

namespace orvhost {

std::string Utf8(const std::wstring& w);
std::wstring Wide(const std::string& s);

}  // namespace orvhost
