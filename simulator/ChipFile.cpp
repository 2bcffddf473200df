#include "ChipFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "ChipStore.h"

namespace simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr off_t kLargest = 64 * 1024 * 1024;  // many times the largest chip

[[noreturn]] void ThrowCode(std::string_view what, int code) {
  throw std::runtime_error(std::string(what) + ": " + std::generic_category().message(code));
}

[[noreturn]] void ThrowErrno(std::string_view what) {
  ThrowCode(what, errno);
}

template <typename Call>
auto NamingFile(const std::filesystem::path& path, Call&& call) {
  try {
    return call();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("Chip file " + path.string() + ": " + error.what());
  }
}

class Descriptor {
 public:
  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  [[nodiscard]] int Get() const { return number; }
  int Release() { return std::exchange(number, -1); }

 private:
  int number;
};

struct stat StatusOf(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) ThrowErrno("cannot be read");
  return status;
}

// The bytes that `transfer` moved, tried again when a signal interrupts it.
template <typename Transfer>
std::size_t Uninterrupted(std::string_view failure, Transfer&& transfer) {
  for (;;) {
    if (const ssize_t count = transfer(); count >= 0) return static_cast<std::size_t>(count);
    if (errno != EINTR) ThrowErrno(failure);
  }
}

Bytes ReadWhole(int descriptor) {
  const off_t size = StatusOf(descriptor).st_size;
  if (size > kLargest) throw std::runtime_error("is too large for a chip file");
  Bytes bytes(static_cast<std::size_t>(size));
  for (std::size_t done = 0; done < bytes.size();) {
    const std::size_t count = Uninterrupted("cannot be read", [&] {
      return pread(descriptor, &bytes[done], bytes.size() - done, static_cast<off_t>(done));
    });
    if (count == 0) bytes.resize(done);  // somebody cut it meanwhile: the checksum will tell
    done += count;
  }
  return bytes;
}

// Not waiting for the other end of a pipe; what is no plain file is refused.
int Open(const std::filesystem::path& path, int flags) {
  constexpr mode_t kAsTheUmaskAllows = 0666;
  Descriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, kAsTheUmaskAllows));
  if (file.Get() < 0) ThrowErrno((flags & O_CREAT) != 0 ? "cannot be created" : "cannot be opened");
  if (!S_ISREG(StatusOf(file.Get()).st_mode)) throw std::runtime_error("is not a plain file");
  return file.Release();
}

void Lock(int descriptor) {
  if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) return;
  if (errno == EWOULDBLOCK) throw std::runtime_error("is in use by another process");
  ThrowErrno("cannot be locked");
}

bool Names(const std::filesystem::path& path, int descriptor) {
  struct stat opened {};
  struct stat named {};
  return fstat(descriptor, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

// Some file systems cannot sync a directory; the file itself is whole either way.
void SyncDirectory(const std::filesystem::path& directory) {
  const Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.Get() >= 0) fsync(opened.Get());
}

// A file next to `target`, with its mode and owner and room for `size` bytes, that takes its place when
// Commit() is reached and is gone otherwise.
class Replacement {
 public:
  Replacement(const std::filesystem::path& target, const struct stat& like, std::size_t size)
      : Replacement(target) {
    Prepare(like, size);
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (!name.empty()) unlink(name.c_str());
  }

  void Write(std::span<const std::uint8_t> bytes) const {
    while (!bytes.empty())
      bytes = bytes.subspan(
          Uninterrupted("cannot be written", [&] { return write(file.Get(), bytes.data(), bytes.size()); }));
  }

  // The data must be on the disk before the name points to it, and the name before the caller goes on. Locked
  // before it has the name, so that nobody can come in between. Returns its descriptor.
  int Commit(const std::filesystem::path& target) {
    if (fsync(file.Get()) != 0) ThrowErrno("cannot be written");
    Lock(file.Get());
    if (rename(name.c_str(), target.c_str()) != 0) ThrowErrno("cannot be replaced");
    name.clear();
    SyncDirectory(target.parent_path());
    return file.Release();
  }

 private:
  explicit Replacement(const std::filesystem::path& target)
      : name(target.string() + ".XXXXXX"), file(mkostemp(name.data(), O_CLOEXEC)) {
    if (file.Get() < 0) ThrowErrno("cannot be replaced");
  }
  void Prepare(const struct stat& like, std::size_t size) const {
    const struct stat own = StatusOf(file.Get());
    const bool sameOwner = own.st_uid == like.st_uid && own.st_gid == like.st_gid;
    if (!sameOwner && fchown(file.Get(), like.st_uid, like.st_gid) != 0) ThrowErrno("cannot keep its owner");
    if (fchmod(file.Get(), like.st_mode & 07777) != 0) ThrowErrno("cannot keep its mode");
    if (const int code = posix_fallocate(file.Get(), 0, static_cast<off_t>(size)); code != 0)
      ThrowCode("cannot be written", code);
  }

  std::string name;
  Descriptor file;
};

// A name can be replaced where the directory allows it, but a file that is not to be written is not meant to
// be.
void RequireWriteAccess(const std::filesystem::path& target) {
  if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) ThrowErrno("cannot be written");
}

}  // namespace

ChipFile ChipFile::OpenExisting(const std::filesystem::path& path) {
  return {path, O_RDONLY};
}

ChipFile ChipFile::OpenOrCreate(const std::filesystem::path& path) {
  return {path, std::filesystem::exists(path) ? O_RDONLY : O_RDONLY | O_CREAT};
}

std::string ChipFile::DeviceName(const std::filesystem::path& path) {
  return NamingFile(path, [&] { return DeviceNameOf(ReadWhole(Descriptor(Open(path, O_RDONLY)).Get())); });
}

// Whoever held the file before may have replaced it between our opening and locking it: then the lock is on a
// file that has lost its name, and the one that has it now must be opened.
ChipFile::ChipFile(const std::filesystem::path& name, int flags) : path(name) {
  NamingFile(path, [&] {
    for (;;) {
      Descriptor file(Open(path, flags));
      Lock(file.Get());
      if (!Names(path, file.Get())) continue;
      target = std::filesystem::canonical(path);
      descriptor = file.Release();
      created = (flags & O_CREAT) != 0;
      return;
    }
  });
}

ChipFile::~ChipFile() {
  if (descriptor < 0) return;
  struct stat status {};
  const bool empty = fstat(descriptor, &status) == 0 && status.st_size == 0;
  if (created && empty && Names(target, descriptor)) unlink(target.c_str());
  close(descriptor);
}

bool ChipFile::IsEmpty() const {
  return NamingFile(path, [&] { return StatusOf(descriptor).st_size == 0; });
}

void ChipFile::RequireWritable(const ChipDescription& description) const {
  NamingFile(path, [&] {
    RequireWriteAccess(target);
    const std::size_t size = PackChip(description, BlankState(description)).size();
    const Replacement trial(target, StatusOf(descriptor), size);
  });
}

ChipState ChipFile::Load(const ChipDescription& description) const {
  return NamingFile(path, [&] { return UnpackChip(description, ReadWhole(descriptor)); });
}

void ChipFile::Save(const ChipDescription& description, const ChipState& state) {
  NamingFile(path, [&] {
    RequireWriteAccess(target);
    const Bytes bytes = PackChip(description, state);
    Replacement replacement(target, StatusOf(descriptor), bytes.size());
    replacement.Write(bytes);
    close(std::exchange(descriptor, replacement.Commit(target)));
  });
}

}  // namespace simulator
