// The HSM operations as a user starts them: the image file, the streaming form, the published properties.

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

  const std::string path = testing::TempDir() + "tovik-hsm-" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + ".bin";
};

TEST_F(HsmOperationsTest, AnImageIsStreamedAndItsVersionShown) {
  // Records: two words and 5 bytes, then one word and 4 bytes.
  const Words image = {0x11111111, 5, 0x44332211, 0x55, 4, 0x99887766};
  const struct {
    Part part;
    std::vector<std::string> streams;
  } cases[] = {{Part::CorvelHighPg2, {"stream 6"}},
               {Part::CorvelHighNew, {"stream 6"}},
               {Part::CorvelMid, {"stream 4", "stream 2"}}};
  for (const auto& c : cases) {
    Be(c.part);
    host.connectedCores = {"CS_DAP_0"};
    std::vector<std::string> expected = {"identify",
                                         "CS_DAP_0 reset request 0x5C",
                                         "CS_DAP_0 ReConnect",
                                         "SACI 1/0000",
                                         "Info Programming of HSM FW image started...",
                                         "SACI 33/0000 00000006"};
    expected.insert(expected.end(), c.streams.begin(), c.streams.end());
    const std::string version = "FW Version: 12.2.3";
    for (const std::string& line :
         {std::string("Info Programming of the HSM FW image was completed successfully"),
          std::string("SetProperty HsmSysInfo --"), std::string("SACI 34/0000"),
          "Info HSM Information: " + version, "SetProperty HsmSysInfo " + version,
          std::string("SACI 20/0001"), std::string("CS_DAP_0 Disconnect true")})
      expected.push_back(line);
    EXPECT_EQ(Program(BytesOf(image)), "ok");
    EXPECT_EQ(Joined(Plot()), Joined(expected));
    Words streamed;
    for (const Words& piece : Command(33).streamed)
      streamed.insert(streamed.end(), piece.begin(), piece.end());
    EXPECT_EQ(streamed, image);
  }
}

TEST_F(HsmOperationsTest, AnImageThatCannotBeReadOrStreamedSendsNothing) {
  host.properties["HsmImagePath"] = "";
  EXPECT_EQ(Perform("ProgramHsmImage"), "Error, empty file name!");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1}));
  for (const std::string& name : {path + ".missing", testing::TempDir()}) {
    host.properties["HsmImagePath"] = name;
    EXPECT_EQ(Perform("ProgramHsmImage"), "Failed to read " + name);
    EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1}));
  }
  for (const Part part : {Part::CorvelHighPg2, Part::CorvelMid}) {
    Be(part);
    EXPECT_EQ(Program(Bytes(10)), "The size of HSM image to be programmed must be divisible by 4");
    EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1}));
  }
}

TEST_F(HsmOperationsTest, ARefusedImageIsNotFollowedByItsVersion) {
  host.ReplyOnce(33, {.result = 144});
  EXPECT_EQ(Program(Bytes(8)), "Incorrect HSM FW version");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 33}));  // no reset either
  EXPECT_EQ(host.properties.count("HsmSysInfo"), 0U);
}

// Length words decide how far a record reaches; the image decides where the bytes end.
TEST_F(HsmOperationsTest, RecordsThatClaimTooMuchReadNoForeignMemory) {
  Be(Part::CorvelMid);
  for (const Words& image : {Words{0, 0x100}, Words{0, 0xFFFFFFFF, 1, 2}, Words{0, 4, 0, 0x7FFFFFFF},
                             Words{7}, Words{}, Words{0, 0, 0xFFFFFFFD, 9}}) {
    const std::string outcome = Program(BytesOf(image));
    std::size_t streamed = 0;
    for (const SaciCommand& command : host.commands)
      for (const Words& piece : command.streamed) streamed += piece.size();
    EXPECT_LE(streamed, image.size()) << outcome;
  }
}

TEST_F(HsmOperationsTest, AFailedReadLeavesDashes) {
  const struct {
    SaciReply reply;
    const char* error;
  } cases[] = {
      {{.result = 142},
       "HSM failed to boot. Make sure to program a valid HSM image under the \"HSM Image\" section."},
      {{.result = 134}, "Command is not allowed due to restrictions"},
      {{.data = Words(8)}, "Received response from SACI with unexpected data word count"},
  };
  EXPECT_EQ(Perform("ReadHsmSysInfo"), "ok");
  EXPECT_EQ(host.properties["HsmSysInfo"], "FW Version: 12.2.3");
  for (const auto& c : cases) {
    host.ReplyOnce(34, c.reply);
    EXPECT_EQ(Perform("ReadHsmSysInfo"), c.error);
    EXPECT_EQ(host.properties["HsmSysInfo"], "--");
  }
}

TEST_F(HsmOperationsTest, ReadingOpensASaciSessionAndResetsTheChip) {
  host.ReplyAlways(35, {.data = {1}});
  const struct {
    const char* operation;
    const char* commands;
  } cases[] = {{"ReadHsmSysInfo", "SACI 1/0000, SACI 34/0000, SACI 20/0001"},
               {"ReadHsmUpdateStatus", "SACI 1/0000, SACI 35/0000, SACI 20/0001"}};
  for (const auto& c : cases) {
    host.connectedCores = {"CS_DAP_0"};
    EXPECT_EQ(Perform(c.operation), "ok");
    EXPECT_EQ(Saci(), c.commands);
  }
}

TEST_F(HsmOperationsTest, TheUpdateStatusIsPublishedAlone) {
  const struct {
    std::uint32_t status;
    const char* text;
  } cases[] = {{1, "Requested update was successful."}, {9, "Unknown status! 9"}};
  for (const auto& c : cases) {
    host.ReplyOnce(35, {.data = {c.status}});
    EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "ok");
    EXPECT_EQ(host.properties["HsmUpdateStatus"], c.text);
  }
  host.ReplyOnce(35, {.result = 134});
  EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "Failed to read HSM FW Update Status from target");
  EXPECT_EQ(host.properties["HsmUpdateStatus"], "Unknown status! 9");
}

}  // namespace
