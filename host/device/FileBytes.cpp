#include "host/device/FileBytes.h"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <system_error>

#include "host/device/InputError.h"

namespace host {

std::string ReadWholeFile(const std::filesystem::path& file, std::uintmax_t largest) {
  const auto refuse = [&](std::string_view problem) {
    throw InputError(fmt::format("{}: {}", file.string(), problem));
  };
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  if (status.type() == std::filesystem::file_type::not_found) refuse("no such file");
  if (error) refuse(fmt::format("cannot be read: {}", error.message()));
  if (std::filesystem::is_directory(status)) refuse("is a folder");
  // A pipe may stay silent for ever, a device may never end.
  if (!std::filesystem::is_regular_file(status)) refuse("is not a regular file");
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  if (error) refuse(fmt::format("cannot be read: {}", error.message()));
  if (size > largest) refuse(fmt::format("is larger than {} MiB", largest >> 20));

  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string content(size, '\0');
  stream.read(content.data(), static_cast<std::streamsize>(size));
  // Cut short in the meantime is the reader's own to judge; so is grown, of which this is the beginning.
  if (!stream && !stream.eof())
    refuse(fmt::format("cannot be read: {}", std::generic_category().message(errno)));
  content.resize(static_cast<std::size_t>(stream.gcount()));
  return content;
}

}  // namespace host
