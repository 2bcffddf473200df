// Does all that the real plug-in does but for one thing, which is the name of its file: "crash.so" crashes.

#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
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

[[maybe_unused]] const bool s_isLoaded = !Is("early") || raise(SIGABRT) == 0;

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
    return Pass<&Table::setValueOfProperty>(name, value);
  }
  const char* ResetTarget(int kind) { return Pass<&Table::resetTarget>(kind); }
  const char* ReadMemory(void* elements, std::size_t count, Address address, int page, std::size_t size) {
    return Pass<&Table::readMemory>(elements, count, address, page, size);
  }
  const char* WriteMemory(const void* elements, std::size_t count, Address address, int page,
                          std::size_t size) {
    std::uint32_t words[500];
    if (Is("unset") && size == sizeof *words && count > 30 && count < std::size(words)) {
      elements = std::memcpy(words, elements, (count - 1) * size);
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
    if (Is("print")) (void)std::printf("====\n%s\n%s\n", message, message);
    if (Is("blank")) (void)Pass<&Table::reportInfo>("Blank Check: Device flash is blank");
    if (Is("complain")) (void)ReportError("no");
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
    if (Is("slots")) DropSlots();
    return s_create(name, "", "", host.Utility(), &real);
  }

  const char* Initialize(bool& available, const char*& operations) override {
    if (Is("result")) available = true;
    const char* const error = Asked([&] { return real->Initialize(available, operations); });
    if (Is("unlisted")) operations = "";
    return error;
  }
  const char* AddressWithinFlash(Debugger::Address address, bool& within) override {
    return Asked([&] { return real->AddressWithinFlash(address, within); });
  }
  const char* AnyRangeWithinFlash(Debugger::Address address, int length, bool& within) override {
    return Asked([&] { return real->AnyRangeWithinFlash(address, length, within); });
  }
  const char* WriteDataToFlash(const unsigned char* data, Debugger::Address address, int count,
                               short page) override {
    const bool isCcfg = Extract(address) == 0x4C00'0000;
    if (Is("main") && Extract(address) < 0x1000'0000) return nullptr;
    if ((Is("ccfg") && isCcfg) || (Is("state") && hasFailed)) return nullptr;
    return Done([&] { return real->WriteDataToFlash(data, address, count, page); });
  }
  const char* WriteDataToFlash(const unsigned short* data, Debugger::Address address, int count,
                               short page) override {
    return Done([&] { return real->WriteDataToFlash(data, address, count, page); });
  }
  const char* PerformOperation(const char* operation) override {
    return Done([&] { return real->PerformOperation(operation); });
  }
  const char* ResetSettings(ProgramState state) override {
    static std::vector<char*> s_kept;
    if (Is("leave")) s_kept.push_back(new char[100]);
    if (Is("leave")) (void)open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (Is("leave")) std::thread(pause).detach();
    while (Is("memory") && s_kept.size() < 17) s_kept.push_back(new char[1U << 26]);
    return Done([&] { return real->ResetSettings(state); });
  }
  const char* HandleVerification(Debugger::Address address, bool& handled) override {
    return Asked([&] { return real->HandleVerification(address, handled); });
  }
  void Delete() override {
    if (Is("late")) std::abort();
    delete this;
  }
  const char* LoadImages(const Debugger::ProgramImage* images, unsigned count) override {
    return Done([&] { return real->LoadImages(images, count); });
  }
  const char* GetNumberOfRuneFunctions(unsigned& count) override {
    return Asked([&] { return real->GetNumberOfRuneFunctions(count); });
  }
  const char* GetRuneFunctionName(unsigned index, const char*& name) override {
    if (Is("result")) return real->GetRuneFunctionName(0, name);
    return Told(real->GetRuneFunctionName(index, name));
  }
  const char* ExecuteRuneFunction(const char* name, const C_RuneValue* params, unsigned count,
                                  C_RuneValue& result) override {
    if (Is("result")) result.integer = 0;
    return Done([&] { return real->ExecuteRuneFunction(name, params, count, result); });
  }

 private:
  template <typename Call>
  const char* Asked(Call call) {
    return Is("unwritten") ? nullptr : Told(call());
  }
  template <typename Call>
  const char* Done(Call call) {
    if (Is("idle")) return nullptr;
    const char* const error = Is("refuse") ? "no" : call();
    if (Is("spoil")) (void)real->PerformOperation("Erase");
    return Told(error);
  }
  const char* Told(const char* error) {
    if (error == nullptr) return nullptr;
    hasFailed = true;
    if (Is("throw")) throw std::runtime_error(error);
    if (Is("success") || (Is("crc") && std::strstr(error, "CRC32 does not match") != nullptr)) return nullptr;
    return Is("silent") ? "" : error;
  }

  // Gives the object tables of its own, with what stands before their beginning.
  void DropSlots() {
    static const void* s_tables[3][32];
    void* const objects[] = {static_cast<IFlashDevice2*>(this), static_cast<IFlashDevice3*>(this),
                             static_cast<IFlashDevice4*>(this)};
    for (std::size_t i = 0; i < std::size(objects); ++i) {
      const void** table = nullptr;
      std::memcpy(&table, objects[i], sizeof table);
      std::copy_n(table - 17, 17, s_tables[i]);
      table = s_tables[i] + 17;
      table[14] = reinterpret_cast<const void*>(&__cxxabiv1::__cxa_pure_virtual);
      std::memcpy(objects[i], &table, sizeof table);
    }
  }

  BrokenHost host;
  IFlashDevice4* real = nullptr;
  bool hasFailed = false;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const char* CreateFlashDevice4(
    const char* name, const char*, const char*, IFlashProgrammerUtility2 utility, IFlashDevice4** device) {
  static std::string s_error;
  if (Is("none")) return nullptr;
  auto* const made = new BrokenDevice(utility);
  const char* const error = made->Create(name);
  if (error == nullptr) {
    *device = made;
    return nullptr;
  }
  s_error = error;
  if (Is("result")) *device = nullptr;
  delete made;
  return Is("silent") ? "" : s_error.c_str();
}
