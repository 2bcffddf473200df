#include "PluginUnderTest.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

CreateFlashDevice4Function PluginEntry() {
  static const CreateFlashDevice4Function entry = [] {
    void* library = dlopen(TOVIK_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    void* symbol = library == nullptr ? nullptr : dlsym(library, "CreateFlashDevice4");
    if (symbol == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::abort();
    }
    CreateFlashDevice4Function function = nullptr;
    std::memcpy(&function, &symbol, sizeof function);
    return function;
  }();
  return entry;
}

std::string Outcome(const char* error) {
  return error == nullptr ? "ok" : error;
}

PluginDevice::PluginDevice(FakeHost& host) {
  if (const char* error = PluginEntry()("first", "second", "third", host.Utility(), &device)) {
    std::fprintf(stderr, "CreateFlashDevice4: %s\n", error);
    std::abort();
  }
}

PluginDevice::~PluginDevice() {
  device->Delete();
}

std::string PluginDevice::Initialize() const {
  bool flashAvailable = false;
  const char* operations = nullptr;
  return Outcome(device->Initialize(flashAvailable, operations));
}

std::string PluginDevice::Write(std::uint64_t address, const Bytes& data, short page) const {
  return Outcome(device->WriteDataToFlash(data.data(),
                                          Debugger::Address(static_cast<unsigned long long>(address)),
                                          static_cast<int>(data.size()), page));
}

std::string PluginDevice::Script(const char* name, const std::vector<C_RuneValue>& params) const {
  C_RuneValue result(0);
  const char* error =
      device->ExecuteRuneFunction(name, params.data(), static_cast<unsigned>(params.size()), result);
  if (error != nullptr) return error;
  return result.type == C_RuneValue::kInteger ? std::to_string(result.integer) : "not an integer";
}
