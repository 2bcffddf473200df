#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ExceptionSafeFlashDevice.h"

// The interface written down once more, from the host's side and without the plug-in's types: addresses and
// states are plain numbers. Not in an unnamed namespace: the compiler must believe that somebody implements
// these.
namespace host_side {

struct ScriptValue {
  union {
    long long number;
    const char* text;
  };
  unsigned type;
};

class Device2 {
 public:
  virtual const char* Initialize(bool& available, const char*& operations) = 0;
  virtual const char* AddressWithinFlash(unsigned long long address, bool& within) = 0;
  virtual const char* AnyRangeWithinFlash(unsigned long long address, int length, bool& within) = 0;
  virtual const char* WriteBytes(const void* data, unsigned long long address, int count, short page) = 0;
  virtual const char* WriteShorts(const void* data, unsigned long long address, int count, short page) = 0;
  virtual const char* PerformOperation(const char* operation) = 0;
  virtual const char* ResetSettings(int state) = 0;
  virtual const char* HandleVerification(unsigned long long address, bool& handled) = 0;
  virtual void Delete() = 0;

 protected:
  ~Device2() = default;
};

class Device3 : public virtual Device2 {
 public:
  virtual const char* LoadImages(const void* images, unsigned count) = 0;
  virtual ~Device3() = default;
};

class Device4 : public virtual Device3 {
 public:
  virtual const char* NumberOfFunctions(unsigned& count) = 0;
  virtual const char* FunctionName(unsigned index, const char*& name) = 0;
  virtual const char* ExecuteFunction(const char* name, const ScriptValue* params, unsigned count,
                                      ScriptValue& result) = 0;
};

}  // namespace host_side

namespace {

// What the devices of the running test were told.
std::vector<std::string> s_calls;

void Record(const std::string& call) {
  s_calls.push_back(call);
}

// Records what the adapter passes on. The operations "fail" and "fail oddly" throw; the script function
// "echo" returns its first parameter.
struct RecordingDevice {
  RecordingDevice(const std::string& first, const std::string& second, const std::string& third,
                  IFlashProgrammerUtility2) {
    Record("made of " + first + ", " + second + ", " + third);
  }
  RecordingDevice(const RecordingDevice&) = delete;
  RecordingDevice& operator=(const RecordingDevice&) = delete;
  ~RecordingDevice() { Record("ended"); }

  void Initialize() { Record("Initialize"); }
  [[nodiscard]] bool FlashAvailable() const { return true; }
  [[nodiscard]] const char* ListSupportedOperations() const { return "Erase, Fill"; }
  bool AddressWithinFlash(unsigned address) {
    Record("AddressWithinFlash " + std::to_string(address));
    return true;
  }
  bool AnyRangeWithinFlash(unsigned address, int length) {
    Record("AnyRangeWithinFlash " + std::to_string(address) + " " + std::to_string(length));
    return true;
  }
  void WriteDataToFlash(const unsigned char* data, unsigned address, int count, short page) {
    Record("WriteDataToFlash " + std::to_string(data[0]) + " " + std::to_string(address) + " " +
           std::to_string(count) + " " + std::to_string(page));
  }
  void PerformOperation(const std::string& operation) {
    Record("PerformOperation " + operation);
    if (operation == "fail") throw std::runtime_error("failed");
    if (operation == "fail oddly") throw 7;
  }
  void ResetSettings(ProgramState state) {
    Record("ResetSettings " + std::to_string(static_cast<int>(state)));
  }
  bool HandleVerification(unsigned address) {
    Record("HandleVerification " + std::to_string(address));
    return true;
  }
  void LoadImages(const std::vector<Debugger::ProgramImage>& images) {
    Record("LoadImages " + std::to_string(images.size()) + ", the last " +
           std::to_string(images.back().opaque[2]));
  }
  std::vector<std::string> GetRuneFunctionNames() {
    Record("GetRuneFunctionNames");
    if (failNames) {
      failNames = false;
      throw std::runtime_error("no names yet");
    }
    return {"first", "echo"};
  }
  RuneValue ExecuteRuneFunction(const std::string& name, const std::vector<RuneValue>& params) {
    Record("ExecuteRuneFunction " + name + " " + std::to_string(params.size()));
    return params.front();
  }

  bool failNames = true;
};

std::string Outcome(const char* error) {
  return error == nullptr ? "ok" : error;
}

host_side::ScriptValue Text(const char* text) {
  host_side::ScriptValue value{};
  value.text = text;
  value.type = 2;
  return value;
}

// What the devices were told since the last question.
std::vector<std::string> Told() {
  return std::exchange(s_calls, {});
}

IFlashDevice4* MakeAdapter() {
  using Factory = FlashDeviceFactory4<RecordingDevice, unsigned char, unsigned int>;
  IFlashDevice4* adapter = nullptr;
  EXPECT_EQ(Outcome(Factory::MakeExceptionSafe("a", "b", "c", IFlashProgrammerUtility2(nullptr), &adapter)),
            "ok");
  return adapter;
}

// The two declarations are different types to the sanitizer; that they are one layout is what is tested.
__attribute__((no_sanitize("undefined"))) void CallEverySlot(host_side::Device4& device) {
  using Calls = std::vector<std::string>;
  bool available = false, within = false, anyWithin = false, handled = false;
  const char* text = nullptr;
  EXPECT_EQ(Told(), Calls{"made of a, b, c"});
  EXPECT_EQ(Outcome(device.Initialize(available, text)), "ok");
  EXPECT_EQ(Told(), Calls{"Initialize"});
  EXPECT_TRUE(available);
  EXPECT_STREQ(text, "Erase, Fill");

  EXPECT_EQ(Outcome(device.AddressWithinFlash(0xFFFFFFFF, within)), "ok");
  EXPECT_TRUE(within);
  EXPECT_EQ(Told(), Calls{"AddressWithinFlash 4294967295"});
  EXPECT_EQ(Outcome(device.AnyRangeWithinFlash(16, -1, anyWithin)), "ok");
  EXPECT_TRUE(anyWithin);
  EXPECT_EQ(Told(), Calls{"AnyRangeWithinFlash 16 -1"});

  const unsigned char byte = 200;
  EXPECT_EQ(Outcome(device.WriteBytes(&byte, 0x80000000, 1, -2)), "ok");
  EXPECT_EQ(Told(), Calls{"WriteDataToFlash 200 2147483648 1 -2"});
  EXPECT_EQ(Outcome(device.WriteShorts(&byte, 16, 1, 0)), "Unsupported target data type");
  EXPECT_EQ(Told(), Calls{});

  EXPECT_EQ(Outcome(device.PerformOperation("Erase")), "ok");
  EXPECT_EQ(Told(), Calls{"PerformOperation Erase"});
  EXPECT_EQ(Outcome(device.ResetSettings(77)), "ok");
  EXPECT_EQ(Told(), Calls{"ResetSettings 77"});
  EXPECT_EQ(Outcome(device.HandleVerification(16, handled)), "ok");
  EXPECT_TRUE(handled);
  EXPECT_EQ(Told(), Calls{"HandleVerification 16"});

  const unsigned long long images[2][3] = {{1, 2, 3}, {4, 5, 6}};
  EXPECT_EQ(Outcome(device.LoadImages(images, 2)), "ok");
  EXPECT_EQ(Told(), Calls{"LoadImages 2, the last 6"});

  unsigned count = 0;
  EXPECT_EQ(Outcome(device.NumberOfFunctions(count)), "no names yet");
  EXPECT_EQ(Outcome(device.NumberOfFunctions(count)), "ok");
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(Outcome(device.FunctionName(1, text)), "ok");
  EXPECT_STREQ(text, "echo");
  EXPECT_EQ(Told(), (Calls{"GetRuneFunctionNames", "GetRuneFunctionNames"})) << "asked until it answers";

  // A text comes back as a copy, which neither the host's buffer nor a failed call takes away.
  std::string buffer = "a text too long for a small buffer";
  const host_side::ScriptValue params[] = {Text(buffer.c_str()), {}};
  host_side::ScriptValue result{};
  EXPECT_EQ(Outcome(device.ExecuteFunction("echo", params, 2, result)), "ok");
  EXPECT_EQ(Told(), Calls{"ExecuteRuneFunction echo 2"});
  buffer.assign(buffer.size(), 'x');
  EXPECT_EQ(Outcome(device.ExecuteFunction("Echo", nullptr, 0, result)),
            "ExecuteRuneFunction(): unknown function");
  EXPECT_EQ(Told(), Calls{});
  ASSERT_EQ(result.type, 2U);
  EXPECT_STREQ(result.text, "a text too long for a small buffer");

  device.Delete();
  EXPECT_EQ(Told(), Calls{"ended"});
}

TEST(AdapterFrame, EverySlotReachesItsOperation) {
  CallEverySlot(*reinterpret_cast<host_side::Device4*>(MakeAdapter()));
}

TEST(AdapterFrame, OnlyStandardExceptionsBecomeTexts) {
  IFlashDevice4* const adapter = MakeAdapter();
  EXPECT_EQ(Outcome(adapter->PerformOperation("fail")), "failed");
  EXPECT_THROW(adapter->PerformOperation("fail oddly"), int);
  EXPECT_EQ(Outcome(adapter->PerformOperation("Erase")), "ok");
  adapter->Delete();
  (void)Told();
}

}  // namespace
