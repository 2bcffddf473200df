#include "Workbench.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

host::DeviceDescription Describe(const std::string& name) {
  return host::ReadDeviceDescription(host::FindDeviceFile(name, TOVIK_DEVICES_DIR));
}

host::PropertyStore DefaultsOf(const host::DeviceDescription& device) {
  host::PropertyStore settings;
  for (const host::FlashProperty& property : device.properties) settings.Set(property.name, property.value);
  return settings;
}

std::vector<std::string> MessagesOf(const host::LoadRecord& record, bool isError) {
  std::vector<std::string> texts;
  for (const host::LoadMessage& message : record.messages)
    if (message.isError == isError) texts.push_back(message.text);
  return texts;
}

}  // namespace

const host::PluginLibrary& Plugin() {
  const static host::PluginLibrary library(TOVIK_PLUGIN_PATH);
  return library;
}

std::vector<std::string> DeviceNames(std::string_view setting) {
  std::vector<std::string> names;
  for (const auto& file : host::ListDeviceFiles(TOVIK_DEVICES_DIR)) names.push_back(file.stem().string());
  if (!setting.empty())
    std::erase_if(names, [&](const std::string& name) { return Describe(name).Find(setting) == nullptr; });
  return names;
}

std::string TestName(std::string device) {
  std::replace(device.begin(), device.end(), '-', '_');
  return device;
}

Workbench::Workbench(const std::string& deviceName, host::ReadAhead readAhead)
    : device(Describe(deviceName)),
      settings(DefaultsOf(device)),
      probe(device, {}, "hs", readAhead),
      services(probe, settings, device.map) {}

void Workbench::Set(std::string_view name, std::string_view value) {
  ASSERT_NE(device.Find(name), nullptr) << device.name << " has no setting " << name;
  settings.Set(name, value);
}

bool Workbench::SetErase(const Erase& erase) {
  if (device.Find("FlashEraseSetting") != nullptr) {
    Set("FlashEraseSetting", erase.name);
    return true;
  }
  const bool canKeepConfiguration = device.Find("RetainCcfgScfg") != nullptr;
  if (erase.keepsConfiguration && !canKeepConfiguration) return false;
  Set("NoFlashErase", erase.erases ? "0" : "1");
  Set("RetainMainSectors", erase.keepsMain ? "1" : "0");
  if (canKeepConfiguration) Set("RetainCcfgScfg", erase.keepsConfiguration ? "1" : "0");
  return true;
}

void Workbench::ProvideHsmImage(const Bytes& image) {
  const static int s_file = memfd_create("hsm-image", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(s_file, 0), 0);
  ASSERT_EQ(pwrite(s_file, image.data(), image.size(), 0), static_cast<ssize_t>(image.size()));
  Set("HsmImagePath", "/proc/self/fd/" + std::to_string(s_file));
}

void Workbench::Prepare(const std::function<void(simulator::ChipState&)>& change) {
  simulator::ChipState state = State();
  change(state);
  Chip().Restore(std::move(state));
}

host::LoadPlan Workbench::Plan(const Segments& image) const {
  const std::vector<host::ImageFile> images{{"image", host::ImageFormat::Raw, image}};
  return host::PlanLoad(images, device.map, host::PluginCutsUnder(settings));
}

host::LoadRecord Workbench::Load(const Segments& image) {
  const host::LoadPlan plan = Plan(image);
  host::LoadRecord record = host::PlannedLoad(plan, {}, device, settings);
  host::LoadSession(Target()).Run(plan, record);
  return record;
}

host::LoadRecord Workbench::Verify(const Segments& image) {
  return host::CompareWithChip(Target(), Plan(image));
}

std::string Outcome(const host::LoadRecord& record) {
  return record.failure ? record.failure->text : "ok";
}

std::vector<std::string> Errors(const host::LoadRecord& record) {
  return MessagesOf(record, true);
}

std::vector<std::string> Infos(const host::LoadRecord& record) {
  return MessagesOf(record, false);
}
