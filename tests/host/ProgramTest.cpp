#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "ProgramRun.h"

// The built program, run as a user runs it.

namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const constexpr char* kPart = "corvel-h50";  // has no OTP, has an SCFG and a security module
constexpr std::size_t kSector = 0x800;
constexpr std::size_t kDebugType = 0x800 - 48;  // in the CCFG

// A CCFG and an SCFG whose permissions are harmless; the load puts their CRC words right.
Bytes SoundCcfg() {
  Bytes ccfg(0x800, 0xFF);
  ccfg[0x10] = ccfg[0x11] = 0xAA;
  ccfg[kDebugType] = 0x5A;
  return ccfg;
}
Bytes SoundScfg() {
  Bytes scfg(0x400, 0xFF);
  scfg[0x08] = 0xAA;
  return scfg;
}

struct ProgramTest : testing::Test {
  TestFolder folder;
  const Bytes code = [] {
    Bytes bytes(3 * kSector + 100);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    return bytes;
  }();
  const std::string main = folder.Write("main.bin", code) + "@0x1000";
  const std::string ccfg = folder.Write("ccfg.bin", SoundCcfg()) + "@0x4C000000";
  const std::string scfg = folder.Write("scfg.bin", SoundScfg()) + "@0x4C001000";
  const std::string chip = folder.Path("part.chip");

  // Arguments of a load of everything into the chip file, and then some.
  std::vector<std::string> LoadAll(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {"load", main, ccfg, scfg, "--device", kPart, "--chip", chip};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  void MakeChip() const {
    const ProgramRun run = folder.Run(LoadAll());
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  }
};

TEST_F(ProgramTest, HelpListsTheExitCodes) {
  const ProgramRun run = folder.Run({"--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* line : {"0  done", "1  failed", "2  wrong usage or input; no chip file was touched",
                           "3  done, but errors were reported"})
    EXPECT_THAT(run.out, HasSubstr(line));
}

TEST_F(ProgramTest, LoadsAndGivesTheBytesBack) {
  const ProgramRun load = folder.Run(LoadAll());
  EXPECT_EQ(load.exitCode, 0) << load.err;
  EXPECT_EQ(load.err, "");
  EXPECT_THAT(load.out, HasSubstr("0x00000000 ..####.."));
  EXPECT_THAT(load.out, HasSubstr("# 4 programmed   . 508 erased"));

  ASSERT_EQ(folder.Run({"dump", "main", "--chip", chip, "-o", folder.Path("main.out")}).exitCode, 0);
  Bytes expected(0x100000, 0xFF);
  std::copy(code.begin(), code.end(), expected.begin() + 0x1000);
  EXPECT_TRUE(folder.Read("main.out") == expected);
  // Without -o the same goes to standard output.
  EXPECT_TRUE(folder.Run({"dump", "ccfg", "--chip", chip}).out.substr(0, 12) == std::string(12, '\xFF'));
}

TEST_F(ProgramTest, VerifyTellsEqualFromDifferent) {
  MakeChip();
  EXPECT_EQ(folder.Run({"verify", main, ccfg, scfg, "--chip", chip}).exitCode, 0);

  const ProgramRun part = folder.Run({"verify", main, "--chip", chip});
  EXPECT_EQ(part.exitCode, 0);
  EXPECT_THAT(part.out, HasSubstr("Note: the images hold no ccfg; it was not compared"));

  Bytes changed = code;
  changed.back() ^= 0x10;
  const ProgramRun other =
      folder.Run({"verify", folder.Write("other.bin", changed) + "@0x1000", "--chip", chip});
  EXPECT_EQ(other.exitCode, 1);
  EXPECT_THAT(other.err,
              HasSubstr("Error when verifying flash - Calculated CRC32 does not match expected CRC32"));
}

TEST_F(ProgramTest, VerifyRefusesAUserRecordAloneSinceThePluginWouldProgramIt) {
  MakeChip();
  const Bytes before = folder.Read("part.chip");
  const ProgramRun run =
      folder.Run({"verify", folder.Write("record.bin", Bytes(16, 1)) + "@0x4C000750", "--chip", chip});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(
      run.err,
      "tovik-flash: the images hold only the user record of the CCFG, which cannot be verified by itself\n");
  EXPECT_TRUE(folder.Read("part.chip") == before);
}

TEST_F(ProgramTest, ErrorsThatThePluginReportsGiveExitCode3) {
  const ProgramRun run = folder.Run({"load", main, "--device", kPart});
  EXPECT_EQ(run.exitCode, 3);
  EXPECT_THAT(run.out, HasSubstr("Loaded and verified, but errors were reported: "));
  EXPECT_THAT(run.err,
              HasSubstr("tovik-flash: warning: the chip will be erased and the images hold no CCFG"));
  EXPECT_THAT(run.err, HasSubstr("tovik-flash: Image must contain (correctly sized) CCFG section"));
}

TEST_F(ProgramTest, StrictRefusesWhatWouldOnlyBeWarnedOf) {
  const ProgramRun run = folder.Run({"load", main, "--device", kPart, "--chip", chip, "--strict"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.err, HasSubstr("refused because of --strict: the chip will be erased"));
  EXPECT_FALSE(folder.Has("part.chip"));
  EXPECT_EQ(folder.Run(LoadAll({"--strict"})).exitCode, 0);
}

TEST_F(ProgramTest, ADryRunTellsTheChangesAndMakesNone) {
  MakeChip();
  const Bytes before = folder.Read("part.chip");
  const std::string other = folder.Write("other.bin", Bytes(kSector, 0)) + "@0";
  const ProgramRun run =
      folder.Run({"load", other, "--chip", chip, "--dry-run", "--set", "RetainCcfgScfg=1", "--json"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  const json result = json::parse(run.out);
  EXPECT_EQ(result["dry_run"], true);
  EXPECT_EQ(result["bytes_changed"]["ccfg"], 0);
  const auto erased = std::count_if(code.begin(), code.end(), [](std::uint8_t byte) { return byte != 0xFF; });
  EXPECT_EQ(result["bytes_changed"]["main"], kSector + static_cast<std::size_t>(erased));
  EXPECT_TRUE(folder.Read("part.chip") == before);
}

TEST_F(ProgramTest, JsonIsOneResultWithNothingElseOnStandardOutput) {
  const ProgramRun run = folder.Run(LoadAll({"--json"}));
  const json result = json::parse(run.out);
  EXPECT_EQ(result["exit_code"], 0);
  EXPECT_EQ(result["error"], nullptr);
  EXPECT_EQ(result["sectors"]["programmed"], 4);
  ASSERT_EQ(result["regions"].size(), 3U);
  EXPECT_EQ(result["regions"][0]["outcome"], "programmed");
  EXPECT_EQ(result["regions"][0]["bytes"], code.size());
  EXPECT_EQ(result["regions"][2]["region"], "scfg");
  EXPECT_THAT(result["messages"][0]["text"], StartsWith("Flash loader: "));

  const ProgramRun refused = folder.Run({"load", "nothing.bin@0", "--device", kPart, "--json"});
  EXPECT_EQ(json::parse(refused.out)["exit_code"], 2);
}

TEST_F(ProgramTest, AModelledLoadTakesTheSameTimeOnEveryRun) {
  std::vector<std::string> load = {"load", main, "--device", kPart, "--json"};
  const auto modelledMs = [&] { return json::parse(folder.Run(load).out)["elapsed_ms"].get<double>(); };
  const double first = modelledMs();
  EXPECT_EQ(modelledMs(), first);
  load.insert(load.end(), {"--probe", "fs"});
  EXPECT_GT(modelledMs(), first);
}

TEST_F(ProgramTest, AFailedHostCallFailsTheLoadWithItsText) {
  // The first transfer to the chip, whichever call of the load that is.
  ASSERT_EQ(folder.Run(LoadAll({"--dry-run", "--trace", folder.Path("trace")})).exitCode, 0);
  const Bytes trace = folder.Read("trace");
  const std::string calls(trace.begin(), trace.end());
  const std::size_t transfer = calls.find("WriteMemory");
  ASSERT_NE(transfer, std::string::npos);
  const auto number =
      1 + std::count(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(transfer), '\n');
  const std::string fault = "host:" + std::to_string(number) + "=probe unplugged";
  const ProgramRun run = folder.Run(LoadAll({"--fault", fault, "--json"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(json::parse(run.out)["error"], "probe unplugged");
}

TEST_F(ProgramTest, AFaultOfTheChipFailsTheLoadAndTheNextOneRecovers) {
  const ProgramRun run = folder.Run(LoadAll({"--fault", "saci:16:result=0x84"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("Error when verifying flash - Flash hardware FSM error"));
  EXPECT_TRUE(folder.Has("part.chip"));  // the erase has happened
  EXPECT_EQ(folder.Run(LoadAll()).exitCode, 0);
}

TEST_F(ProgramTest, TraceHasALineForEachHostCall) {
  const ProgramRun run = folder.Run(LoadAll({"--json", "--trace", folder.Path("trace")}));
  const Bytes trace = folder.Read("trace");
  EXPECT_EQ(json::parse(run.out)["host_calls"], std::count(trace.begin(), trace.end(), '\n'));
}

TEST_F(ProgramTest, EraseKeepsMarkedSectorsWhenAskedAndBlankCheckTells) {
  MakeChip();  // its CCFG marks all sectors
  ASSERT_EQ(folder.Run({"erase", "--retain", "--chip", chip}).exitCode, 0);
  EXPECT_EQ(folder.Run({"blank-check", "--chip", chip}).exitCode, 1);
  EXPECT_EQ(folder.Run({"erase", "--chip", chip}).exitCode, 0);
  const ProgramRun blank = folder.Run({"blank-check", "--chip", chip});
  EXPECT_EQ(blank.exitCode, 0);
  EXPECT_THAT(blank.out, HasSubstr("Blank Check: Device flash is blank"));
}

TEST_F(ProgramTest, UnlockNeedsTheRightPassword) {
  Bytes locked = SoundCcfg();
  locked[kDebugType] = 0xA5;
  // SHA-256 of "open sesame!", as sha256sum gives it.
  const std::string hash = "fd4d49e7a2cf6cc1c00217e59853837439283a28411869e2b428246c7b63ccbf";
  for (std::size_t i = 0; i < 32; ++i)
    locked[0x800 - 36 + i] = static_cast<std::uint8_t>(std::stoul(hash.substr(2 * i, 2), nullptr, 16));
  const std::string image = folder.Write("locked.bin", locked) + "@0x4C000000";
  ASSERT_EQ(folder
                .Run({"load", main, image, scfg, "--device", "serin-s20", "--chip", chip, "--set",
                      "DebugPassword=open sesame!"})
                .exitCode,
            0);
  EXPECT_EQ(folder.Run({"unlock", "--chip", chip, "--password", "open sesame!"}).exitCode, 0);
  EXPECT_EQ(folder.Run({"unlock", "--chip", chip, "--password-hex", "6f70656e20736573616d6521"}).exitCode, 0);
  const ProgramRun wrong =
      folder.Run({"unlock", "--chip", chip, "--password", "open barley!", "--trace", folder.Path("trace")});
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_THAT(wrong.err, HasSubstr("Debug authentication failed. Error: Invalid password parameter"));
  EXPECT_THAT(wrong.err, EndsWith("tovik-flash: debugging stays closed\n"));

  // The command carries the first 64 bytes of a longer one; neither they nor the rest may be written down.
  const std::string longPassword(96, 'q');
  EXPECT_EQ(folder.Run({"unlock", "--chip", chip, "--password", longPassword, "--trace", folder.Path("long")})
                .exitCode,
            1);
  for (const char* name : {"trace", "long"}) {
    const Bytes bytes = folder.Read(name);
    const std::string trace(bytes.begin(), bytes.end());
    EXPECT_THAT(trace, HasSubstr("(hidden)"));
    for (const char* secret : {"open barley!", "6f70656e206261726c657921", "qqqq", "71717171"})
      EXPECT_THAT(trace, Not(HasSubstr(secret)));
  }
}

TEST_F(ProgramTest, ListsAndRunsOperationsAndScriptFunctions) {
  EXPECT_EQ(folder.Run({"operation", "--list", "--device", kPart}).out,
            "Erase\nChipEraseRetain\nBlankCheck\nProgramHsmImage\nReadHsmSysInfo\nReadHsmUpdateStatus\n");
  EXPECT_EQ(folder.Run({"script", "--list", "--device", kPart}).out,
            "EnsureAuthentication\nEnterSaci\nExitSaci\nSaciAppResetDevice\n");
  const ProgramRun unknown = folder.Run({"operation", "erase", "--device", kPart});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_THAT(unknown.err, HasSubstr("Unsupported Operation Code: 'erase'"));

  const ProgramRun script =
      folder.Run({"script", "EnterSaci", "+", "SaciAppResetDevice", "0x1", "--device", kPart});
  EXPECT_EQ(script.exitCode, 0) << script.err;
  EXPECT_THAT(script.out, HasSubstr("SaciAppResetDevice    0\n"));
  const ProgramRun text = folder.Run({"script", "EnsureAuthentication", "one", "--device", kPart});
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_THAT(text.err, HasSubstr("Expected an integral value for parameter 1"));
}

TEST_F(ProgramTest, ShowsWhatThePluginFoundAndWhatTheHsmSays) {
  const ProgramRun info = folder.Run({"info", "--device", kPart});
  EXPECT_EQ(info.exitCode, 0) << info.err;
  EXPECT_THAT(info.out, HasSubstr("DeviceInfoFlashSize   1024 KB (512 sectors)\n"));
  EXPECT_THAT(info.out, HasSubstr("HsmSysInfo            FW Version: 1.0.0\n"));
  EXPECT_THAT(folder.Run({"hsm", "status", "--device", kPart}).out,
              HasSubstr("HsmUpdateStatus       Regular boot w/o a new image.\n"));
  EXPECT_EQ(folder.Run({"hsm", "info", "--device", "serin-s20"}).exitCode, 1);
  EXPECT_EQ(folder.Run({"hsm", "update", folder.Write("odd.hsm", Bytes(10, 0)), "--device", kPart}).exitCode,
            1);
}

TEST_F(ProgramTest, ExplainsAnErrorText) {
  const ProgramRun run = folder.Run({"explain", "0x88"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.out, StartsWith("136 (0x88): Invalid password parameter\n"));
  EXPECT_EQ(folder.Run({"explain", "the moon is full"}).exitCode, 1);
}

TEST_F(ProgramTest, PropertiesNameEverySettingWithItsChoices) {
  const ProgramRun run = folder.Run({"properties", "--device", "serin-s20"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.out, HasSubstr("  FlashEraseSetting\n"));
  EXPECT_THAT(run.out, HasSubstr("        \"Retain CCFG and SCFG sectors\"\n"));
  const ProgramRun devices = folder.Run({"devices", "--json"});
  EXPECT_GE(json::parse(devices.out).size(), 5U);
}

TEST_F(ProgramTest, SettingsReachThePlugin) {
  const ProgramRun refused =
      folder.Run({"load", main, "--device", "serin-s20", "--set", "FlashEraseSetting=all"});
  EXPECT_EQ(refused.exitCode, 2);
  const ProgramRun skipped = folder.Run(LoadAll({"--set", "FlashPageToggle=on", "--set", "FlashPages=3-4"}));
  EXPECT_EQ(skipped.exitCode, 0) << skipped.err;
  EXPECT_THAT(skipped.out, HasSubstr("0x00000000 ..#ss#.."));
  const ProgramRun verbose = folder.Run(LoadAll({"--verbose"}));
  EXPECT_THAT(verbose.out, HasSubstr("Performing Chip Erase"));
}

struct BadInput {
  std::vector<std::string> arguments;
  std::string error;  // with FOLDER for the test's folder
};

// What a user gets wrong: one line that says what and where, exit code 2, and no chip file touched or made.
TEST_F(ProgramTest, BadInputIsRefusedInOneLineBeforeAnythingHappens) {
  const std::string foreign = folder.Write("foreign.chip", "this is no chip file");
  const std::string noPlugin = folder.Write("text.so", "this is no library");
  folder.Write("broken.xml", "<device>\n<oops\n");
  folder.Write("bad.hex", ":020000040000FA\n:04000000DEADBEEFC5\n");
  const std::string at = folder.Path("");
  const BadInput cases[] = {
      {{}, "A subcommand is required (see --help)"},
      {{"load", "--device", kPart}, "image is required (see --help)"},
      {{"load", main}, "which device? Give --device (see 'tovik-flash devices')"},
      {{"load", main, "--device", kPart, "--probe", "xs"}, "--probe: xs not in {hs,fs} (see --help)"},
      {{"load", main, "--device", kPart, "--set", "FlashPages"}, "--set FlashPages: expected NAME=VALUE"},
      {{"load", main, "--device", kPart, "--set", "FlashPagse=1"},
       std::string(kPart) + " has no setting \"FlashPagse\"; nearest: FlashPages"},
      {{"load", main, "--device", kPart, "--plugin", at + "none.so"},
       "plug-in " + at + "none.so: no such file"},
      {{"load", main, "--device", kPart, "--plugin", TOVIK_EMPTY_PLUGIN_PATH},
       std::string("plug-in ") + TOVIK_EMPTY_PLUGIN_PATH + ": does not export CreateFlashDevice4"},
      {{"load", main, "--device", kPart, "--trace", "/nowhere/trace"},
       "trace file /nowhere/trace: No such file or directory"},
      {{"dump", "main", "--chip", at + "none.chip"}, "chip file " + at + "none.chip: no such file"},
      {{"hsm", "update", at + "none.hsm", "--device", kPart}, "HSM image " + at + "none.hsm: no such file"},
      {{"operation", "--device", kPart}, "which operation? 'tovik-flash operation --list' names them"},
      {{"script", "--device", kPart}, "which function? 'tovik-flash script --list' names them"},
      {{"load", main, "--device", kPart, "--plugin", noPlugin}, noPlugin},
      {{"load", at + "none.elf", "--device", kPart}, "none.elf"},
      {{"load", at + "bad.hex", "--device", kPart}, "2"},
      {{"load", main, "--device", at + "broken.xml"}, "broken.xml"},
      {{"load", main, main, "--device", kPart}, "overlap"},
      {{"load", main, "--device", kPart, "--chip", foreign}, "foreign.chip"},
      {{"load", main, "--device", kPart, "--fault", "saci:nonsense"}, "nonsense"},
  };
  for (const BadInput& c : cases) {
    std::vector<std::string> arguments = c.arguments;
    const bool hasChip = std::find(arguments.begin(), arguments.end(), "--chip") != arguments.end();
    if (!arguments.empty() && arguments[0] == "load" && !hasChip)
      arguments.insert(arguments.end(), {"--chip", chip});
    const std::string line = testing::PrintToString(arguments);
    const ProgramRun run = folder.Run(arguments);
    EXPECT_EQ(run.exitCode, 2) << line << run.out;
    EXPECT_THAT(run.err, StartsWith("tovik-flash: ")) << line;
    EXPECT_THAT(run.err, HasSubstr(c.error)) << line;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << line << run.err;
    EXPECT_EQ(run.out, "") << line;
    EXPECT_FALSE(folder.Has("part.chip")) << line;
  }
  EXPECT_EQ(folder.Read("foreign.chip").size(), std::string("this is no chip file").size());
}

}  // namespace
