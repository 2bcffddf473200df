// The library as a host meets it: its entry, the frame around the device, script values, memory.

#include <memory>

#include "DeviceTest.h"
#include "ExceptionSafeFlashDevice.h"
#include "FlashDeviceTovik.h"

namespace {

using Address = Debugger::Address;
constexpr unsigned long long kAbove32Bits = 0x1'0000'0000;

struct AdapterTest : testing::Test {
  FakeHost host;
  PluginDevice device{host};
};
using AdapterDeathTest = AdapterTest;

TEST(PluginCreation, LooksUpTheRegistersAndSaysItsVersion) {
  FakeHost host;
  const PluginDevice device(host);
  EXPECT_EQ(Joined(host.calls), Joined({"SetCoreById CS_DAP_0", "LookupReg SECAP_TXCTL",
                                        "LookupReg SECAP_RXCTL", "LookupReg CFGAP_DEVICESTATUS",
                                        "ReportInfo Flash loader: Serin_Corvel_FLASH_LIBRARY_VERSION "
                                        "4.2.0.187"}));
}

TEST_F(AdapterTest, TellsTheHostWhatThereIsAndThatEveryAddressIsFlash) {
  bool available = false, within = false, anyWithin = false, handled = false;
  const char* text = nullptr;
  ASSERT_EQ(Outcome(device->Initialize(available, text)), "ok");
  std::string told = text;
  EXPECT_EQ(Outcome(device->AddressWithinFlash(Address(0xFFFFFFFFU), within)), "ok");
  EXPECT_EQ(Outcome(device->AnyRangeWithinFlash(Address(0U), -1, anyWithin)), "ok");
  EXPECT_EQ(Outcome(device->HandleVerification(Address(0U), handled)), "ok");
  EXPECT_TRUE(available && within && anyWithin && handled);
  EXPECT_EQ(Outcome(device->LoadImages(nullptr, 0)), "ok");
  unsigned count = 0;
  ASSERT_EQ(Outcome(device->GetNumberOfRuneFunctions(count)), "ok");
  for (unsigned i = 0; i < count; ++i) {
    ASSERT_EQ(Outcome(device->GetRuneFunctionName(i, text)), "ok");
    told += std::string(" | ") + text;
  }
  EXPECT_EQ(told,
            "Erase, ChipEraseRetain, BlankCheck, ProgramHsmImage, ReadHsmSysInfo, ReadHsmUpdateStatus"
            " | EnsureAuthentication | EnterSaci | ExitSaci | SaciAppResetDevice");
}

TEST_F(AdapterTest, AFailureLeavesTheResultsAsTheyWere) {
  const char* const untouched = "untouched";
  host.properties.erase("SectorSize");
  bool available = false;
  const char* text = untouched;
  EXPECT_EQ(Outcome(device->Initialize(available, text)), "Unknown property \"SectorSize\"");
  EXPECT_FALSE(available);
  EXPECT_EQ(Outcome(device->GetRuneFunctionName(4, text)), "GetRuneFunctionName(): index is out of range");
  EXPECT_EQ(text, untouched);
  C_RuneValue result(77);
  EXPECT_EQ(Outcome(device->ExecuteRuneFunction("EnsureAuthentication", nullptr, 0, result)),
            "Expected at least 1 parameters, but got 0");
  EXPECT_EQ(result.integer, 77);

  host.properties["SectorSize"] = "800";  // the object outlives its failures
  EXPECT_EQ(Outcome(device->Initialize(available, text)), "ok");
  EXPECT_TRUE(available);
}

TEST_F(AdapterTest, WhatIsNotOfferedIsRefusedWithoutTouchingAnything) {
  const char* earlier = device->PerformOperation("a");
  host.ForgetCalls();
  const unsigned short data[] = {1, 2};
  EXPECT_EQ(Outcome(device->WriteDataToFlash(data, Address(0U), 2, 0)), "Unsupported target data type");
  EXPECT_EQ(Outcome(device->WriteDataToFlash(static_cast<const unsigned short*>(nullptr),
                                             Address(kAbove32Bits), -1, -1)),
            "Unsupported target data type");
  EXPECT_STREQ(earlier, "Unsupported Operation Code: 'a'");
  for (const char* name : {"entersaci", "EnterSac", "EnterSaci ", ""})
    EXPECT_EQ(device.Script(name), "ExecuteRuneFunction(): unknown function") << name;
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(AdapterDeathTest, AnAddressAbove32BitsStopsTheProcess) {
  const Address above(kAbove32Bits);
  const unsigned char byte = 0;
  bool answer = false;
  EXPECT_DEATH(device->AddressWithinFlash(above, answer), "include/IFlashDevice2.*false");
  EXPECT_DEATH(device->WriteDataToFlash(&byte, above, 1, 0), "include/IFlashDevice2.*false");
  host.ScriptRegister("CFGAP_DEVICESTATUS", {kAbove32Bits + 0x2005});
  EXPECT_DEATH((void)device.Script("EnterSaci"), "source/FlashDeviceTovik.*false");
}

TEST_F(DeviceTest, AMissingPropertyWithADefaultIsAskedForOnce) {
  Play("-ScfgBase; -FlashVerboseMode; start init");
  EXPECT_EQ(CallCount("GetProperty ScfgBase"), 1U);
  EXPECT_EQ(CallCount("GetProperty FlashVerboseMode"), 1U);
}

TEST(HostMemory, ARangeIsOneCallWithTheWidthOfItsElements) {
  FakeHost host;
  host.currentCore = "CS_DAP_0";
  IFlashProgrammerUtility2 utility = host.Utility();
  const Bytes bytes = {0x01, 0x02, 0xFF}, none;
  Words words = {0x11223344, 0x55667788};
  utility.WriteMemory(bytes.begin(), bytes.end(), Address(0x20000000U), -2);
  utility.WriteMemory(words.data(), words.data() + 2, Address(0x20000000U), 1);
  utility.ReadMemory(words.data(), words.data() + 2, Address(0x20000000U), -1);
  utility.WriteMemory(none.begin(), none.end(), Address(0U), 0);
  utility.ReadMemory(words.data(), words.data(), Address(0U), 0);
  EXPECT_EQ(Joined(host.calls),
            Joined({"WriteMemory CS_DAP_0 @0x20000000 page -2 size 1 x3: 01 02 FF",
                    "WriteMemory CS_DAP_0 @0x20000000 page 1 size 4 x2: 11223344 55667788",
                    "ReadMemory CS_DAP_0 @0x20000000 page -1 size 4 x2"}));
}

// What the plug-in's own device never does: to throw what is no std::exception, to have no names at first, to
// return a text.
struct OddDevice : FlashDeviceTovik {
  using FlashDeviceTovik::FlashDeviceTovik;
  static void PerformOperation(const std::string&) { throw 7; }
  std::vector<std::string> GetRuneFunctionNames() {
    if (++asked == 1) throw std::runtime_error("no names yet");
    return {"echo", std::to_string(asked)};
  }
  static RuneValue ExecuteRuneFunction(const std::string&, const std::vector<RuneValue>& params) {
    return params.at(0);
  }

  int asked = 0;
};

C_RuneValue TextRecord(const char* text) {
  C_RuneValue record(0);
  record.type = C_RuneValue::kText;
  record.text = text;
  return record;
}

const C_RuneValue& RecordOf(const RuneValue& value) {
  return value;
}

TEST(AdapterFrame, PassesOnWhatTheDeviceDoes) {
  using Factory = FlashDeviceFactory4<OddDevice, unsigned char, unsigned int>;
  IFlashDevice4* adapter = nullptr;
  FakeHost host;
  EXPECT_EQ(Outcome(Factory::MakeExceptionSafe("", "", "", host.Utility(), &adapter)), "ok");
  EXPECT_THROW(adapter->PerformOperation(""), int);  // only standard exceptions become texts

  unsigned count = 0;
  const char* name = nullptr;
  EXPECT_EQ(Outcome(adapter->GetNumberOfRuneFunctions(count)), "no names yet");
  EXPECT_EQ(Outcome(adapter->GetNumberOfRuneFunctions(count)), "ok");
  EXPECT_EQ(Outcome(adapter->GetRuneFunctionName(1, name)), "ok");
  EXPECT_STREQ(name, "2");  // asked for until they are answered

  // A text outlives the host's buffer and a failed call.
  std::string buffer = "a text too long for a small buffer";
  const C_RuneValue text = TextRecord(buffer.c_str());
  C_RuneValue result(0);
  EXPECT_EQ(Outcome(adapter->ExecuteRuneFunction("echo", &text, 1, result)), "ok");
  buffer.assign(buffer.size(), 'x');
  EXPECT_NE(Outcome(adapter->ExecuteRuneFunction("Echo", nullptr, 0, result)), "ok");
  ASSERT_EQ(result.type, C_RuneValue::kText);
  EXPECT_STREQ(result.text, "a text too long for a small buffer");
  adapter->Delete();
}

TEST(RuneValue, EachPointsAtItsOwnText) {
  const std::string words = "a text too long for a small buffer";
  auto buffer = std::make_unique<std::string>(words);
  auto source = std::make_unique<RuneValue>(TextRecord(buffer->c_str()));
  buffer.reset();
  EXPECT_EQ(RecordOf(*source).text, words);

  const RuneValue copied(*source);
  RuneValue assigned(5);
  assigned = *source;
  std::vector<RuneValue> moved(1, *source);
  moved.reserve(moved.capacity() + 1);
  source.reset();
  for (const RuneValue& copy : {copied, assigned, moved.front()}) EXPECT_EQ(RecordOf(copy).text, words);
  assigned = RuneValue(-7);
  EXPECT_TRUE(assigned.IsInteger());
  EXPECT_EQ(assigned.ToLongLong(), -7);

  const RuneValue null(TextRecord(nullptr));  // until it is copied
  EXPECT_EQ(RecordOf(null).text, nullptr);
  const RuneValue copyOfNull(null);
  EXPECT_STREQ(RecordOf(copyOfNull).text, "");
}

TEST(RuneValue, OtherTypesPassUnchanged) {
  C_RuneValue record(0x1234567890);
  record.type = 3;
  const RuneValue value = RuneValue(record);
  EXPECT_FALSE(value.IsInteger());
  EXPECT_EQ(RecordOf(value).type, 3U);
  EXPECT_EQ(RecordOf(value).integer, 0x1234567890);
}

TEST(RuneValueDeathTest, ATextReadAsANumberStopsTheProcess) {
  const RuneValue value(TextRecord("1"));
  EXPECT_DEATH((void)value.ToLongLong(), "include/RuneValue.*IsInteger\\(\\)");
}

}  // namespace
