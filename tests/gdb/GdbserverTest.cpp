#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ServerBench.h"
#include "host/image/ImageWriter.h"

// The built server with the debuggers of Debian as its clients, judged by what they print, what the server
// prints, and the chip's bytes.

namespace {

using Texts = std::vector<std::string>;

enum class Client { Gdb, GdbMi, Lldb };

// One server, one client.
struct Case {
  const char* name;
  Client client = Client::Gdb;
  const char* arguments = "--device serin-s20";  // of the server
  Texts commands;                                // after the client has connected
  Texts clientSays;                              // in this order; "!" before a text: not at all
  Texts serverSays = {};
  const char* chipLike = nullptr;  // the images of a load to the same end
};

const Case s_cases[] = {
    {.name = "LoadsAndCompares",
     .commands = {"file $FIRMWARE/blink-big.elf", "load", "compare-sections .bulk",
                  "compare-sections .session", "x/1xw 0x20007f00", "p/x $pc", "info registers r0",
                  "file flipped.elf", "compare-sections .text", "compare-sections .bulk"},
     .clientSays = {"Loading section .bulk, size 0x40000", "Transfer rate", "Section .bulk", ": matched.",
                    "Section .session", ": matched.", "0x53455353", "$1 = 0x44", "<unavailable>",
                    "Section .text", ": matched.", "Section .bulk", "MIS-MATCHED!"},
     .serverSays = {"Image     the client's load (", "Plan      Chip Erase, then program and verify",
                    "Loaded and verified"},
     .chipLike = "$FIRMWARE/blink-big.elf"},
    {.name = "LoadsAgainAndKeepsNothingOfTheLoadBefore",
     .commands = {"load $FIRMWARE/blink-big.elf", "load $FIRMWARE/blink.elf", "load $FIRMWARE/blink.elf"},
     .clientSays = {"Transfer rate", "Transfer rate", "Transfer rate", "!Error"},
     .chipLike = "$FIRMWARE/blink.elf"},
    {.name = "LoadsASecondFileBesideTheFirst",
     .commands = {"load $FIRMWARE/blink.elf",
                  "monitor set FlashEraseSetting=Do not erase sectors (program load only)",
                  "load sector.hex"},
     .clientSays = {"Transfer rate", "Transfer rate"},
     .chipLike = "$FIRMWARE/blink.elf sector.hex"},
    {.name = "ErasesWhatTheClientForgets",
     .commands = {"load dirty.hex", "load sector.hex"},
     .clientSays = {"Transfer rate", "Transfer rate"},
     .serverSays = {"0x00003000..0x00003800"},
     .chipLike = "sector.hex"},
    {.name = "RefusesAnImageOutsideTheMap",
     .commands = {"load outside.hex", "load $FIRMWARE/blink.elf"},
     .clientSays = {"Load failed", "Transfer rate"},
     .chipLike = "$FIRMWARE/blink.elf"},
    {.name = "LoadsAtTheAlias",
     .arguments = "--device corvel-h50",
     .commands = {"load alias.hex", "x/1xb 0x10003800"},
     .clientSays = {"Transfer rate", "0x10003800:\t0xa5"},
     .serverSays = {"MAIN        0x00003000..0x00003800"}},
    {.name = "RefusesAConfigurationThatLocksTheChip",
     .commands = {"load locking.hex", "monitor report", "load $FIRMWARE/blink.elf"},
     .clientSays = {"Error finishing flash operation",
                    "the load was refused, and nothing was done: ", "Transfer rate"},
     .serverSays = {"PermissionsSetting"},
     .chipLike = "$FIRMWARE/blink.elf"},
    {.name = "TellsOfAChipThatStaysClosed",
     .commands = {"load $FIRMWARE/blink-locked.elf", "file $FIRMWARE/blink-locked.elf",
                  "compare-sections .text", "monitor unlock", "x/1xw 0x20007f00",
                  "monitor set DebugPassword=open-sesame", "monitor unlock", "x/1xw 0",
                  "load $FIRMWARE/blink-locked.elf", "x/1xw 0x20007f00"},
     .clientSays = {"Error finishing flash operation", "debugging stays closed",
                    "Cannot access memory at address 0x20007f00", "debugging is open",
                    "0x0 <vectors>:\t0x20007f00", "Transfer rate", "0x20007f00 <session>:\t0x53455353"},
     .serverSays = {"Data will not be written to RAM", "the chip's memory is closed and cannot be read"}},
    {.name = "TellsOfAFaultAndLoadsAgain",
     .arguments = "--device serin-s20 --fault saci:16:nth=1:result=0x87",
     .commands = {"file $FIRMWARE/blink.elf", "load", "monitor report", "load", "compare-sections .text"},
     .clientSays = {"Error finishing flash operation", "the sector that differs was not found",
                    "Error when verifying flash - ", "At        verify MAIN", "Remedy", "Transfer rate",
                    ": matched."},
     .serverSays = {"Error when verifying flash - ", "Remedy", "Loaded and verified"},
     .chipLike = "$FIRMWARE/blink.elf"},
    {.name = "RefusesALoadAfterDetach",
     .commands = {"detach", "load sector.hex", "target extended-remote :$PORT", "load sector.hex"},
     .clientSays = {"detached]", "!internal-error", "Error erasing flash", "Transfer rate"},
     .chipLike = "sector.hex"},
    {.name = "WritesRamAloneAlsoOfAClosedChip",
     .commands = {"load ram.hex", "x/1xw 0x20000100", "restore word.bin binary 0x20000100",
                  "x/1xw 0x20000100"},
     .clientSays = {"Transfer rate", "0xa5a5a5a5", "0x00000005"}},
    {.name = "RunsNothing",
     .commands = {"file $FIRMWARE/blink.elf", "load", "continue", "flash-erase"},
     .clientSays = {"does not run programs", "Error finishing flash operation"},
     .serverSays = {"'monitor erase' erases the chip"}},
    {.name = "MonitorBeforeAndAfterALoad",
     .commands = {"monitor", "monitor report", "monitor verify", "monitor blank-check",
                  "load $FIRMWARE/blink.elf", "monitor verify", "monitor blank-check", "monitor info"},
     .clientSays = {"monitor report", "nothing has been loaded yet", "nothing has been loaded yet that",
                    "Device flash is blank", "Transfer rate", "the chip holds what was loaded",
                    "the chip is not blank", "serin-s20 (Serin S20"}},
    {.name = "MonitorChangesSettingsAndTheChip",
     .commands = {"monitor set Nonsense=1", "monitor set DebugPassword=secret", "monitor settings",
                  "monitor if-different on", "load sector.hex", "load sector.hex", "monitor report",
                  "monitor reset", "monitor erase", "monitor blank-check", "monitor verif"},
     .clientSays = {"serin-s20 has no setting \"Nonsense\"", "Chip Erase", "=(set)", "!secret",
                    "Transfer rate", "Already on the chip", "the chip was reset by its pin",
                    "MAIN, CCFG and SCFG are erased", "Device flash is blank", "do you mean \"verify\""},
     .serverSays = {"Already on the chip: nothing was erased, nothing was programmed"}},
    {.name = "MonitorTellsItsCommands",
     .commands = {"monitor help"},
     .clientSays = {"help                    this list",
                    "report                  what the last load did, and why it failed",
                    "info                    what the chip is and what it holds; resets it",
                    "erase                   erase the chip",
                    "blank-check             whether MAIN flash and CCFG are blank",
                    "settings                the flash settings",
                    "set NAME=VALUE          change a flash setting, for the loads to come",
                    "reset                   reset the chip by its pin",
                    "unlock                  open the chip for debugging, with the password that is set",
                    "verify                  compare the chip with what was loaded last",
                    "if-different on|off     load nothing that is on the chip already"}},
    {.name = "MonitorTellsWhatItDoesNotTake",
     .commands = {"load sector.hex", "monitor erase", "monitor verify", "monitor xyzzy", "monitor erase now",
                  "monitor  set ", "monitor if-different maybe", "monitor info"},
     .clientSays = {"; at 0x00003000..0x000037ff; Load", "(more: monitor report)",
                    "there is no monitor command \"xyzzy\": monitor help lists them",
                    "monitor erase takes no argument", "monitor set NAME=VALUE: the argument is missing",
                    "if-different is on or off", "5, production", "OTP                   blank"}},
    {.name = "SpeaksThroughALongErase",
     .arguments = "--device serin-s20 --real-time --fault saci:9:late=2600",
     .commands = {"monitor erase"},
     .clientSays = {"... 1 s", "... 2 s", "MAIN, CCFG and SCFG are erased", "!Ignoring packet error"}},
    {.name = "MiDownloads",
     .client = Client::GdbMi,
     .commands = {"-file-exec-and-symbols $FIRMWARE/blink-big.elf", "-target-download", "-target-download"},
     .clientSays = {"+download,{section=\".bulk\"", "^done,address=\"0x00000044\"",
                    "^done,address=\"0x00000044\"", "!^error"},
     .chipLike = "$FIRMWARE/blink-big.elf"},
    {.name = "MiTellsOfAFault",
     .client = Client::GdbMi,
     .arguments = "--device serin-s20 --fault saci:16:nth=1:result=0x87",
     .commands = {"-file-exec-and-symbols $FIRMWARE/blink.elf", "-target-download", "-target-download"},
     .clientSays = {"^error,msg=\"Error finishing flash operation\"", "^done,address=\"0x00000044\""},
     .chipLike = "$FIRMWARE/blink.elf"},
    {.name = "LldbLoads",
     .client = Client::Lldb,
     .commands = {"target modules load --file blink-big.elf --load --set-pc-to-entry --slide 0",
                  "memory read --size 4 --format x --count 1 0x20007f00",
                  "process plugin packet monitor report", "detach"},
     .clientSays = {"0x53455353", "Loaded and verified", "detached", "!error"},
     .chipLike = "$FIRMWARE/blink-big.elf"},
    {.name = "LldbShowsTheTextOfAFault",
     .client = Client::Lldb,
     .arguments = "--device serin-s20 --fault saci:16:nth=1:result=0x87",
     .commands = {"target modules load --file blink-big.elf --load --slide 0"},
     .clientSays = {"Error when verifying flash - "},
     .serverSays = {"The client has gone"}},
};

std::string HexOf(std::size_t size, std::uint8_t fill, std::uint32_t address) {
  return host::WriteIntelHex(std::vector<std::uint8_t>(size, fill), address);
}

class GdbserverTest : public ServerBench, public testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    ServerBench::SetUp();
    Write("sector.hex",
          HexOf(0x801, 0xA5, 0x3000));  // one byte into the next sector, which gdb does not erase
    Write("dirty.hex", HexOf(0x1000, 0x00, 0x3000));
    Write("alias.hex", HexOf(0x801, 0xA5, 0x1000'3000));
    Write("outside.hex", HexOf(0x100, 0xA5, 0x9000'0000));
    Write("locking.hex", HexOf(0x800, 0x00, 0x4C00'0000));
    Write("word.bin", std::string("\x05\0\0\0", 4));
    Write("ram.hex", HexOf(0x100, 0xA5, 0x2000'0100));
    const std::filesystem::path firmware = TOVIK_FIRMWARE;
    std::filesystem::copy(firmware / "blink-big.elf", folder / "flipped.elf");
    std::string elf = Read("flipped.elf");
    elf[0x20000] = static_cast<char>(elf[0x20000] ^ 1);  // in the middle of .bulk
    Write("flipped.elf", elf);
  }

  std::string RunClient(const Case& test) {
    Texts commands = test.commands;
    if (test.client == Client::Lldb) {
      commands.insert(commands.begin(), {"target create $FIRMWARE/blink-big.elf", "gdb-remote $PORT"});
      return Batch("lldb-14 --no-lldbinit --batch", "-o", commands);
    }
    if (test.client == Client::GdbMi) {
      commands.insert(commands.begin(), "-target-select extended-remote :$PORT");
      return GdbMi(commands);
    }
    commands.insert(commands.begin(), "target extended-remote :$PORT");
    return Batch("gdb-multiarch -nx -batch", "-ex", commands);
  }
};

void ExpectInOrder(const std::string& text, const Texts& wanted) {
  std::size_t at = 0;
  for (const std::string& one : wanted) {
    if (one.starts_with('!')) {
      EXPECT_EQ(text.find(one.substr(1)), std::string::npos) << one;
      continue;
    }
    const std::size_t found = text.find(one, at);
    EXPECT_NE(found, std::string::npos) << one;
    if (found != std::string::npos) at = found + one.size();
  }
}

TEST_P(GdbserverTest, Holds) {
  const Case& test = GetParam();
  const char* const program = test.client == Client::Lldb ? "lldb-14" : "gdb-multiarch";
  if (Run(std::string("which ") + program).empty()) GTEST_SKIP() << program << " is not installed";

  Start(test.arguments);
  const std::string clientText = RunClient(test);
  ExpectServerSays("The client has gone");
  EXPECT_EQ(Stop(), 130);
  SCOPED_TRACE("the client:\n" + clientText + "\nthe server:\n" + ServerText());
  ExpectInOrder(clientText, test.clientSays);
  ExpectInOrder(ServerText(), test.serverSays);
  if (test.chipLike != nullptr) ExpectChipLike(test.chipLike);
}

INSTANTIATE_TEST_SUITE_P(Clients, GdbserverTest, testing::ValuesIn(s_cases),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
