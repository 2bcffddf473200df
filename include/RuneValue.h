#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "ContractAssertion.h"

// Values of the host's script language: how they cross the boundary (C_RuneValue) and how the plug-in keeps
// them (RuneValue).

// The host's record. Does not own the text it points to.
struct C_RuneValue {
  static constexpr std::uint32_t kInteger = 0;  // the host's codes; others are carried unchanged
  static constexpr std::uint32_t kText = 2;

  C_RuneValue(long long number) : integer(number), type(kInteger) {}

  union {
    long long integer;  // for every type but kText
    const char* text;   // for kText: NUL-terminated, or null
  };
  std::uint32_t type;
};
static_assert(sizeof(C_RuneValue) == 16 && alignof(C_RuneValue) == 8);
static_assert(offsetof(C_RuneValue, integer) == 0 && offsetof(C_RuneValue, text) == 0);
static_assert(offsetof(C_RuneValue, type) == 8);
static_assert(std::is_trivially_copyable_v<C_RuneValue>);

// A script value that owns its text, so that it outlives the host's buffer.
class RuneValue {
 public:
  RuneValue(long long number) : value(number) {}

  // Copies the text of a text value; a null text stays null.
  RuneValue(const C_RuneValue& other) : value(other) {
    if (other.type != C_RuneValue::kText || other.text == nullptr) return;
    text = other.text;
    value.text = text.c_str();
  }

  RuneValue(const RuneValue& other) : value(0) { *this = other; }

  // A text value always points at its own copy afterwards: a null text becomes an empty one.
  RuneValue& operator=(const RuneValue& other) {
    text = other.text;
    value = other.value;
    if (value.type == C_RuneValue::kText) value.text = text.c_str();
    return *this;
  }

  ~RuneValue() = default;

  [[nodiscard]] bool IsInteger() const { return value.type == C_RuneValue::kInteger; }

  // Stops the process unless IsInteger().
  [[nodiscard]] long long ToLongLong() const {
    AssertContract(IsInteger(), "IsInteger()", "include/RuneValue");
    return value.integer;
  }

  // A text in the record lives as long as this object keeps its value.
  operator const C_RuneValue&() const { return value; }

 private:
  std::string text;
  C_RuneValue value;
};

// Parameter checks of script functions. Both throw std::runtime_error.

inline void ConfirmMinNumberParameters(const std::vector<RuneValue>& params, unsigned long count) {
  if (params.size() >= count) return;
  throw std::runtime_error("Expected at least " + std::to_string(count) + " parameters, but got " +
                           std::to_string(params.size()));
}

// `index` counts from 0 and must exist; the message counts from 1.
inline void ConfirmParameterIsIntegral(const std::vector<RuneValue>& params, unsigned long index) {
  if (params[index].IsInteger()) return;
  throw std::runtime_error("Expected an integral value for parameter " + std::to_string(index + 1));
}
