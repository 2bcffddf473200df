#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "PluginUnderTest.h"

namespace {

using Address = Debugger::Address;
constexpr unsigned long long kAbove32Bits = 0x1'0000'0000;

// Stand-ins for what the host had in its variables before the call.
IFlashDevice4* const kNoDevice = reinterpret_cast<IFlashDevice4*>(0x10);
const char* const kUntouched = "untouched";

struct AdapterTest : testing::Test {
  FakeHost host;
  PluginDevice device{host};
};
using AdapterDeathTest = AdapterTest;

TEST(PluginLibrary, ExportsTheEntryAndNothingElse) {
  const std::string command = std::string("nm -D --defined-only ") + PluginPath();
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::vector<std::string> symbols;
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    const std::string text(line);
    symbols.push_back(text.substr(text.rfind(' ') + 1));
  }
  ASSERT_EQ(pclose(pipe), 0);
  EXPECT_EQ(symbols, std::vector<std::string>{"CreateFlashDevice4\n"});
}

TEST(PluginCreation, LooksUpTheRegistersAndSaysItsVersion) {
  FakeHost host;
  const PluginDevice device(host);
  EXPECT_EQ(Joined(host.calls), Joined({"SetCoreById CS_DAP_0", "LookupReg SECAP_TXCTL",
                                        "LookupReg SECAP_RXCTL", "LookupReg CFGAP_DEVICESTATUS",
                                        "ReportInfo Flash loader: Serin_Corvel_FLASH_LIBRARY_VERSION "
                                        "4.2.0.187"}));
}

TEST(PluginCreation, FailsWithTheHostsTextWhicheverCallFails) {
  for (unsigned nth = 1; nth <= 5; ++nth) {
    for (const char* text : {"probe unplugged", ""}) {
      FakeHost host;
      host.FailCall(nth, text);
      IFlashDevice4* created = kNoDevice;
      EXPECT_EQ(Outcome(PluginEntry()("", "", "", host.Utility(), &created)), text) << "call " << nth;
      EXPECT_EQ(created, kNoDevice) << "call " << nth;
      EXPECT_EQ(host.calls.size(), nth);
    }
  }
}

TEST(PluginCreation, KeepsOneErrorTextForAllFailures) {
  const auto fail = [](const char* text) {
    FakeHost host;
    host.FailCall(1, text);
    IFlashDevice4* created = nullptr;
    return PluginEntry()("", "", "", host.Utility(), &created);
  };
  const char* first = fail("one");
  fail("two");
  EXPECT_STREQ(first, "two");
}

TEST_F(AdapterTest, InitializeTellsTheHostWhatThereIs) {
  bool available = false;
  const char* operations = nullptr;
  ASSERT_EQ(Outcome(device->Initialize(available, operations)), "ok");
  EXPECT_TRUE(available);
  EXPECT_STREQ(operations,
               "Erase, ChipEraseRetain, BlankCheck, ProgramHsmImage, ReadHsmSysInfo, ReadHsmUpdateStatus");
}

TEST_F(AdapterTest, AFailureLeavesTheResultsAsTheyWere) {
  host.properties.erase("SectorSize");
  bool available = false;
  const char* text = kUntouched;
  EXPECT_EQ(Outcome(device->Initialize(available, text)), "Unknown property \"SectorSize\"");
  EXPECT_FALSE(available);
  EXPECT_EQ(text, kUntouched);

  EXPECT_EQ(Outcome(device->GetRuneFunctionName(4, text)), "GetRuneFunctionName(): index is out of range");
  EXPECT_EQ(text, kUntouched);

  C_RuneValue result(77);
  EXPECT_EQ(Outcome(device->ExecuteRuneFunction("EnsureAuthentication", nullptr, 0, result)),
            "Expected at least 1 parameters, but got 0");
  EXPECT_EQ(result.integer, 77);

  host.properties["SectorSize"] = "800";  // the object outlives its failures
  EXPECT_EQ(Outcome(device->Initialize(available, text)), "ok");
  EXPECT_TRUE(available);
}

TEST_F(AdapterTest, TheNextFailureOverwritesTheTextOfTheOneBefore) {
  const char* first = device->PerformOperation("a");
  EXPECT_STREQ(first, "Unsupported Operation Code: 'a'");
  const char* second = device->PerformOperation("b");
  EXPECT_EQ(second, first);
  EXPECT_STREQ(first, "Unsupported Operation Code: 'b'");
}

TEST_F(AdapterTest, SixteenBitDataIsRefusedWithoutTouchingAnything) {
  const char* earlier = device->PerformOperation("a");
  host.ForgetCalls();
  const unsigned short data[] = {1, 2};
  EXPECT_EQ(Outcome(device->WriteDataToFlash(data, Address(0U), 2, 0)), "Unsupported target data type");
  EXPECT_EQ(Outcome(device->WriteDataToFlash(static_cast<const unsigned short*>(nullptr),
                                             Address(kAbove32Bits), -1, -1)),
            "Unsupported target data type");
  EXPECT_STREQ(earlier, "Unsupported Operation Code: 'a'");
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(AdapterTest, EveryAddressIsFlashAndVerificationIsOurs) {
  const struct {
    unsigned long long address;
    int length;
  } rows[] = {{0, 0}, {0, -1}, {0x20000000, 16}, {0xFFFFFFFF, 0x7FFFFFFF}};
  for (const auto& row : rows) {
    bool within = false, anyWithin = false, handled = false;
    EXPECT_EQ(Outcome(device->AddressWithinFlash(Address(row.address), within)), "ok");
    EXPECT_EQ(Outcome(device->AnyRangeWithinFlash(Address(row.address), row.length, anyWithin)), "ok");
    EXPECT_EQ(Outcome(device->HandleVerification(Address(row.address), handled)), "ok");
    EXPECT_TRUE(within && anyWithin && handled) << row.address;
  }
}

TEST_F(AdapterDeathTest, AnAddressAbove32BitsStopsTheProcess) {
  const Address above(kAbove32Bits);
  const unsigned char byte = 0;
  bool answer = false;
  EXPECT_DEATH(device->AddressWithinFlash(above, answer), "include/IFlashDevice2.*false");
  EXPECT_DEATH(device->AnyRangeWithinFlash(above, 1, answer), "include/IFlashDevice2.*false");
  EXPECT_DEATH(device->HandleVerification(above, answer), "include/IFlashDevice2.*false");
  EXPECT_DEATH(device->WriteDataToFlash(&byte, above, 1, 0), "include/IFlashDevice2.*false");
}

TEST_F(AdapterDeathTest, ARegisterValueAbove32BitsStopsTheProcess) {
  host.ScriptRegister("CFGAP_DEVICESTATUS", {kAbove32Bits + 0x2005});
  EXPECT_DEATH((void)device.Script("EnterSaci"), "source/FlashDeviceTovik.*false");
}

TEST_F(AdapterTest, ImagesAreTakenAndIgnored) {
  host.ForgetCalls();
  const Debugger::ProgramImage images[3] = {};
  EXPECT_EQ(Outcome(device->LoadImages(images, 3)), "ok");
  EXPECT_EQ(Outcome(device->LoadImages(nullptr, 0)), "ok");
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(AdapterTest, ListsTheScriptFunctionsBeforeInitialize) {
  host.ForgetCalls();
  unsigned count = 0;
  ASSERT_EQ(Outcome(device->GetNumberOfRuneFunctions(count)), "ok");
  std::vector<std::string> names;
  for (unsigned i = 0; i < count; ++i) {
    const char* name = nullptr;
    ASSERT_EQ(Outcome(device->GetRuneFunctionName(i, name)), "ok");
    names.emplace_back(name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"EnsureAuthentication", "EnterSaci", "ExitSaci",
                                             "SaciAppResetDevice"}));
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(AdapterTest, AFunctionNameIsMatchedExactlyAndFirst) {
  host.ForgetCalls();
  for (const char* name : {"entersaci", "EnterSac", "EnterSaci ", ""}) {
    EXPECT_EQ(device.Script(name), "ExecuteRuneFunction(): unknown function") << name;
  }
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(AdapterTest, AFunctionsResultIsAnIntegerEvenWhereATextStood) {
  C_RuneValue result(0);
  result.type = C_RuneValue::kText;
  result.text = kUntouched;
  ASSERT_EQ(Outcome(device->ExecuteRuneFunction("EnterSaci", nullptr, 0, result)), "ok");
  EXPECT_EQ(result.type, C_RuneValue::kInteger);
  EXPECT_EQ(result.integer, 0);
}

}  // namespace
