#include "host/image/ImageWatch.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace host {

namespace {

constexpr auto kBetweenLooks = std::chrono::milliseconds(200);
constexpr int kQuietLooks = 2;  // a linker writes its output in bursts that are closer together

}  // namespace

ImageWatch::ImageWatch(std::vector<std::filesystem::path> itsFiles)
    : files(std::move(itsFiles)), before(Look()) {}

void ImageWatch::Wait() const {
  Stamps last = before;
  for (int quiet = 0;;) {
    std::this_thread::sleep_for(kBetweenLooks);
    Stamps now = Look();
    quiet = now == last ? quiet + 1 : 0;
    last = std::move(now);
    const bool areThere =
        std::all_of(last.begin(), last.end(), [](const auto& stamp) { return stamp.has_value(); });
    if (last != before && areThere && quiet >= kQuietLooks) return;
  }
}

ImageWatch::Stamps ImageWatch::Look() const {
  Stamps stamps;
  for (const std::filesystem::path& file : files) {
    struct stat status = {};
    stamps.emplace_back();
    if (stat(file.c_str(), &status) != 0) continue;
    stamps.back() = {.file = status.st_ino,
                     .size = status.st_size,
                     .seconds = status.st_mtim.tv_sec,
                     .nanoseconds = status.st_mtim.tv_nsec};
  }
  return stamps;
}

}  // namespace host
