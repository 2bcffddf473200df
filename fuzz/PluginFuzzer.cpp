#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "HostileHost.h"
#include "IFlashDevice2.h"
#include "Require.h"
#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/probe/simulated/SimulatedProbe.h"

// The whole plug-in between a hostile host and a hostile chip: what a debugger asks of it, in any order and
// with any arguments, while the host and, through it, the chip give any answer. Whatever happened, the same
// object then has to program a chip correctly.
//
// Input: device | number of bytes that follow | those bytes: the operations | the rest: HostileHost's.

namespace {

using namespace fuzz;

// Small memories: a run costs what its bytes cost.
constexpr std::uint32_t kMainSize = 0x8000;
constexpr std::uint32_t kRamSize = 0x1000;
constexpr std::uint32_t kSectorSize = 0x800;
constexpr std::uint32_t kLongestBlock = 0x2000;

const std::string kPassword = std::string(1, HostileHost::kSecretMark) + "open sesame";

std::vector<host::DeviceDescription> ReadDevices() {
  std::vector<host::DeviceDescription> devices;
  for (const std::filesystem::path& file : host::ListDeviceFiles(TOVIK_DEVICES_DIR)) {
    devices.push_back(host::ReadDeviceDescription(file));
    devices.back().chip.mainSize = kMainSize;
    devices.back().chip.ram.size = kRamSize;
  }
  return devices;
}

host::PropertyStore DefaultSettings(const host::DeviceDescription& device) {
  host::PropertyStore settings;
  for (const host::FlashProperty& property : device.properties) settings.Set(property.name, property.value);
  settings.Set("DeviceInfoFlashSizeTranslation", "*:*:*:0x8000");
  settings.Set("DeviceInfoRAMSizeTranslation", "*:*:*:0x1000");
  settings.Set("DebugPassword", kPassword);
  settings.Set("DebugPasswordHex", kPassword);
  return settings;
}

// The path of an HSM image for the plug-in to read, in memory.
std::string ImageInMemory(std::span<const std::uint8_t> bytes) {
  const static int s_file = memfd_create("hsm-image", MFD_CLOEXEC);
  Require(ftruncate(s_file, 0) == 0 && pwrite(s_file, bytes.data(), bytes.size(), 0) == std::ssize(bytes),
          "a file in memory can be written");
  return "/proc/self/fd/" + std::to_string(s_file);
}

class Session {
 public:
  Session(const host::DeviceDescription& description, ByteSource operationBytes, ByteSource hostBytes)
      : device(description),
        operations(operationBytes),
        settings(DefaultSettings(device)),
        probe(device, {}),
        hostile(probe, settings, {map.ccfg.size, map.userRecord.size, map.scfg.size}, hostBytes) {}
  ~Session() {
    if (plugin != nullptr) plugin->Delete();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Run() {
    Create();
    while (!operations.IsEmpty()) PerformNext();
    RequireAWorkingLoad();
  }

 private:
  // Twice: with lies, and honestly. A device keeps the register addresses that it was told when it was made.
  void Create() {
    const bool failed = CreatePlugin() != nullptr;
    Require(failed == (plugin == nullptr), "a failed creation leaves the result alone");
    if (plugin != nullptr) plugin->Delete();
    plugin = nullptr;
    hostile.BeHonest();
    RequireSuccess(CreatePlugin());
    hostile.BeHostile();
  }
  const char* CreatePlugin() {
    const auto create = [&] {
      return CreateFlashDevice4("first", "second", "third", hostile.Utility(), &plugin);
    };
    return Perform(create, "CreateFlashDevice4");
  }

  template <typename Operation>
  const char* Perform(Operation operation, const char* name = "the operation") {
    hostile.BeginOperation(name);
    return hostile.EndOperation(name, operation());
  }

  void PerformNext() {
    switch (operations.Byte() % 10) {
      case 0: Initialize(); break;
      case 1: ResetSettings(); break;
      case 2:
      case 3: WriteBlock(); break;
      case 4: PerformOperation(); break;
      case 5: ExecuteScriptFunction(); break;
      case 6: ChangeSetting(); break;
      case 7: AskAboutAddresses(); break;
      case 8: AskForFunctionName(); break;
      default: ProvideHsmImage(); break;
    }
  }

  void Initialize() {
    bool flashAvailable = false;
    const char* supported = nullptr;
    const bool failed = Perform([&] { return plugin->Initialize(flashAvailable, supported); }) != nullptr;
    Require(flashAvailable != failed && (supported == nullptr) == failed,
            "Initialize writes its results exactly when it succeeds");
  }

  void ResetSettings() {
    const auto state = static_cast<ProgramState>(operations.Byte() % 4);
    Perform([&] { return plugin->ResetSettings(state); });
  }

  [[nodiscard]] std::uint32_t Address() {
    const std::uint32_t bases[] = {
        0,           map.ccfg.base, map.userRecord.base, map.scfg.base, map.otp.base, map.ram.base,
        0x1000'0000, 0xFFFF'FF00};
    const std::uint8_t choice = operations.Byte();
    const std::uint32_t offset = operations.Byte() * ((choice & 0x80) != 0 ? 1U : 0x80U);
    return (choice & 0x40) != 0 ? operations.Word() : bases[choice % std::size(bases)] + offset;
  }

  [[nodiscard]] std::uint32_t BlockLength() {
    const std::uint32_t ccfg = map.ccfg.size, record = map.userRecord.size, scfg = map.scfg.size;
    const std::uint32_t lengths[] = {0,      1,    kSectorSize,         ccfg,
                                     record, scfg, ccfg + map.otp.size, kLongestBlock};
    const std::uint8_t choice = operations.Byte();
    if ((choice & 0x80) != 0) return operations.Word() % kLongestBlock;
    return lengths[choice % std::size(lengths)];
  }

  void WriteBlock() {
    const Debugger::Address address(Address());
    const std::uint32_t length = BlockLength();
    const std::uint8_t kind = operations.Byte();
    std::vector<std::uint8_t> data(length, operations.Byte());
    // One byte of its own a sector, so that not all sectors look alike.
    for (std::uint32_t i = 0; i < length && (kind & 1) != 0; i += kSectorSize) data[i] = operations.Byte();
    const int count = (kind & 0xF0) == 0xF0 ? -static_cast<int>(length) : static_cast<int>(length);
    const auto page = static_cast<short>(kind >> 1 & 1);
    Perform([&] { return plugin->WriteDataToFlash(data.data(), address, count, page); });
  }

  // A text that the plug-in may show: without the mark of the passwords.
  [[nodiscard]] std::string PublicText() {
    std::string text = operations.Text();
    std::replace(text.begin(), text.end(), HostileHost::kSecretMark, '?');
    return text;
  }

  void PerformOperation() {
    constexpr const char* kNames[] = {
        "Erase",           "ChipEraseRetain", "BlankCheck",         "ReadDeviceInfo",
        "ProgramHsmImage", "ReadHsmSysInfo",  "ReadHsmUpdateStatus"};
    const std::uint8_t choice = operations.Byte() % 8;
    const std::string name = choice < std::size(kNames) ? kNames[choice] : PublicText();
    Perform([&] { return plugin->PerformOperation(name.c_str()); });
  }

  void ExecuteScriptFunction() {
    constexpr const char* kNames[] = {"EnsureAuthentication", "EnterSaci", "ExitSaci", "SaciAppResetDevice",
                                      "exitSaci"};
    const std::uint8_t choice = operations.Byte();
    const char* const name = kNames[choice % std::size(kNames)];
    const std::string text = "text";
    std::vector<C_RuneValue> params;
    for (int i = 0; i < choice >> 6; ++i) {
      params.emplace_back(operations.Byte());
      params.back().type = operations.Byte() % 4;
      if (params.back().type == C_RuneValue::kText)
        params.back().text = params.back().integer % 2 == 0 ? text.c_str() : nullptr;
    }
    constexpr long long kUnwritten = 0x5A5A;
    C_RuneValue result(kUnwritten);
    const auto count = static_cast<unsigned>(params.size());
    const bool failed =
        Perform([&] { return plugin->ExecuteRuneFunction(name, params.data(), count, result); }) != nullptr;
    Require(failed == (result.integer == kUnwritten), "a script function gives a result when it succeeds");
  }

  void ChangeSetting() {
    const auto& all = settings.All();
    const std::string name = std::next(all.begin(), operations.Byte() % static_cast<int>(all.size()))->first;
    const std::uint8_t choice = operations.Byte();
    if (name == "HsmImagePath") return;  // ProvideHsmImage
    const std::string value = choice < 2 ? std::to_string(choice) : PublicText();
    settings.Set(name, value.c_str());
  }

  void AskAboutAddresses() {
    const Debugger::Address address(Address());
    const auto length = static_cast<int>(operations.Word());
    bool answers[3] = {};
    Perform([&] { return plugin->AddressWithinFlash(address, answers[0]); });
    Perform([&] { return plugin->AnyRangeWithinFlash(address, length, answers[1]); });
    Perform([&] { return plugin->HandleVerification(address, answers[2]); });
    Require(answers[0] && answers[1] && answers[2], "every address is the plug-in's to handle");
    const unsigned short wide = 0;
    Require(Perform([&] { return plugin->WriteDataToFlash(&wide, address, 1, 0); }) != nullptr,
            "16-bit data is refused");
    Perform([&] { return plugin->LoadImages(nullptr, 0); });
  }

  void AskForFunctionName() {
    unsigned count = 0;
    Perform([&] { return plugin->GetNumberOfRuneFunctions(count); });
    const unsigned index = operations.Byte() % 8;
    const char* name = nullptr;
    const bool failed = Perform([&] { return plugin->GetRuneFunctionName(index, name); }) != nullptr;
    Require(failed == (index >= count) && failed == (name == nullptr),
            "there is a name for every function and no other");
  }

  void ProvideHsmImage() {
    const std::uint8_t choice = operations.Byte();
    const std::string path = ImageInMemory(operations.Take(choice >> 1));
    settings.Set("HsmImagePath", (choice & 1) != 0 ? path : "/nonexistent");
  }

  // What a debugger does for one image, with every answer honest and all settings as the device has them.
  void RequireAWorkingLoad() {
    settings = DefaultSettings(device);
    hostile.BeHonest();
    std::vector<std::uint8_t> data(kSectorSize + 100);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    Initialize();
    RequireSuccess(Perform([&] { return plugin->ResetSettings(ProgramState::LoadStart); }));
    const Debugger::Address address(2 * kSectorSize);
    const auto count = static_cast<int>(data.size());
    RequireSuccess(Perform([&] { return plugin->WriteDataToFlash(data.data(), address, count, 0); }));
    RequireSuccess(Perform([&] { return plugin->ResetSettings(ProgramState::LoadEnd); }));
    const std::vector<std::uint8_t> main = probe.Picture().main;
    Require(std::equal(data.begin(), data.end(), main.begin() + 2 * kSectorSize),
            "the chip holds what was loaded");
  }

  static void RequireSuccess(const char* error) {
    Require(error == nullptr,
            std::string("an operation fails with an honest host: ") + (error != nullptr ? error : ""));
  }

  const host::DeviceDescription& device;
  const host::MemoryMap& map = device.map;
  ByteSource operations;
  host::PropertyStore settings;
  host::SimulatedProbe probe;
  HostileHost hostile;
  IFlashDevice4* plugin = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const static std::vector<host::DeviceDescription> devices = ReadDevices();
  ByteSource input({data, size});
  const host::DeviceDescription& device = devices[input.Byte() % devices.size()];
  const ByteSource operations(input.Take(input.Byte()));
  Session(device, operations, input).Run();
  return 0;
}
