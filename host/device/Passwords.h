#pragma once

#include <string>
#include <string_view>

#include "host/device/PropertyStore.h"

namespace host {

// The debug password among the settings: DebugPassword as text, or DebugPasswordHex as digits where
// DebugPasswordFormatList says "Hex". No error text repeats any of it.

// The password that the plug-in would submit; both texts are empty when none is set.
struct DebugPassword {
  std::string setting;  // as the setting holds it
  std::string bytes;    // as it goes over the wire, before it is filled up to whole words
};

DebugPassword PasswordInUse(const PropertyStore& settings);

// Throws InputError unless `value` is a password that the setting `name` can hold and the ROM can be sent
// whole.
void RequireSoundPassword(std::string_view name, std::string_view value);

// Throws InputError when a password is set in the one form while DebugPasswordFormatList asks for the other,
// so that it would not be used. For the settings as a whole, once all of them are there.
void RequirePasswordInItsFormat(const PropertyStore& settings);

}  // namespace host
