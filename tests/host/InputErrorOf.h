#pragma once

#include <string>

#include "host/device/InputError.h"

// The text of the InputError with which `call` failed, or "no error".
template <typename Call>
std::string InputErrorOf(Call&& call) {
  try {
    call();
  } catch (const host::InputError& error) {
    return error.what();
  }
  return "no error";
}
