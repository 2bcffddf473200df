#pragma once

#include <exception>
#include <string>

// The text of the exception that `call` throws, or "ok".
template <typename Call>
std::string ErrorOf(Call&& call) {
  try {
    call();
    return "ok";
  } catch (const std::exception& error) {
    return error.what();
  }
}
