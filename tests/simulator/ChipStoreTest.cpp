#include "simulator/ChipStore.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "TestChip.h"
#include "simulator/Sha256.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

struct ChipStoreTest : testing::Test {
  ChipStoreTest() { std::filesystem::create_directories(folder); }
  ~ChipStoreTest() override { std::filesystem::remove_all(folder); }

  static ChipState Used() {
    ChipState state = BlankState(SmallChip());
    std::uint8_t next = 0;
    for (Bytes* memory : {&state.main, &state.ccfg, &state.scfg, &state.otp, &state.ram})
      for (std::uint8_t& byte : *memory) byte = next++;
    state.hsm = {.version = 0x0203'04, .updateStatus = 7, .updates = 3, .boots = false};
    state.lifeCycle = 4;
    return state;
  }
  static void Write(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  static Bytes Content(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static std::string UnpackError(const Bytes& file) {
    return ErrorOf([&] { UnpackChip(SmallChip(), file); });
  }
  // The right checksum over whatever the content is.
  static Bytes Resealed(Bytes file) {
    file.resize(file.size() - 32);
    const auto digest = Sha256(file);
    file.insert(file.end(), digest.begin(), digest.end());
    return file;
  }
  [[nodiscard]] std::ptrdiff_t FilesInFolder() const {
    return std::distance(std::filesystem::directory_iterator(folder), {});
  }

  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / ("chip-store-" + std::to_string(getpid()));
  const std::filesystem::path path = folder / "board.chip";
};

TEST_F(ChipStoreTest, KeepsAllOfAChip) {
  SaveChip(path, SmallChip(), Used());
  EXPECT_EQ(LoadChip(path, SmallChip()), Used());
  EXPECT_EQ(DeviceNameInFile(path), "small");
  EXPECT_EQ(FilesInFolder(), 1) << "no temporary file stays";
}

TEST_F(ChipStoreTest, RefusesEveryTruncation) {
  const Bytes file = PackChip(SmallChip(), Used());
  for (std::size_t size = 0; size < file.size(); size += size < 200 ? 1 : 97)
    EXPECT_NE(UnpackError(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size))), "ok")
        << size;
  Bytes longer = file;
  longer.push_back(0);
  EXPECT_EQ(UnpackError(longer), "is damaged: its checksum is wrong");
}

TEST_F(ChipStoreTest, RefusesEveryChangedByte) {
  Bytes file = PackChip(SmallChip(), Used());
  for (std::size_t at = 0; at < file.size(); at += at < 200 ? 1 : 97) {
    file[at] ^= 0x01;
    EXPECT_EQ(UnpackError(file), at < 8 ? "is not a chip file" : "is damaged: its checksum is wrong") << at;
    file[at] ^= 0x01;
  }
  EXPECT_EQ(UnpackError(file), "ok");
}

TEST_F(ChipStoreTest, RefusesWhatAChecksumCannotShow) {
  const Bytes file = PackChip(SmallChip(), Used());
  const std::size_t mainLength = 8 + 4 + 4 + 5 + 7 * 4;
  const auto changed = [&](std::size_t at, std::uint8_t value) {
    Bytes copy = file;
    copy[at] = value;
    return Resealed(copy);
  };
  EXPECT_EQ(UnpackError(changed(8, 2)), "has format version 2, only 1 is known");
  EXPECT_EQ(UnpackError(changed(15, 0xFF)), "is damaged: it ends too early");
  EXPECT_EQ(UnpackError(changed(mainLength, 1)), "holds 19201 bytes of MAIN instead of 19200");
  Bytes longer = file;
  longer.insert(longer.end() - 32, 0);
  EXPECT_EQ(UnpackError(Resealed(longer)), "is damaged: it goes on after its end");
}

TEST_F(ChipStoreTest, RefusesAChipOfAnotherDevice) {
  SaveChip(path, SmallChip(), Used());
  ChipDescription other = SmallChip();
  other.name = "large";
  EXPECT_EQ(ErrorOf([&] { LoadChip(path, other); }),
            "Chip file " + path.string() + ": holds a chip of device small, not large");
  other = SmallChip();
  other.partId ^= 1;
  EXPECT_EQ(ErrorOf([&] { LoadChip(path, other); }),
            "Chip file " + path.string() + ": holds a chip of another identity than device small");
}

TEST_F(ChipStoreTest, NamesAFileThatIsNotThereOrNoChip) {
  EXPECT_EQ(ErrorOf([&] { LoadChip(path, SmallChip()); }),
            "Chip file " + path.string() + ": cannot be opened: No such file or directory");
  Write(path, {'#', '!', '/', 'b', 'i', 'n', '/', 's', 'h'});
  EXPECT_EQ(ErrorOf([&] { DeviceNameInFile(path); }), "Chip file " + path.string() + ": is not a chip file");
  EXPECT_NE(ErrorOf([&] { LoadChip(folder, SmallChip()); }), "ok") << "a directory";
}

TEST_F(ChipStoreTest, AFailedSaveLeavesTheOldFileAndNoOther) {
  SaveChip(path, SmallChip(), Used());
  const Bytes before = Content(path);
  const auto inMissing = folder / "missing" / "board.chip";
  EXPECT_EQ(ErrorOf([&] { SaveChip(inMissing, SmallChip(), Used()); }),
            "Chip file " + inMissing.string() + ": cannot be written: No such file or directory");
  std::filesystem::create_directory(folder / "occupied");
  EXPECT_NE(ErrorOf([&] { SaveChip(folder / "occupied", SmallChip(), Used()); }), "ok");
  EXPECT_EQ(Content(path), before);
  EXPECT_EQ(FilesInFolder(), 2) << "the chip and the directory";
}

TEST_F(ChipStoreTest, ReplacesTheFileThatALinkNames) {
  SaveChip(path, SmallChip(), BlankState(SmallChip()));
  const auto link = folder / "link.chip";
  std::filesystem::create_symlink("board.chip", link);
  SaveChip(link, SmallChip(), Used());
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(LoadChip(path, SmallChip()), Used());
}

TEST(ChipRestoreTest, RefusesContentsOfAnotherSize) {
  TestChip target;
  ChipState state = BlankState(SmallChip());
  state.scfg.pop_back();
  EXPECT_EQ(ErrorOf([&] { target.chip.Restore(state); }), "SCFG holds 63 bytes instead of 64");
}

}  // namespace
}  // namespace simulator
