// The HSM operations as a user starts them: the image file, the streaming form, the published properties.

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "DeviceTest.h"

namespace {

struct HsmOperationsTest : DeviceTest {
  HsmOperationsTest() {
    Play("part=HighPg2; 34<*0,0,0,0,0,0,0,FF0C0203,0; HsmImagePath=" + path);
    SetImage(
        {0x11111111, 5, 0x44332211, 0x55, 4, 0x99887766});  // two words and 5 bytes; one word and 4 bytes
  }
  ~HsmOperationsTest() override { std::filesystem::remove(path); }

  void SetImage(const Words& image) const {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(4 * image.size()));
  }

  const std::string path = testing::TempDir() + "tovik-hsm-" + std::to_string(getpid()) + ".bin";
};

TEST_F(HsmOperationsTest, AnImageIsStreamedAndItsVersionShown) {
  const std::pair<std::string, std::string> rows[] = {
      {"HighPg2", "stream 6"}, {"HighNew", "stream 6"}, {"Mid", "stream 4\nstream 2"}};
  for (const auto& [part, streams] : rows) {
    Play("cores=CS_DAP_0; part=" + part + "; . ProgramHsmImage");
    EXPECT_EQ(
        Joined(host.events),
        Joined({"identify", "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
                "Info Programming of HSM FW image started...", "SACI 33/0000 00000006", streams,
                "Info Programming of the HSM FW image was completed successfully",
                "SetProperty HsmSysInfo --", "SACI 34/0000", "Info HSM Information: FW Version: 12.2.3",
                "SetProperty HsmSysInfo FW Version: 12.2.3", "SACI 20/0001", "CS_DAP_0 Disconnect true"}));
  }
}

TEST_F(HsmOperationsTest, AFailureEndsTheOperation) {
  EXPECT_EQ(Play("33!90; ProgramHsmImage"),
            "1 | I Programming of HSM FW image started... | 33 | ! Incorrect HSM FW version");
  EXPECT_EQ(host.properties.count("HsmSysInfo"), 0U);
  EXPECT_EQ(Play("HsmImagePath=; . ProgramHsmImage"), "1 | ! Error, empty file name!");
  for (const std::string& name : {path + ".missing", testing::TempDir()})
    EXPECT_EQ(Play("HsmImagePath=" + name + "; . ProgramHsmImage"), "1 | ! Failed to read " + name);
}

TEST_F(HsmOperationsTest, AFailedReadLeavesDashesOrTheLastStatus) {
  Play("ReadHsmSysInfo");
  EXPECT_EQ(host.properties["HsmSysInfo"], "FW Version: 12.2.3");
  EXPECT_EQ(Play("34!86; . ReadHsmSysInfo"), "1 34 | ! Command is not allowed due to restrictions");
  EXPECT_EQ(host.properties["HsmSysInfo"], "--");
  EXPECT_EQ(Play("35<9; . ReadHsmUpdateStatus"), "1 35 | I Update status: Unknown status! 9 | 20/1");
  EXPECT_EQ(Play("35!86; . ReadHsmUpdateStatus"), "1 35 | ! Failed to read HSM FW Update Status from target");
  EXPECT_EQ(host.properties["HsmUpdateStatus"], "Unknown status! 9");
}

}  // namespace
