#include "host/probe/cmsisdap/UsbHidLink.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <hidapi/hidapi.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "host/probe/ProbeError.h"

namespace host {

namespace {

constexpr std::size_t kLargestReport = 1024;

// Names of USB devices are plain ASCII where they concern us.
std::string Narrow(const wchar_t* text) {
  std::string narrow;
  for (; text != nullptr && *text != 0; ++text) narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
  return narrow;
}

[[noreturn]] void FailOpening(const UsbHidLink::Found& found, int error) {
  const std::string probe = fmt::format("the debug probe {} ({})", found.product, found.path);
  if (error == EACCES || error == EPERM)
    throw ProbeError(ProbeError::Kind::NoPermission,
                     fmt::format("no permission to open {}: install the rule 60-tovik-probes.rules in "
                                 "/etc/udev/rules.d and plug the probe in again",
                                 probe));
  if (error == EWOULDBLOCK)
    throw ProbeError(ProbeError::Kind::NoProbe, probe + " is in use: close what else uses it");
  throw ProbeError(ProbeError::Kind::NoProbe,
                   fmt::format("{} cannot be opened: {}", probe, std::generic_category().message(error)));
}

[[noreturn]] void FailUnplugged() {
  throw ProbeError(ProbeError::Kind::Unplugged,
                   "the debug probe has been unplugged: plug it in and start again");
}

}  // namespace

// Held by a lock: the kernel lets several programs have the device, and each gets the answers to all of them.
// What the probe still has to say to one that was killed, the kernel drops when the device is opened.
struct UsbHidLink::Device {
  explicit Device(const Found& found) : lock(open(found.path.c_str(), O_RDWR | O_CLOEXEC)) {
    if (lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) == 0) handle = hid_open_path(found.path.c_str());
    if (handle != nullptr) return;
    const int error = errno;
    if (lock >= 0) close(lock);
    FailOpening(found, error);
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() {
    hid_close(handle);
    close(lock);
  }

  int lock;
  hid_device* handle = nullptr;
};

std::vector<UsbHidLink::Found> UsbHidLink::Find() {
  std::vector<Found> found;
  hid_device_info* const all = hid_enumerate(0, 0);
  for (const hid_device_info* one = all; one != nullptr; one = one->next) {
    const std::string product = Narrow(one->product_string);
    if (product.find("CMSIS-DAP") != std::string::npos)
      found.push_back({one->path, Narrow(one->serial_number), product});
  }
  hid_free_enumeration(all);
  return found;
}

UsbHidLink::UsbHidLink(const Found& found) : device(std::make_unique<Device>(found)) {}

UsbHidLink::~UsbHidLink() = default;

void UsbHidLink::Send(std::span<const std::uint8_t> packet) {
  std::vector<std::uint8_t> report(1 + reportSize);  // the number of the report comes first: there is but one
  std::copy(packet.begin(), packet.end(), report.begin() + 1);
  if (hid_write(device->handle, report.data(), report.size()) < 0) FailUnplugged();
}

std::optional<Packet> UsbHidLink::Receive(std::chrono::milliseconds timeout) {
  Packet answer(kLargestReport);
  errno = 0;  // set by what fails for a reason
  const int count =
      hid_read_timeout(device->handle, answer.data(), answer.size(), static_cast<int>(timeout.count()));
  if (count < 0 && errno != EINTR) FailUnplugged();
  if (count <= 0) return std::nullopt;  // a signal may ask to give up
  answer.resize(static_cast<std::size_t>(count));
  return answer;
}

}  // namespace host
