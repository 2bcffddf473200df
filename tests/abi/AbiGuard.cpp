// Calls every slot of a built plug-in as a host does that shares no header with it: the declarations below
// are this host's own. Built by one compiler and run against the library of another, it shows that the two
// agree on slot order, virtual inheritance and what travels in a register.
//
//   abi-guard LIBRARY      says what is wrong on standard error and exits with 1

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// Not in an unnamed namespace, or the compiler would conclude that nobody implements the interfaces.
namespace guard {

// --- The host's declarations ---

struct Address {
  Address(unsigned long long where) : value(where) {}
  unsigned long long value;
};
static_assert(sizeof(Address) == 8 && std::is_trivially_copyable_v<Address>);

struct ProgramImage {
  unsigned char bytes[24];
};

struct ScriptValue {
  union {
    long long integer;
    const char* text;
  };
  std::uint32_t type;
};
static_assert(sizeof(ScriptValue) == 16 && offsetof(ScriptValue, type) == 8);

class Device2 {
 public:
  virtual const char* Initialize(bool& available, const char*& operations) = 0;
  virtual const char* AddressWithin(Address address, bool& within) = 0;
  virtual const char* RangeWithin(Address address, int length, bool& within) = 0;
  virtual const char* WriteBytes(const unsigned char* data, Address address, int count, short page) = 0;
  virtual const char* WriteShorts(const unsigned short* data, Address address, int count, short page) = 0;
  virtual const char* Perform(const char* operation) = 0;
  virtual const char* Reset(int state) = 0;
  virtual const char* HandleVerification(Address address, bool& handled) = 0;
  virtual void Delete() = 0;

 protected:
  ~Device2() = default;
};

class Device3 : public virtual Device2 {
 public:
  virtual const char* LoadImages(const ProgramImage* images, unsigned int count) = 0;
  virtual ~Device3() = default;
};

class Device4 : public virtual Device3 {
 public:
  virtual const char* CountFunctions(unsigned int& count) = 0;
  virtual const char* FunctionName(unsigned int index, const char*& name) = 0;
  virtual const char* Execute(const char* name, const ScriptValue* params, unsigned int count,
                              ScriptValue& result) = 0;
};

}  // namespace guard

using namespace guard;

namespace {

// --- The host ---

int s_faults = 0;

void Check(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "abi-guard: %s\n", what.c_str());
  ++s_faults;
}

void CheckText(const char* text, const char* expected, const std::string& what) {
  const std::string found = text == nullptr ? "null" : text;
  Check(found == expected, what + ": \"" + found + "\" instead of \"" + expected + "\"");
}

enum class Core { DebugPort, SecurePort, Cortex };

// Registers by the addresses this host gives them; of 32 bits nothing may be lost, nor spread.
constexpr std::pair<const char*, unsigned long long> s_registers[] = {
    {"SECAP_TXCTL", 0xF000'0001},        {"SECAP_RXCTL", 0xF000'0002},    {"SECAP_RSTCTL", 0xF000'0003},
    {"CFGAP_DEVICESTATUS", 0xF000'0004}, {"CFGAP_DEVICEID", 0xF000'0005}, {"CFGAP_PARTID", 0xF000'0006}};

constexpr std::pair<const char*, const char*> s_properties[] = {
    {"SectorSize", "0x800"},
    {"CcfgBase", "0x4E020000"},
    {"CcfgSize", "0x800"},
    {"CcfgUserRecordSize", "0x80"},
    {"ccfg.userRecord.crc32Info", "0x750:0x7C"},
    {"DeviceInfoRevisionTranslation", "0x01234:1.0:A"},
    {"DeviceInfoFlashSizeTranslation", "*:*:*:0x80000"},
    {"DeviceInfoRAMSizeTranslation", "*:*:*:0x9000"},
    {"ImageVerificationSetting", "0"},
    {"FlashEraseSetting", "Do not erase sectors (program load only)"},
    {"FlashPageToggle", "0"},
    {"FlashPagesFilledWith", "0"}};

// What the table's functions get: its first word is what the plug-in looks at.
struct Host {
  const void* table = nullptr;
  std::set<std::size_t> used{};  // positions in the table
  Core core = Core::DebugPort;
  std::set<Core> connected = {Core::DebugPort};
  bool inSaci = false;
  bool startFlag = false;
  bool answerIsLate = true;  // once, so that the plug-in has to sleep
  std::uint32_t header = 0;  // of the latest command
  std::vector<std::uint8_t> ram{};
  unsigned long long ramAddress = 0;
  std::string firstInfo{};
};

using AnyFunction = void (*)();
using Table = std::array<AnyFunction, 39>;
static_assert(sizeof(Table) == 39 * sizeof(void*));

// Puts a function of the host into the table: `function` gets the host and the call's arguments. One that
// returns nothing answers success.
template <std::size_t position, typename Function, typename Result, typename... Arguments>
void Put(Table& table, Function, Result (Function::*)(Host&, Arguments...) const) {
  const auto call = [](void* object, Arguments... arguments) -> const char* {
    Host& host = *static_cast<Host*>(object);
    host.used.insert(position);
    if constexpr (std::is_void_v<Result>) {
      Function{}(host, arguments...);
      return nullptr;
    } else {
      return Function{}(host, arguments...);
    }
  };
  table[position] = reinterpret_cast<AnyFunction>(+call);
}
template <std::size_t position, typename Function>
void Put(Table& table, Function function) {
  Put<position>(table, function, &Function::operator());
}

// 0 GetValueOfProperty, 1 SetValueOfProperty, 7 ResetTarget, 19 ReportError, 20 ReportInfo, 22 Sleep,
// 27 SetCore, 33 Disconnect, 34 IsConnected, 36 SetCoreById, 37 Connect, 38 ReConnect
void PutMessagesAndCores(Table& table) {
  Put<0>(table, [](Host&, const char* name) -> const char* {
    for (const auto& [property, value] : s_properties)
      if (std::strcmp(property, name) == 0) return value;
    return nullptr;
  });
  Put<1>(table, [](Host&, const char* name, const char* value) {
    if (std::strcmp(name, "DeviceInfoFlashSize") == 0) CheckText(value, "512 KB (256 sectors)", name);
  });
  Put<7>(table, [](Host& host, int kind) {
    host.inSaci = true;  // the chip has no application to start
    Check(kind == 0, "ResetTarget of a kind other than 0");
  });
  Put<19>(table, [](Host&, const char* message) {
    CheckText(message, "You can't exit SACI mode, when not in SACI mode.", "ReportError");
  });
  Put<20>(table, [](Host& host, const char* message) {
    if (host.firstInfo.empty()) host.firstInfo = message;
  });
  Put<22>(table, [](Host&, unsigned int ms) { Check(ms == 100, "Sleep other than 100 ms"); });
  Put<27>(table, [](Host& host, const char* name) {
    host.core = Core::Cortex;
    CheckText(name, "Cortex", "SetCore");
  });
  Put<33>(table, [](Host& host, bool option) {
    host.connected.erase(host.core);
    Check(option, "Disconnect(false)");
  });
  Put<34>(table, [](Host& host, bool* connected) { *connected = host.connected.contains(host.core); });
  Put<36>(table, [](Host& host, const char* id) {
    host.core = std::strcmp(id, "SEC_AP") == 0 ? Core::SecurePort : Core::DebugPort;
    if (host.core == Core::DebugPort) CheckText(id, "CS_DAP_0", "SetCoreById");
  });
  Put<37>(table, [](Host& host, bool option) {
    host.connected.insert(host.core);
    Check(!option, "Connect(true)");
  });
  Put<38>(table, [](Host&) {});
}

// 10 ReadMemory, 11 WriteMemory, 12 LookupReg, 13 ReadReg, 14 WriteReg; addresses come as the plain words
// that they are in a register.
void PutMemoryAndRegisters(Table& table) {
  using Address = unsigned long long;
  Put<10>(table, [](Host& host, void* elements, std::size_t count, Address address, int page,
                    std::size_t size) {
    const std::uint32_t answer = host.header & 0xFFFF;  // command and sequence number, success, no data
    if (host.core == Core::SecurePort) {
      Check(address == 0 && page == 1 && size == 4 && count == 1, "a response is read word by word");
      std::memcpy(elements, &answer, sizeof answer);
    } else {
      Check(address == host.ramAddress && size == 1 && count == host.ram.size(), "RAM is read back whole");
      std::memcpy(elements, host.ram.data(), std::min(count, host.ram.size()));
    }
  });
  Put<11>(table, [](Host& host, const void* elements, std::size_t count, Address address, int page,
                    std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(elements);
    if (host.core == Core::SecurePort) {
      Check(address == 0 && page == 1 && size == 4, "words go to address 0 of page 1");
      if (host.startFlag) std::memcpy(&host.header, elements, sizeof host.header);
    } else {
      Check(size == 1, "RAM is written byte by byte");
      host.ram.assign(bytes, bytes + count);
      host.ramAddress = address;
    }
  });
  Put<12>(table, [](Host&, const char* name, Address* address) {
    for (const auto& [known, where] : s_registers)
      if (std::strcmp(known, name) == 0) *address = where;
  });
  Put<13>(table, [](Host& host, Address address, unsigned long long* value) -> const char* {
    switch (address - s_registers[0].second) {
      case 1: *value = std::exchange(host.answerIsLate, false) ? 0 : 1; return nullptr;
      case 3: *value = 0x0100'0005U | (host.inSaci ? 0x2000U : 0xC000U); return nullptr;
      case 4: *value = 0x0123'4000; return nullptr;
      case 0:
      case 5: *value = 0; return nullptr;
      default: return "no register there";
    }
  });
  Put<14>(table, [](Host& host, Address address, unsigned long long value) {
    const bool isReset = address == s_registers[2].second;
    (isReset ? host.inSaci : host.startFlag) = value == (isReset ? 0x5C : 2);
    Check(isReset || address == s_registers[0].second, "WriteReg to an unknown register");
  });
}

void Reserved() {
  std::fprintf(stderr, "abi-guard: a reserved slot was called\n");
  std::abort();
}

// --- What the host does with the plug-in ---

// The host object's address travels as the one word that the handle is.
using Create = const char* (*)(const char*, const char*, const char*, void* host, Device4** device);

void CallQuestions(Device4& device) {
  bool available = false, within = false, anyWithin = false, handled = false;
  const char* operations = "";
  CheckText(device.Initialize(available, operations), "null", "Initialize");
  Check(available && std::strncmp(operations, "Erase, ", 7) == 0, "what there is");
  CheckText(device.AddressWithin(0xFFFF'FFFF, within), "null", "AddressWithinFlash");
  CheckText(device.RangeWithin(0x1234, 16, anyWithin), "null", "AnyRangeWithinFlash");
  CheckText(device.HandleVerification(0, handled), "null", "HandleVerification");
  Check(within && anyWithin && handled, "an answer is not written");
  const ProgramImage images[2] = {};
  CheckText(device.LoadImages(images, 2), "null", "LoadImages");
}

void CallLoadAndOperation(Device4& device, Host& host) {
  const unsigned char bytes[] = {0x11, 0x22, 0x33};
  const unsigned short shorts[] = {1, 2};
  CheckText(device.Reset(1), "null", "ResetSettings(1)");
  CheckText(device.WriteShorts(shorts, 0x2000'0000, 2, 0), "Unsupported target data type",
            "WriteDataToFlash 16");
  CheckText(device.WriteBytes(bytes, 0x2000'0004, sizeof bytes, -1), "null", "WriteDataToFlash RAM");
  CheckText(device.WriteBytes(bytes, 0x0000'0800, sizeof bytes, 0), "null", "WriteDataToFlash MAIN");
  CheckText(device.Reset(77), "null", "ResetSettings of an unknown state");
  Check(host.ram.empty(), "RAM is written before the load ends");
  CheckText(device.Reset(2), "null", "ResetSettings(2)");
  Check(host.ramAddress == 0x2000'0004 && host.ram == std::vector<std::uint8_t>{0x11, 0x22, 0x33},
        "RAM data does not arrive");
  CheckText(device.Perform("Erase"), "null", "PerformOperation");
  CheckText(device.Perform("Nonsense"), "Unsupported Operation Code: 'Nonsense'", "PerformOperation");
}

void CallFunctions(Device4& device, Host& host) {
  unsigned int count = 0;
  const char* name = "untouched";
  CheckText(device.CountFunctions(count), "null", "GetNumberOfRuneFunctions");
  CheckText(device.FunctionName(count, name), "GetRuneFunctionName(): index is out of range", "one too many");
  CheckText(name, "untouched", "a name of no function");
  CheckText(device.FunctionName(count - 1, name), "null", "GetRuneFunctionName");
  CheckText(name, "SaciAppResetDevice", "the last script function");

  ScriptValue result{{.integer = 0x5555}, 9};
  const ScriptValue text{{.text = "1"}, 2};
  CheckText(device.Execute("EnsureAuthentication", &text, 1, result),
            "Expected an integral value for parameter 1", "ExecuteRuneFunction");
  Check(result.integer == 0x5555 && result.type == 9, "a failure writes a result");
  CheckText(device.Execute("EnterSaci", nullptr, 0, result), "null", "EnterSaci");
  Check(result.integer == 0 && result.type == 0, "a script function's result is not the integer 0");
  host.inSaci = false;
  CheckText(device.Execute("ExitSaci", nullptr, 0, result), "null", "ExitSaci");
}

}  // namespace

int main(int argc, char** argv) {
  void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
  const auto create =
      library != nullptr ? reinterpret_cast<Create>(dlsym(library, "CreateFlashDevice4")) : nullptr;
  if (create == nullptr) {
    std::fprintf(stderr, "usage: abi-guard LIBRARY\n%s\n", argc == 2 ? dlerror() : "");
    return 2;
  }
  Table table;
  table.fill(Reserved);
  PutMessagesAndCores(table);
  PutMemoryAndRegisters(table);
  Host host{.table = table.data()};
  Device4* device = nullptr;
  CheckText(create("first", "second", "third", &host, &device), "null", "CreateFlashDevice4");
  if (device == nullptr) return 1;
  CheckText(host.firstInfo.c_str(), "Flash loader: Serin_Corvel_FLASH_LIBRARY_VERSION 4.2.0.187", "banner");
  CallQuestions(*device);
  CallLoadAndOperation(*device, host);
  CallFunctions(*device, host);
  device->Delete();
  Check(host.used.size() == 17, "not every function of the host's table was called");
  return s_faults == 0 ? 0 : 1;
}
