#include <array>
#include <cstdarg>
#include <cstdio>

#include "FlashDeviceTovik.h"

namespace {

template <typename T>
struct PropertyGetter;

template <>
struct PropertyGetter<bool> {
  static bool Get(IFlashProgrammerUtility2 utility, const std::string& name) {
    return utility.GetValueOfProperty(name) == "1";
  }
};

template <>
struct PropertyGetter<unsigned int> {
  static unsigned int Get(IFlashProgrammerUtility2 utility, const std::string& name) {
    return static_cast<unsigned int>(std::stoul(utility.GetValueOfProperty(name), nullptr, 16));
  }
};

template <>
struct PropertyGetter<std::string> {
  static std::string Get(IFlashProgrammerUtility2 utility, const std::string& name) {
    return utility.GetValueOfProperty(name);
  }
};

}  // namespace

template <typename T>
T FlashDeviceTovik::GetProperty(const std::string& name) const {
  return PropertyGetter<T>::Get(utility, name);
}

template <typename T>
T FlashDeviceTovik::GetProperty(const std::string& name, T defaultValue) const {
  if (!utility.DoesPropertyExist(name)) return defaultValue;
  return GetProperty<T>(name);
}

template bool FlashDeviceTovik::GetProperty(const std::string&) const;
template bool FlashDeviceTovik::GetProperty(const std::string&, bool) const;
template unsigned int FlashDeviceTovik::GetProperty(const std::string&) const;
template unsigned int FlashDeviceTovik::GetProperty(const std::string&, unsigned int) const;
template std::string FlashDeviceTovik::GetProperty(const std::string&) const;

bool FlashDeviceTovik::IsVerboseEnabled() {
  if (load.verboseMode == LoadState::kVerboseModeUnread)
    load.verboseMode = GetProperty<bool>("FlashVerboseMode", false) ? 1 : 0;
  return load.verboseMode != 0;
}

bool FlashDeviceTovik::IsImageVerificationEnabled() const {
  return GetProperty<bool>("ImageVerificationSetting");
}

void FlashDeviceTovik::DebugLog(const char* format, ...) {
  std::array<char, 512> text{};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  utility.ReportInfo(text.data());
}
