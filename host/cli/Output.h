#pragma once

#include <string>
#include <string_view>

#include "host/report/Format.h"

namespace host::cli {

// One line on standard error, led by the program's name.
void Complain(std::string_view text);

// A message of the plug-in as it comes: information on standard output, errors on standard error. Line ends
// within it start an indented line.
void PrintMessage(const LoadMessage& message);

// The machine-readable result on standard output.
void PrintJson(const Json& result);

}  // namespace host::cli
