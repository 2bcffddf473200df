#pragma once

#include "FakeHost.h"
#include "FlashDeviceTovik.h"

// The device without its adapter, with the steps open that other steps are built from.
struct ExposedDevice : FlashDeviceTovik {
  explicit ExposedDevice(FakeHost& host) : FlashDeviceTovik("", "", "", host.Utility()) {}

  using FlashDeviceTovik::AuthenticateDebugging;
  using FlashDeviceTovik::BeforeSaci;
  using FlashDeviceTovik::DebugLog;
  using FlashDeviceTovik::ExitSaci;
  using FlashDeviceTovik::GetEraseType;
  using FlashDeviceTovik::InBootloader;
  using FlashDeviceTovik::InDbgProbeLoop;
  using FlashDeviceTovik::InSaci;
  using FlashDeviceTovik::InterpretRangeField;
  using FlashDeviceTovik::IsAhbApEnabled;
  using FlashDeviceTovik::IssuePinResetAndEnterSaci;
  using FlashDeviceTovik::load;
  using FlashDeviceTovik::NoteUserRecord;
  using FlashDeviceTovik::ProgramStoredRamData;
  using FlashDeviceTovik::ReadDeviceInfo;
};
