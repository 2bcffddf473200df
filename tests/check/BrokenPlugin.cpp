// Does all that the real plug-in does but for one thing, which is the name of its file: "crash.so" crashes.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "IFlashDevice2.h"
#include "host/plugin/HostTable.h"

namespace {

bool Is(std::string_view fault) {
  static const std::string s_fault = [] {
    Dl_info self{};
    (void)dladdr(reinterpret_cast<const void*>(&Is), &self);
    return std::filesystem::path(self.dli_fname).stem().string();
  }();
  return s_fault == fault;
}

class BrokenHost final : public HostObject {
 public:
  explicit BrokenHost(HostObject* realHost) : HostObject{&s_table}, real(realHost) {}
  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

 private:
  friend class host::HostTable<BrokenHost>;
  using Address = Debugger::Address;
  using Table = HostFunctionTable;

  template <auto slot, typename... Arguments>
  const char* Pass(Arguments... arguments) {
    isAfterTransfer = false;
    const char* const error = (real->table->*slot)(real, arguments...);
    if (error == nullptr) return nullptr;
    if (Is("crash")) std::abort();
    if (Is("exit")) _exit(0);
    while (Is("hang")) (void)pause();
    return error;
  }

  const char* GetValueOfProperty(const char* name) { return real->table->getValueOfProperty(real, name); }
  const char* SetValueOfProperty(const char* name, const char* value) {
    const bool isSize = std::strcmp(name, "DeviceInfoFlashSize") == 0;
    return Pass<&Table::setValueOfProperty>(name, Is("size") && isSize ? "1 KB" : value);
  }
  const char* ResetTarget(int kind) { return Pass<&Table::resetTarget>(kind); }
  const char* ReadMemory(void* elements, std::size_t count, Address address, int page, std::size_t size) {
    return Pass<&Table::readMemory>(elements, count, address, page, size);
  }
  const char* WriteMemory(const void* elements, std::size_t count, Address address, int page,
                          std::size_t size) {
    std::uint32_t words[500];
    if ((Is("unset") || Is("long")) && size == sizeof *words && count > 30 && count < std::size(words)) {
      elements = std::memcpy(words, elements, (count - 1) * size);
      count += Is("long") ? 1U : 0U;
    }
    const char* const error = Pass<&Table::writeMemory>(elements, count, address, page, size);
    isAfterTransfer = true;
    return error;
  }
  const char* LookupReg(const char* name, Address* address) { return Pass<&Table::lookupReg>(name, address); }
  const char* ReadReg(Address address, unsigned long long* value) {
    return Pass<&Table::readReg>(address, value);
  }
  const char* WriteReg(Address address, unsigned long long value) {
    const char* const error = Pass<&Table::writeReg>(address, value);
    return Is("swallow") ? nullptr : error;
  }
  const char* ReportError(const char* message) { return Pass<&Table::reportError>(message); }
  const char* ReportInfo(const char* message) {
    std::string text = message;
    if (const auto at = text.find(" 4."); Is("version") && at != std::string::npos) text[at + 1] = '3';
    if (Is("print")) (void)std::puts(message);
    return Pass<&Table::reportInfo>(text.c_str());
  }
  const char* Sleep(unsigned milliseconds) { return Pass<&Table::sleep>(milliseconds); }
  const char* SetCore(const char* name) { return Pass<&Table::setCore>(name); }
  const char* Disconnect(bool option) { return Pass<&Table::disconnect>(option); }
  const char* IsConnected(bool* connected) { return Pass<&Table::isConnected>(connected); }
  const char* SetCoreById(const char* id) {
    return Is("keep-port") && isAfterTransfer ? nullptr : Pass<&Table::setCoreById>(id);
  }
  const char* Connect(bool option) { return Is("connect") ? nullptr : Pass<&Table::connect>(option); }
  const char* ReConnect() { return Pass<&Table::reConnect>(); }
  const char* ReservedFunction(int) { std::abort(); }

  static const HostFunctionTable s_table;
  HostObject* real;
  bool isAfterTransfer = false;
};

const HostFunctionTable BrokenHost::s_table = host::HostTable<BrokenHost>::Make();

class BrokenDevice final : public virtual IFlashDevice4 {
 public:
  explicit BrokenDevice(IFlashProgrammerUtility2 utility) : host(std::bit_cast<HostObject*>(utility)) {}
  ~BrokenDevice() override {
    if (real != nullptr) real->Delete();
  }
  BrokenDevice(const BrokenDevice&) = delete;
  BrokenDevice& operator=(const BrokenDevice&) = delete;

  const char* Create(const char* name) {
    static const auto s_create = reinterpret_cast<decltype(&CreateFlashDevice4)>(
        dlsym(dlopen(TOVIK_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL), "CreateFlashDevice4"));
    if (Is("slot")) DropLastSlot();
    return s_create(name, "", "", host.Utility(), &real);
  }

  const char* Initialize(bool& available, const char*& operations) override {
    if (Is("result")) available = true;
    return Told(real->Initialize(available, operations));
  }
  const char* AddressWithinFlash(Debugger::Address address, bool& within) override {
    return real->AddressWithinFlash(address, within);
  }
  const char* AnyRangeWithinFlash(Debugger::Address address, int length, bool& within) override {
    return real->AnyRangeWithinFlash(address, length, within);
  }
  const char* WriteDataToFlash(const unsigned char* data, Debugger::Address address, int count,
                               short page) override {
    std::vector<unsigned char> bytes(data, data + count);
    if (Is("byte")) bytes.back() ^= 1U;
    const bool isCcfg = Extract(address) == 0x4C00'0000;
    if (Is("main") && Extract(address) < 0x1000'0000) return nullptr;
    if ((Is("ccfg") && isCcfg) || (Is("state") && hasFailed)) return nullptr;
    return Told(real->WriteDataToFlash(bytes.data(), address, count, page));
  }
  const char* WriteDataToFlash(const unsigned short* data, Debugger::Address address, int count,
                               short page) override {
    return real->WriteDataToFlash(data, address, count, page);
  }
  const char* PerformOperation(const char* operation) override {
    if (Is("erase") && std::strcmp(operation, "Erase") == 0) return nullptr;
    return Told(real->PerformOperation(operation));
  }
  const char* ResetSettings(ProgramState state) override {
    static std::vector<char*> s_kept;
    if (Is("leak")) s_kept.push_back(new char[100]);
    if (Is("file")) (void)open("/dev/null", O_RDONLY | O_CLOEXEC);
    while (Is("memory")) s_kept.push_back(new char[1U << 26]);
    return Told(real->ResetSettings(state));
  }
  const char* HandleVerification(Debugger::Address address, bool& handled) override {
    return real->HandleVerification(address, handled);
  }
  void Delete() override { delete this; }
  const char* LoadImages(const Debugger::ProgramImage* images, unsigned count) override {
    return real->LoadImages(images, count);
  }
  const char* GetNumberOfRuneFunctions(unsigned& count) override {
    return real->GetNumberOfRuneFunctions(count);
  }
  const char* GetRuneFunctionName(unsigned index, const char*& name) override {
    return real->GetRuneFunctionName(index, name);
  }
  const char* ExecuteRuneFunction(const char* name, const C_RuneValue* params, unsigned count,
                                  C_RuneValue& result) override {
    return Told(real->ExecuteRuneFunction(name, params, count, result));
  }

 private:
  const char* Told(const char* error) {
    if (error == nullptr) return nullptr;
    hasFailed = true;
    if (Is("throw")) throw std::runtime_error(error);
    if (Is("success") || (Is("crc") && std::strstr(error, "CRC32 does not match") != nullptr)) return nullptr;
    return Is("silent") ? "" : error;
  }

  // Gives the object a table of its own, with what stands before its beginning.
  void DropLastSlot() {
    static const void* s_table[32];
    void* const object = static_cast<IFlashDevice4*>(this);
    const void** table = nullptr;
    std::memcpy(&table, object, sizeof table);
    std::copy(table - 17, table + 14, s_table);
    table = s_table + 17;
    std::memcpy(object, &table, sizeof table);
  }

  BrokenHost host;
  IFlashDevice4* real = nullptr;
  bool hasFailed = false;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const char* CreateFlashDevice4(
    const char* name, const char*, const char*, IFlashProgrammerUtility2 utility, IFlashDevice4** device) {
  static std::string s_error;
  auto* const made = new BrokenDevice(utility);
  const char* const error = made->Create(name);
  if (error == nullptr) {
    *device = made;
    return nullptr;
  }
  s_error = error;
  made->Delete();
  return s_error.c_str();
}
