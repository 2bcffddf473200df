#include "host/plugin/PluginLibrary.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <limits>

#include "host/device/InputError.h"

namespace host {

namespace {

constexpr const char* kEntry = "CreateFlashDevice4";

std::vector<std::string> SplitNames(std::string_view names) {
  constexpr std::string_view kSeparator = ", ";
  std::vector<std::string> list;
  while (!names.empty()) {
    const std::size_t end = names.find(kSeparator);
    list.emplace_back(names.substr(0, end));
    names = end == std::string_view::npos ? std::string_view() : names.substr(end + kSeparator.size());
  }
  return list;
}

}  // namespace

void PluginLibrary::Close::operator()(void* handle) const {
  dlclose(handle);
}

PluginLibrary::PluginLibrary(const std::filesystem::path& path) {
  if (!std::filesystem::exists(path))
    throw InputError(fmt::format("plug-in {}: no such file", path.string()));
  // An absolute path, since a bare file name would be searched for in the system's library folders.
  library.reset(dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!library) throw InputError(fmt::format("plug-in {}: {}", path.string(), dlerror()));
  create = reinterpret_cast<Create>(dlsym(library.get(), kEntry));
  if (create == nullptr)
    throw InputError(fmt::format("plug-in {}: does not export {}", path.string(), kEntry));
}

template <typename Action>
void PluginDevice::Call(PluginCall call, Action&& action) {
  services.TellBegin(call);
  const char* const error = std::forward<Action>(action)();
  if (error != nullptr) call.error = error;
  services.TellEnd(call);
  if (error != nullptr) throw PluginError(error);
}

PluginDevice::PluginDevice(const PluginLibrary& library, HostServices& hostServices, const std::string& name)
    : services(hostServices) {
  IFlashDevice4* created = nullptr;
  Call({.function = kEntry, .subject = name},
       [&] { return library.Entry()(name.c_str(), "", "", services.Utility(), &created); });
  if (created == nullptr) throw PluginError("the plug-in reported success but made no device");
  device = created;
}

PluginDevice::~PluginDevice() {
  const PluginCall call{.function = "Delete"};
  services.TellBegin(call);
  device->Delete();
  services.TellEnd(call);
}

std::vector<std::string> PluginDevice::Initialize() {
  bool flashAvailable = false;
  const char* operations = nullptr;
  Call({.function = "Initialize"}, [&] { return device->Initialize(flashAvailable, operations); });
  if (!flashAvailable) throw PluginError("the plug-in says that the device has no flash");
  return SplitNames(operations != nullptr ? operations : "");
}

void PluginDevice::StartLoad() {
  Call({.function = "ResetSettings", .subject = "LoadStart"},
       [&] { return device->ResetSettings(ProgramState::LoadStart); });
}

void PluginDevice::EndLoad() {
  Call({.function = "ResetSettings", .subject = "LoadEnd"},
       [&] { return device->ResetSettings(ProgramState::LoadEnd); });
}

void PluginDevice::WriteBlock(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  constexpr short kPage = 0;
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw std::runtime_error(fmt::format("a block of {} bytes is too big", bytes.size()));
  Call({.function = "WriteDataToFlash", .address = address, .bytes = bytes.size()}, [&] {
    return device->WriteDataToFlash(bytes.data(), Debugger::Address(address), static_cast<int>(bytes.size()),
                                    kPage);
  });
}

bool PluginDevice::HandlesVerification(std::uint32_t address) {
  bool handled = false;
  Call({.function = "HandleVerification", .address = address},
       [&] { return device->HandleVerification(Debugger::Address(address), handled); });
  return handled;
}

void PluginDevice::PerformOperation(const std::string& operation) {
  Call({.function = "PerformOperation", .subject = operation},
       [&] { return device->PerformOperation(operation.c_str()); });
}

std::vector<std::string> PluginDevice::ScriptFunctions() {
  unsigned int count = 0;
  Call({.function = "GetNumberOfRuneFunctions"}, [&] { return device->GetNumberOfRuneFunctions(count); });
  std::vector<std::string> names;
  for (unsigned int index = 0; index < count; ++index) {
    const char* name = nullptr;
    Call({.function = "GetRuneFunctionName"}, [&] { return device->GetRuneFunctionName(index, name); });
    names.emplace_back(name);
  }
  return names;
}

ScriptValue PluginDevice::RunScriptFunction(const std::string& name,
                                            const std::vector<ScriptValue>& arguments) {
  std::vector<C_RuneValue> values;
  for (const ScriptValue& argument : arguments) {
    C_RuneValue value(0);
    if (const auto* number = std::get_if<long long>(&argument)) {
      value.integer = *number;
    } else {
      value.type = C_RuneValue::kText;
      value.text = std::get<std::string>(argument).c_str();
    }
    values.push_back(value);
  }
  C_RuneValue result(0);
  Call({.function = "ExecuteRuneFunction", .subject = name}, [&] {
    return device->ExecuteRuneFunction(name.c_str(), values.data(), static_cast<unsigned int>(values.size()),
                                       result);
  });
  if (result.type == C_RuneValue::kText) return std::string(result.text != nullptr ? result.text : "");
  return result.integer;
}

}  // namespace host
