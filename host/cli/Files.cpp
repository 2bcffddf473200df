#include "host/cli/Files.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "host/device/InputError.h"

namespace host::cli {

namespace {

bool WriteAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

[[noreturn]] void Refuse(const std::filesystem::path& path, int error) {
  throw std::runtime_error(fmt::format("{}: {}", path.string(), std::strerror(error)));
}

void WriteInPlace(const std::filesystem::path& path, std::string_view bytes) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) Refuse(path, errno);
  const bool isWritten = WriteAll(fileno(file), bytes);
  const int error = errno;
  std::fclose(file);
  if (!isWritten) Refuse(path, error);
}

// The name of a new file beside `target`, opened; errno tells why there is none.
int OpenBeside(const std::filesystem::path& target, std::string& name) {
  name = target.string() + ".XXXXXX";
  return mkstemp(name.data());
}

// Why no file can be put in place of this one; 0 where one can.
int ErrorOfReplacing(const std::filesystem::path& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) return EISDIR;
  const bool isThere = std::filesystem::exists(path, ignored);
  if (isThere && access(path.c_str(), W_OK) != 0) return errno;
  if (isThere && !std::filesystem::is_regular_file(path, ignored)) return 0;
  std::string name;
  const int file = OpenBeside(std::filesystem::weakly_canonical(path, ignored), name);
  if (file < 0) return errno;
  close(file);
  unlink(name.c_str());
  return 0;
}

// As the file that is replaced, or as a new file would be.
mode_t ModeFor(const std::filesystem::path& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) return status.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

bool IsSameFile(const std::filesystem::path& left, const std::filesystem::path& right) {
  std::error_code ignored;
  if (std::filesystem::equivalent(left, right, ignored)) return true;
  // From the root: of a path whose beginning is not there, nothing would be made canonical.
  return std::filesystem::weakly_canonical(std::filesystem::absolute(left), ignored) ==
         std::filesystem::weakly_canonical(std::filesystem::absolute(right), ignored);
}

void Files::Reads(std::string role, const std::filesystem::path& path) {
  if (!path.empty()) inputs.push_back({std::move(role), path});
}

void Files::Writes(std::string role, const std::filesystem::path& path) {
  if (!path.empty()) outputs.push_back({std::move(role), path});
}

void Files::RequireDistinct() const {
  for (const Use& output : outputs) {
    const auto refuseIfSame = [&](const Use& other) {
      if (&other != &output && IsSameFile(output.path, other.path))
        throw InputError(fmt::format("{} {} would overwrite {} {}", output.role, output.path.string(),
                                     other.role, other.path.string()));
    };
    for (const Use& input : inputs) refuseIfSame(input);
    for (const Use& other : outputs) refuseIfSame(other);
  }
}

void RequireReplaceable(std::string_view role, const std::filesystem::path& path) {
  const int error = path.empty() ? 0 : ErrorOfReplacing(path);
  if (error != 0) throw InputError(fmt::format("{} {}: {}", role, path.string(), std::strerror(error)));
}

void ReplaceFile(const std::filesystem::path& path, std::string_view bytes) {
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored))
    return WriteInPlace(path, bytes);
  // What a link leads to is replaced, not the link.
  const std::filesystem::path target = std::filesystem::weakly_canonical(path);
  std::string temporary;
  const int file = OpenBeside(target, temporary);
  if (file < 0) Refuse(path, errno);
  const bool isWritten = WriteAll(file, bytes) && fchmod(file, ModeFor(target)) == 0 && fsync(file) == 0;
  const int error = errno;
  if (close(file) == 0 && isWritten && std::rename(temporary.c_str(), target.c_str()) == 0) return;
  const int reason = isWritten ? errno : error;
  unlink(temporary.c_str());
  Refuse(path, reason);
}

}  // namespace host::cli
