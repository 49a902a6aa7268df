// JSON output of the commands that print a model or a marker set.
#pragma once

#include <string>

namespace tundrel::cli {

// A JSON string literal of `s` (quotes, backslashes and control characters escaped).
std::string jsonString(const std::string& s);
// The shortest text that reads back as the same double; null for NaN and infinities.
std::string jsonNumber(double v);
inline const char* jsonBool(bool b) { return b ? "true" : "false"; }

}  // namespace tundrel::cli
