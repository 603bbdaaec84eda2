#pragma once
// What every subcommand shares: printing refusals and warnings, codes as text.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

#include "KXBase/KXError.h"
#include "KXBase/KXValue.h"

namespace kxaudio {

using Json = nlohmann::ordered_json;

// Exit status of a refused command.
constexpr int kRefused = 1;

// Four-character codes as text; bytes outside printable ASCII appear as "\xNN".
std::string codeText(std::uint32_t code);
Json errorJSON(const KXError& error);
// Text for JSON: the library's strings are UTF-8 already; paths and other bytes from outside may
// not be, and what is not valid becomes U+FFFD.
std::string jsonString(const std::string& bytes);
// JSON as text, indented; never throws, whatever the values hold.
std::string jsonText(const Json& json, int indent = 2);
// A property-list value as JSON: data as a hex string, dates as seconds since 1970.
Json valueJSON(const KXValue& value);
// "kxaudio: <action>: <reason> (code N)" on stderr, or {"error":{…}} on stdout with --json.
int refuse(const KXError& error, bool json);

}  // namespace kxaudio
