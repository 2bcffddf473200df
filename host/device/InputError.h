#pragma once

#include <stdexcept>

namespace host {

// What the user gave cannot be used: a file, a setting, an argument. The text is one complete line that says
// what is wrong and where. Thrown before anything has happened to a chip.
struct InputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace host
