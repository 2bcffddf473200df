#pragma once

#include <algorithm>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "IFlashDevice2.h"

// The frame between the host's error texts and the device's exceptions. `Device` fails by throwing
// std::exception; every wrapper turns that into a text and leaves its results unwritten. Exceptions of other
// types are outside the device's contract and pass through.

namespace Detail {

// Copies the text to `kept`, which the host then reads. Where there is no memory for it, and that may be the
// very failure to be told, the host gets a text that needs none.
inline const char* KeepErrorText(std::string& kept, const char* text) noexcept {
  try {
    kept = text;
    return kept.c_str();
  } catch (...) {
    return "Not enough memory to tell what failed";
  }
}

}  // namespace Detail

template <typename Converter, typename Device, typename DataType>
class ExceptionSafeFlashDevice : public virtual IFlashDevice2 {
 public:
  ExceptionSafeFlashDevice(const char* text1, const char* text2, const char* text3,
                           IFlashProgrammerUtility2 utility)
      : device(std::string(text1), std::string(text2), std::string(text3), utility) {}

  const char* Initialize(bool& flashAvailable, const char*& supportedOperations) override {
    return ErrorTextOf([&] {
      device.Initialize();
      flashAvailable = device.FlashAvailable();
      supportedOperations = device.ListSupportedOperations();
    });
  }

  const char* AddressWithinFlash(Debugger::Address address, bool& within) override {
    return ErrorTextOf([&] { within = device.AddressWithinFlash(Converter::Convert(address)); });
  }

  const char* AnyRangeWithinFlash(Debugger::Address address, int length, bool& anyWithin) override {
    return ErrorTextOf([&] { anyWithin = device.AnyRangeWithinFlash(Converter::Convert(address), length); });
  }

  const char* WriteDataToFlash(const unsigned char* data, Debugger::Address address, int count,
                               short page) override {
    return WriteDataToFlashImpl(data, address, count, page);
  }

  const char* WriteDataToFlash(const unsigned short* data, Debugger::Address address, int count,
                               short page) override {
    return WriteDataToFlashImpl(data, address, count, page);
  }

  const char* PerformOperation(const char* operation) override {
    return ErrorTextOf([&] { device.PerformOperation(std::string(operation)); });
  }

  const char* ResetSettings(ProgramState state) override {
    return ErrorTextOf([&] { device.ResetSettings(state); });
  }

  const char* HandleVerification(Debugger::Address address, bool& handled) override {
    return ErrorTextOf([&] { handled = device.HandleVerification(Converter::Convert(address)); });
  }

 protected:
  ~ExceptionSafeFlashDevice() = default;

  template <typename Call>
  const char* ErrorTextOf(Call&& call) {
    try {
      std::forward<Call>(call)();
      return nullptr;
    } catch (const std::exception& error) {
      return Detail::KeepErrorText(lastError, error.what());
    }
  }

  Device device;

 private:
  template <typename Element>
  const char* WriteDataToFlashImpl(const Element* data, Debugger::Address address, int count, short page) {
    if constexpr (std::is_same_v<Element, DataType>) {
      return ErrorTextOf([&] { device.WriteDataToFlash(data, Converter::Convert(address), count, page); });
    } else {
      return "Unsupported target data type";
    }
  }

  std::string lastError;
};

template <typename Converter, typename Device, typename DataType>
class ExceptionSafeFlashDevice2 : public ExceptionSafeFlashDevice<Converter, Device, DataType>,
                                  public virtual IFlashDevice3 {
 public:
  using ExceptionSafeFlashDevice<Converter, Device, DataType>::ExceptionSafeFlashDevice;

  const char* LoadImages(const Debugger::ProgramImage* images, unsigned int count) override {
    return this->ErrorTextOf(
        [&] { this->device.LoadImages(std::vector<Debugger::ProgramImage>(images, images + count)); });
  }
};

template <typename Converter, typename Device, typename DataType>
class ExceptionSafeFlashDevice4 final : public ExceptionSafeFlashDevice2<Converter, Device, DataType>,
                                        public virtual IFlashDevice4 {
 public:
  using ExceptionSafeFlashDevice2<Converter, Device, DataType>::ExceptionSafeFlashDevice2;
  ~ExceptionSafeFlashDevice4() override = default;

  void Delete() override { delete this; }

  const char* GetNumberOfRuneFunctions(unsigned int& count) override {
    return this->ErrorTextOf([&] {
      InitializeRuneFunctionNames();
      count = static_cast<unsigned int>(functionNames.size());
    });
  }

  const char* GetRuneFunctionName(unsigned int index, const char*& name) override {
    return this->ErrorTextOf([&] {
      InitializeRuneFunctionNames();
      if (index >= functionNames.size())
        throw std::runtime_error("GetRuneFunctionName(): index is out of range");
      name = functionNames[index].c_str();
    });
  }

  const char* ExecuteRuneFunction(const char* name, const C_RuneValue* params, unsigned int paramCount,
                                  C_RuneValue& result) override {
    return this->ErrorTextOf([&] {
      InitializeRuneFunctionNames();
      const std::string wanted(name);
      if (std::find(functionNames.begin(), functionNames.end(), wanted) == functionNames.end())
        throw std::runtime_error("ExecuteRuneFunction(): unknown function");
      lastResult =
          this->device.ExecuteRuneFunction(wanted, std::vector<RuneValue>(params, params + paramCount));
      result = static_cast<const C_RuneValue&>(lastResult);
    });
  }

 private:
  void InitializeRuneFunctionNames() {
    if (functionNamesInitialized) return;
    functionNames = this->device.GetRuneFunctionNames();
    functionNamesInitialized = true;
  }

  bool functionNamesInitialized = false;
  std::vector<std::string> functionNames;
  RuneValue lastResult{0};
};

template <typename Device, typename DataType, typename ConvertedAddress>
struct FlashDeviceFactory4 {
  // On success stores a heap object in `*device`, which its Delete() ends. A failure's text is valid until
  // the next failed creation on the same thread, or the thread's end.
  static const char* MakeExceptionSafe(const char* text1, const char* text2, const char* text3,
                                       IFlashProgrammerUtility2 utility, IFlashDevice4** device) {
    using Adapter = ExceptionSafeFlashDevice4<Detail::DefaultConverter<ConvertedAddress>, Device, DataType>;
    try {
      *device = new Adapter(text1, text2, text3, utility);
      return nullptr;
    } catch (const std::exception& error) {
      // In the room that a thread has from its start: nothing is allocated for it, which could fail again.
      [[gnu::tls_model("initial-exec")]] thread_local std::string sLastError;
      return Detail::KeepErrorText(sLastError, error.what());
    }
  }
};
