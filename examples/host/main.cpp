// The smallest complete host: it loads the plug-in and asks it for a load. It has no debug probe, so that
// the load ends with the first call that needs one; with a probe behind these functions it is a debugger.

#include <dlfcn.h>

#include <cstdio>
#include <map>
#include <string>

#include "IFlashDevice2.h"

namespace {

// The plug-in hands this object back with every call, and knows no more of it than its table of functions.
struct Host : HostObject {
  // What the plug-in reads up to here. A real host offers all facts and settings of a device's description.
  std::map<std::string, std::string> properties = {
      {"ImageVerificationSetting", "0"}, {"SectorSize", "0x800"},
      {"CcfgBase", "0x4C000000"},        {"CcfgSize", "0x800"},
      {"CcfgUserRecordSize", "0x80"},    {"ccfg.userRecord.crc32Info", "0x750:0x7C"}};
  std::map<std::string, unsigned long long> registers = {};  // numbered by the host as it likes
};

const char* GetValueOfProperty(HostObject* host, const char* name) {
  auto& properties = static_cast<Host*>(host)->properties;
  return properties.contains(name) ? properties[name].c_str() : nullptr;
}

const char* SetValueOfProperty(HostObject* host, const char* name, const char* value) {
  static_cast<Host*>(host)->properties[name] = value;
  return nullptr;  // success
}

// What the plug-in gets here it gives back in readReg and writeReg.
const char* LookupReg(HostObject* host, const char* name, Debugger::Address* address) {
  auto& registers = static_cast<Host*>(host)->registers;
  *address = registers.emplace(name, registers.size()).first->second;
  return nullptr;
}

// A message for the user, or the core that the following calls go to.
const char* Show(HostObject*, const char* text) {
  std::puts(text);
  return nullptr;
}

// Where a real host asks its probe. The text comes back to us as the error of the call that led here.
template <typename... Arguments>
const char* NoProbe(HostObject*, Arguments...) {
  return "the example host has no debug probe";
}

HostFunctionTable MakeTable() {
  HostFunctionTable table{};  // the reserved functions are never called
  table.getValueOfProperty = GetValueOfProperty;
  table.setValueOfProperty = SetValueOfProperty;
  table.lookupReg = LookupReg;
  table.reportError = table.reportInfo = Show;
  table.setCore = table.setCoreById = Show;
  table.connect = table.disconnect = NoProbe;
  table.isConnected = NoProbe;
  table.reConnect = NoProbe;
  table.resetTarget = NoProbe;
  table.readMemory = NoProbe;
  table.writeMemory = NoProbe;
  table.readReg = NoProbe;
  table.writeReg = NoProbe;
  table.sleep = NoProbe;
  return table;
}

// Loads one block into MAIN flash, as an image would give it. Returns the first error, or null.
const char* Load(IFlashDevice4& device) {
  const unsigned char block[] = {0x00, 0x01, 0x02, 0x03};
  bool available = false;
  const char* operations = "";
  if (const char* error = device.Initialize(available, operations)) return error;
  std::printf("Operations: %s\n", operations);
  if (const char* error = device.ResetSettings(ProgramState::LoadStart)) return error;
  if (const char* error = device.WriteDataToFlash(block, 0x0000'0000U, sizeof block, 0)) return error;
  return device.ResetSettings(ProgramState::LoadEnd);
}

}  // namespace

int main() {
  void* const library = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
  void* const entry = library != nullptr ? dlsym(library, "CreateFlashDevice4") : nullptr;
  if (entry == nullptr) throw std::runtime_error(dlerror());
  const HostFunctionTable table = MakeTable();
  Host host{{&table}};
  IFlashDevice4* device = nullptr;
  const auto create = reinterpret_cast<decltype(&CreateFlashDevice4)>(entry);
  const char* error = create("", "", "", IFlashProgrammerUtility2(&host), &device);
  if (error == nullptr) error = Load(*device);
  std::printf("Load: %s\n", error != nullptr ? error : "done");
  if (device != nullptr) device->Delete();  // error texts are gone with it
  return error != nullptr ? 1 : 0;
}
