#include "simulator/ChipFile.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

#include "TestChip.h"
#include "simulator/ChipStore.h"
#include "simulator/Sha256.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

ChipState Used() {
  ChipState state = BlankState(SmallChip());
  std::uint8_t next = 0;
  for (Bytes* memory : {&state.main, &state.ccfg, &state.scfg, &state.otp, &state.ram})
    for (std::uint8_t& byte : *memory) byte = next++;
  state.hsm = {.version = 0x0203'04, .updateStatus = 7, .updates = 3, .boots = false};
  state.lifeCycle = 4;
  return state;
}

TEST(ChipStoreTest, RefusesWhatIsNotWhole) {
  Bytes file = PackChip(SmallChip(), Used());
  const auto error = [](const Bytes& bytes) { return ErrorOf([&] { UnpackChip(SmallChip(), bytes); }); };
  for (std::size_t at = 0; at < file.size(); at += at < 200 ? 1 : 97) {
    EXPECT_EQ(error(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(at))),
              at < 8    ? "is not a chip file"
              : at < 40 ? "is damaged: it ends too early"
                        : "is damaged: its checksum is wrong");
    file[at] ^= 0x01;
    EXPECT_EQ(error(file), at < 8 ? "is not a chip file" : "is damaged: its checksum is wrong") << at;
    file[at] ^= 0x01;
  }
  EXPECT_EQ(error(file), "ok");
  EXPECT_EQ(std::string(file.begin(), file.begin() + 8), "TOVCHIP\n");
}

TEST(ChipStoreTest, RefusesWhatAChecksumCannotShow) {
  const struct {
    std::size_t at;
    std::uint8_t value;
    const char* error;
  } cases[] = {
      {8, 2, "has format version 2, only 1 is known"},
      {15, 0xFF, "is damaged: it ends too early"},
      {16, 'S', "holds a chip of device Small, not small"},
      {21, 0, "holds a chip of another identity than device small"},
      {29, 255, "ok"},
      {30, 1, "is damaged: there is no life cycle 260"},
      {49, 1, "holds 19201 bytes of MAIN instead of 19200"},
      {19253, 1, "holds 257 bytes of CCFG instead of 256"},
      {19513, 1, "holds 1 bytes of SCFG instead of 64"},
      {19581, 1, "holds 1 bytes of OTP instead of 32"},
      {19617, 1, "holds 257 bytes of RAM instead of 256"},
  };
  const auto sealedError = [](Bytes file) {
    const auto digest = Sha256(file);
    file.insert(file.end(), digest.begin(), digest.end());
    return ErrorOf([&] { UnpackChip(SmallChip(), file); });
  };
  Bytes content = PackChip(SmallChip(), Used());
  content.resize(content.size() - 32);
  for (const auto& c : cases) {
    const std::uint8_t right = std::exchange(content[c.at], c.value);
    EXPECT_EQ(sealedError(content), c.error);
    content[c.at] = right;
  }
  content.push_back(0);
  EXPECT_EQ(sealedError(content), "is damaged: it goes on after its end");
}

struct ChipFileTest : testing::Test {
  ChipFileTest() { fs::create_directories(folder); }
  ~ChipFileTest() override { fs::remove_all(folder); }

  std::string Error(const std::function<void()>& call, const fs::path& named) {
    const std::string error = ErrorOf(call), prefix = "Chip file " + named.string() + ": ";
    return error.starts_with(prefix) ? error.substr(prefix.size()) : error;
  }
  static void Save(const fs::path& name, const ChipState& state = Used()) {
    ChipFile::OpenOrCreate(name).Save(SmallChip(), state);
  }
  static mode_t Mode(const fs::path& name) { return static_cast<mode_t>(fs::status(name).permissions()); }
  [[nodiscard]] std::ptrdiff_t FilesInFolder() const {
    return std::distance(fs::directory_iterator(folder), {});
  }

  const fs::path folder = fs::path(testing::TempDir()) / ("chip-file-" + std::to_string(getpid()));
  const fs::path path = folder / "board.chip";
};

TEST_F(ChipFileTest, KeepsAChipItsModeAndTheLinkToIt) {
  const mode_t before = umask(027);
  {
    ChipFile file = ChipFile::OpenOrCreate(path);
    EXPECT_TRUE(file.IsEmpty());
    file.RequireWritable(SmallChip());
    file.Save(SmallChip(), BlankState(SmallChip()));
    EXPECT_FALSE(file.IsEmpty());
  }
  umask(before);
  EXPECT_EQ(Mode(path), 0640u) << "as the umask says";
  fs::permissions(path, fs::perms{0606});
  const fs::path link = folder / "link.chip";
  fs::create_symlink("board.chip", link);
  Save(link);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Mode(path), 0606u) << "as it was";
  EXPECT_EQ(ChipFile::OpenExisting(path).Load(SmallChip()), Used());
  EXPECT_EQ(ChipFile::DeviceName(path), "small");
  EXPECT_EQ(FilesInFolder(), 2) << "no temporary file stays";
  for (const auto& [user, group] : {std::pair<uid_t, gid_t>{12, 0}, {0, 34}}) {
    if (geteuid() != 0) break;
    ASSERT_EQ(chown(path.c_str(), user, group), 0);
    Save(path);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ((Words{status.st_uid, status.st_gid}), (Words{user, group}));
  }
}

TEST_F(ChipFileTest, IsHeldFromOpeningToTheEndAcrossEverySave) {
  const char* inUse = "is in use by another process";
  const auto open = [&] { ChipFile::OpenExisting(path); };
  {
    ChipFile first = ChipFile::OpenOrCreate(path);
    for (int saves = 0; saves < 3; ++saves) {
      EXPECT_EQ(Error(open, path), inUse) << saves;
      EXPECT_EQ(Error([&] { Save(path); }, path), inUse) << saves;
      first.Save(SmallChip(), Used());
    }
    ChipFile moved = std::move(first);
    EXPECT_EQ(Error(open, path), inUse);
    EXPECT_EQ(ChipFile::DeviceName(path), "small") << "reading the name needs no hold";
  }
  EXPECT_EQ(Error(open, path), "ok");
  fs::remove(path);
  ChipFile::OpenOrCreate(path);
  EXPECT_EQ(FilesInFolder(), 0) << "nothing was saved";
  {
    const ChipFile held = ChipFile::OpenOrCreate(path);
    fs::remove(path);
    std::ofstream(path).close();
  }
  EXPECT_TRUE(ChipFile::OpenOrCreate(path).IsEmpty()) << "what a run that was killed leaves";
  EXPECT_EQ(FilesInFolder(), 1) << "not ours to remove";
}

TEST_F(ChipFileTest, SaysWhatIsWrongWithAName) {
  const fs::path script = folder / "script", pipe = folder / "pipe", nowhere = folder / "no" / "board.chip";
  std::ofstream(script) << "#!/bin/sh";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto existing = [](const fs::path& name) { (void)ChipFile::OpenExisting(name).Load(SmallChip()); };
  const auto created = [](const fs::path& name) { ChipFile::OpenOrCreate(name); };
  const struct {
    std::function<void(const fs::path&)> open;
    fs::path name;
    const char* error;
  } cases[] = {
      {existing, path, "cannot be opened: No such file or directory"},
      {existing, script, "is not a chip file"},
      {existing, folder, "is not a plain file"},
      {existing, pipe, "is not a plain file"},
      {created, folder, "is not a plain file"},
      {created, nowhere, "cannot be created: No such file or directory"},
  };
  for (const auto& c : cases) EXPECT_EQ(Error([&] { c.open(c.name); }, c.name), c.error) << c.name;
  for (const std::uintmax_t tooMuch : {0U, 1U}) {
    fs::resize_file(script, (64U << 20) + tooMuch);
    EXPECT_EQ(Error([&] { ChipFile::DeviceName(script); }, script),
              tooMuch == 0 ? "is not a chip file" : "is too large for a chip file");
  }
  EXPECT_EQ(FilesInFolder(), 2);
}

// A limit on file sizes stands in for the full disk: root may do everything else.
TEST_F(ChipFileTest, NoticesBeforehandThatItCannotBeWrittenAndKeepsTheOldChip) {
  Save(path);
  ChipFile file = ChipFile::OpenExisting(path);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, SIG_IGN);
  const rlimit small{4096, old.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const std::string noticed = Error([&] { file.RequireWritable(SmallChip()); }, path);
  const std::string failed = Error([&] { file.Save(SmallChip(), BlankState(SmallChip())); }, path);
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_EQ(noticed, "cannot be written: File too large");
  EXPECT_EQ(failed, noticed);
  EXPECT_EQ(file.Load(SmallChip()), Used());
  EXPECT_EQ(FilesInFolder(), 1);

  fs::remove(path), fs::create_directory(path);
  EXPECT_EQ(Error([&] { file.Save(SmallChip(), Used()); }, path), "cannot be replaced: Is a directory");
}

// Root may do everything, so somebody else tries, in a process of his own.
TEST_F(ChipFileTest, KeepsToThePermissions) {
  Save(path);
  ChipFile file = ChipFile::OpenExisting(path);
  const auto attempt = [&] {
    if (geteuid() == 0 && setuid(1) != 0) _exit(1);
    std::cerr << Error([&] { file.RequireWritable(SmallChip()); }, path) << '\n'
              << Error([&] { file.Save(SmallChip(), Used()); }, path);
    _exit(0);
  };
  const struct {
    unsigned file, folder;
    std::string error;
  } cases[] = {
      {0444, 0777, "cannot be written: Permission denied"},
      {0666, 0555, "cannot be replaced: Permission denied"},
      {0666, 0777, "cannot keep its owner: Operation not permitted"},  // which is root
  };
  for (const auto& c : std::span(cases).first(geteuid() == 0 ? 3 : 2)) {
    fs::permissions(path, fs::perms{c.file});
    fs::permissions(folder, fs::perms{c.folder});
    EXPECT_EXIT(attempt(), testing::ExitedWithCode(0), '^' + c.error + '\n' + c.error + '$');
  }
  fs::permissions(folder, fs::perms{0755});
}

TEST(ChipRestoreTest, RefusesContentsOfAnotherSize) {
  TestChip target;
  std::string told;
  for (Bytes ChipState::*memory :
       {&ChipState::main, &ChipState::ccfg, &ChipState::scfg, &ChipState::otp, &ChipState::ram}) {
    ChipState state = BlankState(SmallChip());
    (state.*memory).pop_back();
    told += ErrorOf([&] { target.chip.Restore(state); }) + "; ";
  }
  EXPECT_EQ(told,
            "MAIN holds 19199 bytes instead of 19200; CCFG holds 255 bytes instead of 256; SCFG holds 63 "
            "bytes instead of 64; OTP holds 31 bytes instead of 32; RAM holds 255 bytes instead of 256; ");
}

}  // namespace
}  // namespace simulator
