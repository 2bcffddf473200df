#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "ExampleChip.h"
#include "simulator/ChipFile.h"
#include "simulator/ChipState.h"

namespace simulator {
namespace {

struct Outcome {
  std::string output;  // both streams
  int status = -1;     // 0 is success
};

Outcome RunShell(const std::string& command) {
  Outcome run;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
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
  }
  void TearDown() override { std::filesystem::remove(path); }

  // The worked example, for a chip whose flash is full.
  Outcome Load(const std::string& faults) {
    ChipState state = BlankState(ExampleChip());
    std::ranges::fill(state.main, std::uint8_t{0});
    std::ranges::fill(state.ccfg, std::uint8_t{0});
    ChipFile::OpenOrCreate(path).Save(ExampleChip(), state);
    return RunShell("TOVIK_CHIP_FILE='" + path + "' TOVIK_FAULTS='" + faults +
                    "' LD_PRELOAD='" TOVIK_STAND_IN_PATH "' timeout 60 openocd -f '" TOVIK_SCRIPT_PATH "'");
  }

  const std::string path = testing::TempDir() + "tovik-openocd-" + std::to_string(getpid()) + ".chip";
};

TEST_F(OpenOcdTest, LoadsTheWorkedExample) {
  ChipState expected = BlankState(ExampleChip());
  expected.main[0x804] = 0x55;
  std::string waits = "wire:wait=1";
  for (int nth = 7; nth < 2000; nth += 7) waits += ",wire:nth=" + std::to_string(nth) + ":wait=64";
  for (const std::string& faults : {std::string(), waits}) {
    const Outcome run = Load(faults);
    EXPECT_EQ(run.status, 0) << run.output << faults;
    EXPECT_TRUE(ChipFile::OpenExisting(path).Load(ExampleChip()) == expected) << faults;
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
    const Outcome run = Load(c.faults);
    EXPECT_NE(run.status, 0) << c.faults;
    EXPECT_NE(run.output.find(c.text), std::string::npos) << c.faults << run.output;
  }
}

}  // namespace
}  // namespace simulator
