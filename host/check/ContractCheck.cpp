#include <dlfcn.h>
#include <fmt/format.h>

#include <string>
#include <vector>

#include "host/check/CheckBench.h"

namespace host {

namespace {

// A slot of the tables of functions that a device has, one for each interface. What an interface inherits is
// called through the table of the one that it has it from.
struct Slot {
  const char* name;
  unsigned interface;  // IFlashDevice2, 3 or 4
};
constexpr Slot s_slots[] = {{"Initialize", 2},
                            {"AddressWithinFlash", 2},
                            {"AnyRangeWithinFlash", 2},
                            {"WriteDataToFlash of bytes", 2},
                            {"WriteDataToFlash of half-words", 2},
                            {"PerformOperation", 2},
                            {"ResetSettings", 2},
                            {"HandleVerification", 2},
                            {"Delete", 2},
                            {"LoadImages", 3},
                            {"the destructor", 3},
                            {"the deleting destructor", 3},
                            {"GetNumberOfRuneFunctions", 4},
                            {"GetRuneFunctionName", 4},
                            {"ExecuteRuneFunction", 4}};

// The table that an object with this interface begins with.
using FunctionTable = const void* const*;
template <typename Interface>
FunctionTable TableOf(Interface* object) {
  return *reinterpret_cast<const FunctionTable*>(object);
}

constexpr std::string_view kBannerBegins = "Flash loader: ";
constexpr std::string_view kInterface = "4.";  // leads the version that the library tells
constexpr const char* kNothing = "nothing of the kind";

// Calls the slots of a device one by one, without a host that shields it.
class Contract {
 public:
  Contract(CheckBench& checkBench, HostServices& hostServices)
      : bench(checkBench), services(hostServices), report(checkBench.report) {
    services.onMessage = [this](bool, const std::string& text) {
      if (banner.empty()) banner = text;
    };
  }
  ~Contract() {
    report.Step("Delete");
    if (device != nullptr) device->Delete();
  }
  Contract(const Contract&) = delete;
  Contract& operator=(const Contract&) = delete;

  // False when there is nothing to call.
  bool Create();
  void CheckBanner();
  void CheckAnswers();
  void CheckRefusals();
  void CheckFailedCreation();
  void CheckFailedInitialization();

 private:
  bool HasAllSlots();
  // Runs one call and answers its error text; an exception is a finding.
  template <typename Call>
  const char* Answer(std::string_view slot, Call call);
  template <typename Call>
  void Succeeds(std::string_view slot, Call call);
  template <typename Call>
  const char* Fails(std::string_view slot, Call call);
  // Asks twice, with other values in the result, which must then be the same.
  template <typename Value, typename Call>
  Value Told(std::string_view slot, Value one, Value other, Call ask);
  void Require(bool holds, std::string_view slot, std::string_view what) {
    if (!holds) report.Find(fmt::format("{} {}", slot, what));
  }

  CheckBench& bench;
  HostServices& services;
  CheckReport& report;
  std::string banner;
  IFlashDevice4* device = nullptr;
};

template <typename Call>
const char* Contract::Answer(std::string_view slot, Call call) {
  report.Step(slot);
  report.Count();
  try {
    return call();
  } catch (const std::exception& error) {
    report.Find(fmt::format("{} throws \"{}\" at the host", slot, error.what()));
    return kRefusal;
  }
}

template <typename Call>
void Contract::Succeeds(std::string_view slot, Call call) {
  const char* const error = Answer(slot, call);
  if (error != nullptr) report.Find(fmt::format("{} fails: \"{}\"", slot, error));
}

template <typename Call>
const char* Contract::Fails(std::string_view slot, Call call) {
  const char* const error = Answer(slot, call);
  Require(error != nullptr, slot, "succeeds with what cannot be done");
  Require(error == nullptr || *error != '\0', slot, "fails without a text");
  return error;
}

template <typename Value, typename Call>
Value Contract::Told(std::string_view slot, Value one, Value other, Call ask) {
  Succeeds(slot, [&] { return ask(one); });
  Succeeds(slot, [&] { return ask(other); });
  Require(one == other, slot, "does not write its result");
  return one;
}

bool Contract::Create() {
  Succeeds("CreateFlashDevice4", [&] {
    return bench.library.Entry()(bench.device.name.c_str(), "", "", services.Utility(), &device);
  });
  Require(device != nullptr, "CreateFlashDevice4", "makes no device");
  return device != nullptr && HasAllSlots();
}

bool Contract::HasAllSlots() {
  const FunctionTable tables[] = {TableOf<IFlashDevice2>(device), TableOf<IFlashDevice3>(device),
                                  TableOf(device)};
  std::vector<const char*> empty;
  for (std::size_t slot = 0; slot < std::size(s_slots); ++slot) {
    Dl_info code{};
    const bool isCode = dladdr(tables[s_slots[slot].interface - 2][slot], &code) != 0;
    const std::string_view name = isCode && code.dli_sname != nullptr ? code.dli_sname : "";
    if (!isCode || name == "__cxa_pure_virtual") empty.push_back(s_slots[slot].name);
  }
  if (empty.empty()) return true;
  report.Find(fmt::format("slots that lead nowhere: {}", fmt::join(empty, ", ")));
  device = nullptr;  // it had better not be touched
  return false;
}

void Contract::CheckBanner() {
  const std::size_t version = banner.rfind(' ') + 1;
  if (!banner.starts_with(kBannerBegins) || banner.compare(version, kInterface.size(), kInterface) != 0)
    report.Find(fmt::format("the first message is \"{}\" instead of \"{}NAME {}...\"", banner, kBannerBegins,
                            kInterface));
}

void Contract::CheckAnswers() {
  const std::uint32_t address = 0;
  const char* operations = nullptr;
  Require(
      Told("Initialize", false, true, [&](bool& isThere) { return device->Initialize(isThere, operations); }),
      "Initialize", "says that there is no flash");
  Require(operations != nullptr, "Initialize", "tells no operations");
  (void)Told("AddressWithinFlash", false, true,
             [&](bool& within) { return device->AddressWithinFlash(address, within); });
  (void)Told("AnyRangeWithinFlash", false, true,
             [&](bool& within) { return device->AnyRangeWithinFlash(address, 16, within); });
  Require(Told("HandleVerification", false, true,
               [&](bool& handled) { return device->HandleVerification(address, handled); }),
          "HandleVerification", "leaves MAIN flash to the host");
  Succeeds("LoadImages", [&] {
    const Debugger::ProgramImage image{};
    return device->LoadImages(&image, 1);
  });
  Succeeds("ResetSettings", [&] { return device->ResetSettings(static_cast<ProgramState>(77)); });
  const auto functions = Told("GetNumberOfRuneFunctions", 0U, ~0U,
                              [&](unsigned& count) { return device->GetNumberOfRuneFunctions(count); });
  for (unsigned index = 0; index < functions; ++index) {
    const char* name = nullptr;
    Succeeds("GetRuneFunctionName", [&] { return device->GetRuneFunctionName(index, name); });
    Require(name != nullptr && *name != '\0', "GetRuneFunctionName", "tells no name");
  }
}

void Contract::CheckRefusals() {
  const std::uint16_t halfWords[] = {1, 2};
  (void)Fails("WriteDataToFlash of half-words", [&] {
    return device->WriteDataToFlash(halfWords, Debugger::Address(bench.device.map.ram.base), 2, 0);
  });
  const char* name = kNothing;
  (void)Fails("GetRuneFunctionName", [&] { return device->GetRuneFunctionName(~0U, name); });
  Require(name == kNothing, "GetRuneFunctionName", "writes its result when it fails");
  C_RuneValue result(0x5555);
  result.type = 9;
  (void)Fails("ExecuteRuneFunction",
              [&] { return device->ExecuteRuneFunction(kNothing, nullptr, 0, result); });
  Require(result.integer == 0x5555 && result.type == 9, "ExecuteRuneFunction",
          "writes its result when it fails");
  const char* const error = Fails("PerformOperation", [&] { return device->PerformOperation(kNothing); });
  if (error == nullptr) return;
  const std::string kept = error;
  bool handled = false;
  Succeeds("HandleVerification", [&] { return device->HandleVerification(0U, handled); });
  Require(kept == error, "PerformOperation", "told an error text that has changed before the next failure");
}

void Contract::CheckFailedCreation() {
  services.Fail({.call = services.CallCount() + 1, .text = kRefusal});
  IFlashDevice4* made = device;
  const char* const error = Answer("CreateFlashDevice4", [&] {
    return bench.library.Entry()(bench.device.name.c_str(), "", "", services.Utility(), &made);
  });
  if (error == nullptr && made != device) return made->Delete();  // it has called nobody
  Require(error != nullptr && std::string_view(error) == kRefusal, "CreateFlashDevice4",
          "does not tell of a host call that failed");
  Require(made == device, "CreateFlashDevice4", "writes its result when it fails");
}

// With a host that has no properties.
void Contract::CheckFailedInitialization() {
  bool isThere = false;
  const char* operations = kNothing;
  (void)Fails("Initialize", [&] { return device->Initialize(isThere, operations); });
  Require(!isThere && operations == kNothing, "Initialize", "writes its results when it fails");
}

}  // namespace

void CheckContract(const CheckPart& part, CheckReport& report) {
  CheckBench bench(part, report);
  report.At(part.device.name);
  HostServices services(bench.probe, bench.settings);
  services.ConnectDebugPort();
  Contract contract(bench, services);
  if (!contract.Create()) return;
  contract.CheckBanner();
  contract.CheckAnswers();
  contract.CheckRefusals();
  contract.CheckFailedCreation();

  report.At(fmt::format("{}, a host without properties", part.device.name));
  PropertyStore nothing;
  HostServices poor(bench.probe, nothing);
  Contract second(bench, poor);
  if (second.Create()) second.CheckFailedInitialization();
}

}  // namespace host
