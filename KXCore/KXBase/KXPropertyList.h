#pragma once
// Property lists: a KXValue to and from the XML and the binary property-list forms.
//
// Property lists have one integer kind; unsigned 64-bit values above 2^63 − 1 therefore come
// back as negative integers. Dates keep microseconds in the binary form and whole seconds in
// the XML form.

#include <cstdint>
#include <functional>
#include <optional>

#include "KXBase/KXData.h"
#include "KXBase/KXError.h"
#include "KXBase/KXValue.h"

namespace KXPropertyList {

KXData xmlData(const KXValue& value);
KXData binaryData(const KXValue& value);
// The binary form handed out in pieces, its large data objects straight from the value, for a
// caller that writes it to a file: `begin` gets the whole length first. False as soon as
// `begin` or `write` answers false.
using Sink = std::function<bool(const std::uint8_t* bytes, std::size_t count)>;
bool writeBinary(const KXValue& value, const std::function<bool(std::uint64_t length)>& begin, const Sink& write);
// Reads either form; nullopt (and, when asked, an error with `action`) for anything else.
std::optional<KXValue> propertyListFromData(const KXData& data, KXError* error = nullptr,
                                            const std::string& action = "Reading a property list");

}  // namespace KXPropertyList
