#pragma once

#include "host/device/PropertyStore.h"

namespace host {

enum class LoadMode { Program, Verify };

// A setting, not the verb, makes the plug-in compare and change nothing.
inline LoadMode ModeOf(const PropertyStore& settings) {
  return settings.IsOn("ImageVerificationSetting") ? LoadMode::Verify : LoadMode::Program;
}

}  // namespace host
