#include "Workbench.h"

#include <gtest/gtest.h>

#include <cctype>
#include <utility>

namespace {

std::string_view EraseName(Erase erase) {
  switch (erase) {
    case Erase::None: return "Do not erase sectors (program load only)";
    case Erase::Chip: return "Chip Erase";
    case Erase::RetainMain: return "Chip Erase (retain sectors specified in CCFG)";
    case Erase::RetainMainAndConfiguration: return "Retain MAIN sectors and CCFG and SCFG";
    case Erase::RetainConfiguration: return "Retain CCFG and SCFG sectors";
  }
  return "";
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

std::vector<std::string> DeviceNames() {
  std::vector<std::string> names;
  for (const auto& file : host::ListDeviceFiles(TOVIK_DEVICES_DIR)) names.push_back(file.stem().string());
  return names;
}

std::string TestName(std::string text) {
  for (char& character : text)
    if (std::isalnum(static_cast<unsigned char>(character)) == 0) character = '_';
  return text;
}

Workbench::Workbench(const std::string& deviceName)
    : device(host::ReadDeviceDescription(host::FindDeviceFile(deviceName, TOVIK_DEVICES_DIR))),
      settings(DefaultsOf(device)),
      probe(device, {}),
      services(probe, settings) {
  services.ConnectDebugPort();
}

void Workbench::Set(std::string_view name, std::string_view value) {
  ASSERT_NE(device.Find(name), nullptr) << device.name << " has no setting " << name;
  settings.Set(name, value);
}

bool Workbench::SetErase(Erase erase) {
  if (device.Find("FlashEraseSetting") != nullptr) {
    Set("FlashEraseSetting", EraseName(erase));
    return true;
  }
  const bool keepsConfiguration =
      erase == Erase::RetainConfiguration || erase == Erase::RetainMainAndConfiguration;
  if (keepsConfiguration && device.Find("RetainCcfgScfg") == nullptr) return false;
  const bool keepsMain = erase == Erase::RetainMain || erase == Erase::RetainMainAndConfiguration;
  Set("NoFlashErase", erase == Erase::None ? "1" : "0");
  Set("RetainMainSectors", keepsMain ? "1" : "0");
  if (device.Find("RetainCcfgScfg") != nullptr) Set("RetainCcfgScfg", keepsConfiguration ? "1" : "0");
  return true;
}

void Workbench::Prepare(const std::function<void(simulator::ChipState&)>& change) {
  simulator::ChipState state = Chip().State();
  change(state);
  Chip().Restore(std::move(state));
}

host::LoadPlan Workbench::Plan(const std::vector<host::ImageSegment>& image) const {
  const std::vector<host::ImageFile> images{{"image", host::ImageFormat::Raw, image}};
  return host::PlanLoad(images, device.map, host::PluginCutsUnder(settings));
}

host::LoadTarget Workbench::Target() {
  return {Plugin(), services, probe, device, settings};
}

host::LoadRecord Workbench::Load(const std::vector<host::ImageSegment>& image) {
  const host::LoadPlan plan = Plan(image);
  host::LoadRecord record = host::PlannedLoad(plan, {}, device, settings);
  host::LoadSession(Target()).Run(plan, record);
  EXPECT_EQ(services.BrokenPromise(), "");
  return record;
}

host::LoadRecord Workbench::Verify(const std::vector<host::ImageSegment>& image) {
  host::LoadRecord record = host::CompareWithChip(Target(), Plan(image));
  EXPECT_EQ(services.BrokenPromise(), "");
  return record;
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
