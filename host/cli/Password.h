#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/cli/Options.h"
#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"

namespace host::cli {

// Sets the device's password settings to the password that the options give, if they give one. Throws
// InputError, never repeating the password: no such file, no terminal to ask at, a device without passwords.
void ApplyPassword(const PasswordOptions& options, const DeviceDescription& device, PropertyStore& settings);

// The same with the password that the user types, where it is to be asked for: for work that takes it more
// than once. Throws InputError.
PasswordOptions AskedNow(PasswordOptions options);

// Asks on the terminal, without showing what is typed. Throws InputError when there is none.
std::string AskPassword();
[[nodiscard]] bool CanAskPassword();

// `text`, an error about these arguments, with the passwords that they hold hidden.
std::string WithoutPasswords(std::string text, const std::vector<std::string>& arguments);

}  // namespace host::cli
