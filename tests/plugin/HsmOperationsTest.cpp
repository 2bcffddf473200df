// The HSM operations as a user starts them: the image file, the streaming form, the published properties.

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "DeviceTest.h"

namespace {

struct HsmOperationsTest : DeviceTest {
  HsmOperationsTest() {
    Be(Part::CorvelHighPg2);
    host.ReplyAlways(34, {.data = {0, 0, 0, 0, 0, 0, 0, 0xFF0C0203, 0}});
  }
  ~HsmOperationsTest() override { std::filesystem::remove(path); }

  std::string Program(const Bytes& image) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
    host.properties["HsmImagePath"] = path;
    return Perform("ProgramHsmImage");
  }
  std::string Perform(const char* operation) {
    Device();
    host.ForgetCalls();
    return Device().Perform(operation);
  }

  const std::string path = testing::TempDir() + "tovik-hsm-" + std::to_string(getpid()) + ".bin";
};

TEST_F(HsmOperationsTest, AnImageIsStreamedAndItsVersionShown) {
  // Records: two words and 5 bytes, then one word and 4 bytes.
  const Words image = {0x11111111, 5, 0x44332211, 0x55, 4, 0x99887766};
  const std::pair<Part, std::string> cases[] = {{Part::CorvelHighPg2, "stream 6"},
                                                {Part::CorvelHighNew, "stream 6"},
                                                {Part::CorvelMid, "stream 4\nstream 2"}};
  for (const auto& [part, streams] : cases) {
    Be(part);
    host.connectedCores = {"CS_DAP_0"};
    EXPECT_EQ(Program(BytesOf(image)), "ok");
    EXPECT_EQ(
        Joined(Plot()),
        Joined({"identify", "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
                "Info Programming of HSM FW image started...", "SACI 33/0000 00000006", streams,
                "Info Programming of the HSM FW image was completed successfully",
                "SetProperty HsmSysInfo --", "SACI 34/0000", "Info HSM Information: FW Version: 12.2.3",
                "SetProperty HsmSysInfo FW Version: 12.2.3", "SACI 20/0001", "CS_DAP_0 Disconnect true"}));
  }
}

TEST_F(HsmOperationsTest, AnImageThatCannotBeReadSendsNothing) {
  host.properties["HsmImagePath"] = "";
  EXPECT_EQ(Perform("ProgramHsmImage"), "Error, empty file name!");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1}));
  for (const std::string& name : {path + ".missing", testing::TempDir()}) {
    host.properties["HsmImagePath"] = name;
    EXPECT_EQ(Perform("ProgramHsmImage"), "Failed to read " + name);
    EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1}));
  }
}

TEST_F(HsmOperationsTest, ARefusedImageIsNotFollowedByItsVersion) {
  host.ReplyOnce(33, {.result = 144});
  EXPECT_EQ(Program(Bytes(8)), "Incorrect HSM FW version");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 33}));  // no reset either
  EXPECT_EQ(host.properties.count("HsmSysInfo"), 0U);
}

TEST_F(HsmOperationsTest, AFailedReadLeavesDashes) {
  EXPECT_EQ(Perform("ReadHsmSysInfo"), "ok");
  EXPECT_EQ(host.properties["HsmSysInfo"], "FW Version: 12.2.3");
  EXPECT_EQ(Saci(), "SACI 1/0000, SACI 34/0000, SACI 20/0001");
  host.ReplyOnce(34, {.result = 134});
  EXPECT_EQ(Perform("ReadHsmSysInfo"), "Command is not allowed due to restrictions");
  EXPECT_EQ(host.properties["HsmSysInfo"], "--");
}

TEST_F(HsmOperationsTest, AFailedReadLeavesTheUpdateStatus) {
  host.ReplyOnce(35, {.data = {1}});
  EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "ok");
  EXPECT_EQ(host.properties["HsmUpdateStatus"], "Requested update was successful.");
  EXPECT_EQ(Saci(), "SACI 1/0000, SACI 35/0000, SACI 20/0001");
  host.ReplyOnce(35, {.data = {9}});
  EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "ok");
  host.ReplyOnce(35, {.result = 134});
  EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "Failed to read HSM FW Update Status from target");
  EXPECT_EQ(host.properties["HsmUpdateStatus"], "Unknown status! 9");
}

}  // namespace
