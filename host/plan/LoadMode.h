#pragma once

#include "host/device/PropertyStore.h"

namespace host {

enum class LoadMode { Program, Verify };

// A setting, not the verb, makes the plug-in compare and change nothing.
inline LoadMode ModeOf(const PropertyStore& settings) {
  return settings.Get("ImageVerificationSetting") == "1" ? LoadMode::Verify : LoadMode::Program;
}

}  // namespace host
