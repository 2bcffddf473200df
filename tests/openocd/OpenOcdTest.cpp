#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "host/device/DeviceDescription.h"
#include "host/probe/simulated/SimulatedBoard.h"

namespace {

struct Outcome {
  std::string output;  // both streams
  int status = -1;     // 0 is success
};

Outcome RunShell(const std::string& command) {
  Outcome run;
  FILE* pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) return run;
  char part[4096];
  while (fgets(part, sizeof part, pipe) != nullptr) run.output += part;
  run.status = pclose(pipe);
  return run;
}

struct OpenOcdTest : testing::Test {
  void SetUp() override {
    if (RunShell("openocd --version").status != 0)
      GTEST_SKIP() << "OpenOCD is not installed: package openocd";
    std::filesystem::create_directory(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  host::SimulatedBoard Board(const std::string& name) {
    return {host::ReadDeviceDescription(TOVIK_DEVICE_FILE), {.file = folder + "/" + name}};
  }

  // OpenOCD with the simulated probe under it, and a chip whose flash is full.
  std::string OpenOcd(const std::string& faults, const std::string& arguments) {
    host::SimulatedBoard board = Board("board.chip");
    simulator::ChipState full = board.Chip().State();
    std::ranges::fill(full.main, std::uint8_t{0});
    std::ranges::fill(full.ccfg, std::uint8_t{0});
    board.Chip().Restore(full);
    board.Save();
    return "cd '" + folder + "' && TOVIK_CHIP_FILE=board.chip TOVIK_FAULT='" + faults +
           "' LD_PRELOAD='" TOVIK_STAND_IN_PATH "' timeout 60 openocd -s '" TOVIK_SCRIPTS_DIR "' " +
           arguments;
  }

  // tovik-flash as the client of that OpenOCD, which has one more command, and another load without it.
  Outcome LoadThrough(const std::string& command) {
    std::filesystem::remove(folder + "/openocd.txt");
    return RunShell(OpenOcd("", "-c 'tcl_port 0' -f probe.tcl -c '" + command + "'") +
                    " > openocd.txt 2>&1 & server=$!; cd '" + folder +
                    "'; port=; "
                    "until port=$(sed -n 's/.*port \\([0-9]*\\) for tcl.*/\\1/p' openocd.txt); [ "
                    "\"$port\" ]; do sleep 0.05; done; "
                    "load() { " TOVIK_FLASH_PATH " load " TOVIK_FIRMWARE
                    "/blink.elf --device serin-s20 --no-progress \"$@\"; }; "
                    "load --probe openocd:127.0.0.1:$port && load --chip plain.chip; failed=$?; "
                    "kill $server; wait $server; cat openocd.txt; exit $failed");
  }

  const std::string folder = testing::TempDir() + "tovik-openocd-" + std::to_string(getpid());
};

// The worked example of the wire, by somebody else's client of the simulated probe.
TEST_F(OpenOcdTest, LoadsTheWorkedExample) {
  simulator::ChipState expected = Board("blank.chip").Chip().State();
  expected.main[0x804] = 0x55;
  std::string waits = "wire:wait=1";
  for (int nth = 7; nth < 2000; nth += 7) waits += ",wire:nth=" + std::to_string(nth) + ":wait=64";
  for (const std::string& faults : {std::string(), waits}) {
    const Outcome run = RunShell(OpenOcd(faults, "-c 'tcl_port disabled' -f worked-example.tcl"));
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(Board("board.chip").Chip().State() == expected) << (faults.empty() ? "no faults" : "waits");
  }
}

TEST_F(OpenOcdTest, NoticesWhatIsWrong) {
  const struct {
    const char* faults;
    const char* text;
  } cases[] = {
      {"cell:0x804", "verification: 0x00870310 instead of 0x00000310"},
      {"wire:nth=400:wait", "no access to 2 0x00"},
      {"wire:nth=400:fault", "no access to 2 0x00"},
  };
  for (const auto& c : cases) {
    const Outcome run = RunShell(OpenOcd(c.faults, "-c 'tcl_port disabled' -f worked-example.tcl"));
    EXPECT_NE(run.status, 0) << c.faults;
    EXPECT_NE(run.output.find(c.text), std::string::npos) << c.faults << run.output;
  }
}

// The chip ends as from a load without it.
TEST_F(OpenOcdTest, CarriesALoadOfOurs) {
  const Outcome run = LoadThrough("");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("Expected  up to 1 s: OpenOCD"), std::string::npos) << run.output;
  EXPECT_TRUE(Board("board.chip").Chip().State() == Board("plain.chip").Chip().State()) << run.output;
}

TEST_F(OpenOcdTest, IsToldWhatFailsInIt) {
  const std::pair<std::string, std::string> cases[] = {
      {"proc dap {args} { }", "OpenOCD has no debug access port: its configuration lacks \"dap create\"\n"},
      {"proc dap {args} { error {} }",
       "OpenOCD failed in its debug access ports: its own output tells why\n"},
      {"proc adapter {args} { error lost }",
       "OpenOCD failed in the reset pin: lost: its own output tells why\n"},
      {"proc adapter {args} { exec kill -KILL [pid] }", "the connection to the debug probe broke: "},
      {"proc tovik.dap {args} { return ? }", "OpenOCD answered no number: see which version it is\n"}};
  for (const auto& [command, text] : cases)
    EXPECT_NE(LoadThrough(command).output.find("tovik-flash: " + text), std::string::npos) << text;
}

}  // namespace
