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

template <typename Converter, typename Device, typename DataType>
class ExceptionSafeFlashDevice : public virtual IFlashDevice2 {
 public:
  ExceptionSafeFlashDevice(char const* text1, char const* text2, char const* text3,
                           IFlashProgrammerUtility2 utility)
      : device(std::string(text1), std::string(text2), std::string(text3), utility) {}

  char const* Initialize(bool& flashAvailable, char const*& supportedOperations) override {
    return ErrorTextOf([&] {
      device.Initialize();
      flashAvailable = device.FlashAvailable();
      supportedOperations = device.ListSupportedOperations();
    });
  }

  char const* AddressWithinFlash(Debugger::Address address, bool& within) override {
    return ErrorTextOf([&] { within = device.AddressWithinFlash(Converter::Convert(address)); });
  }

  char const* AnyRangeWithinFlash(Debugger::Address address, int length, bool& anyWithin) override {
    return ErrorTextOf([&] { anyWithin = device.AnyRangeWithinFlash(Converter::Convert(address), length); });
  }

  char const* WriteDataToFlash(unsigned char const* data, Debugger::Address address, int count,
                               short page) override {
    return WriteDataToFlashImpl(data, address, count, page);
  }

  char const* WriteDataToFlash(unsigned short const* data, Debugger::Address address, int count,
                               short page) override {
    return WriteDataToFlashImpl(data, address, count, page);
  }

  char const* PerformOperation(char const* operation) override {
    return ErrorTextOf([&] { device.PerformOperation(std::string(operation)); });
  }

  char const* ResetSettings(ProgramState state) override {
    return ErrorTextOf([&] { device.ResetSettings(state); });
  }

  char const* HandleVerification(Debugger::Address address, bool& handled) override {
    return ErrorTextOf([&] { handled = device.HandleVerification(Converter::Convert(address)); });
  }

 protected:
  ~ExceptionSafeFlashDevice() = default;

  template <typename Call>
  char const* ErrorTextOf(Call&& call) {
    try {
      std::forward<Call>(call)();
      return nullptr;
    } catch (std::exception const& error) {
      lastError = error.what();
      return lastError.c_str();
    }
  }

  Device device;

 private:
  template <typename Element>
  char const* WriteDataToFlashImpl(Element const* data, Debugger::Address address, int count, short page) {
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

  char const* LoadImages(Debugger::ProgramImage const* images, unsigned int count) override {
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

  char const* GetNumberOfRuneFunctions(unsigned int& count) override {
    return this->ErrorTextOf([&] {
      InitializeRuneFunctionNames();
      count = static_cast<unsigned int>(functionNames.size());
    });
  }

  char const* GetRuneFunctionName(unsigned int index, char const*& name) override {
    return this->ErrorTextOf([&] {
      InitializeRuneFunctionNames();
      if (index >= functionNames.size())
        throw std::runtime_error("GetRuneFunctionName(): index is out of range");
      name = functionNames[index].c_str();
    });
  }

  char const* ExecuteRuneFunction(char const* name, C_RuneValue const* params, unsigned int paramCount,
                                  C_RuneValue& result) override {
    return this->ErrorTextOf([&] {
      InitializeRuneFunctionNames();
      std::string const wanted(name);
      if (std::find(functionNames.begin(), functionNames.end(), wanted) == functionNames.end())
        throw std::runtime_error("ExecuteRuneFunction(): unknown function");
      lastResult =
          this->device.ExecuteRuneFunction(wanted, std::vector<RuneValue>(params, params + paramCount));
      result = static_cast<C_RuneValue const&>(lastResult);
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
  // the next failed creation.
  static char const* MakeExceptionSafe(char const* text1, char const* text2, char const* text3,
                                       IFlashProgrammerUtility2 utility, IFlashDevice4** device) {
    using Adapter = ExceptionSafeFlashDevice4<Detail::DefaultConverter<ConvertedAddress>, Device, DataType>;
    try {
      *device = new Adapter(text1, text2, text3, utility);
      return nullptr;
    } catch (std::exception const& error) {
      static std::string sLastError;
      sLastError = error.what();
      return sLastError.c_str();
    }
  }
};
