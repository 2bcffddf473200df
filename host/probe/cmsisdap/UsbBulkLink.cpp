#include "host/probe/cmsisdap/UsbBulkLink.h"

#include <fmt/format.h>
#include <libusb-1.0/libusb.h>

#include <array>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <utility>

#include "host/probe/ProbeError.h"

namespace host {

namespace {

using Kind = ProbeError::Kind;

struct EndContext {
  void operator()(libusb_context* context) const { libusb_exit(context); }
};
using Context = std::unique_ptr<libusb_context, EndContext>;

Context Begin() {
  libusb_context* context = nullptr;
  if (const int error = libusb_init(&context); error != 0)
    throw ProbeError(Kind::NoProbe, fmt::format("USB cannot be used: {}", libusb_strerror(error)));
  return Context(context);
}

std::string PlaceOf(libusb_device* device) {
  std::array<std::uint8_t, 8> ports{};
  const int depth = libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size()));
  std::string place = std::to_string(libusb_get_bus_number(device));
  for (int i = 0; i < depth; ++i)
    place += (i == 0 ? '-' : '.') + std::to_string(ports[static_cast<std::size_t>(i)]);
  return place;
}

// What the kernel has read of a device; to ask the device itself takes the right to open it.
std::string KernelText(const std::string& place, const char* what) {
  std::ifstream file(std::filesystem::path("/sys/bus/usb/devices") / place / what);
  std::string text;
  std::getline(file, text);
  return text;
}

// The interface of the device, if it has one: called CMSIS-DAP, of the maker's own class, with an endpoint
// out and one in, in this order. More may follow.
std::optional<UsbBulkLink::Found> Examine(libusb_device* device) {
  libusb_config_descriptor* described = nullptr;
  if (libusb_get_active_config_descriptor(device, &described) != 0) return std::nullopt;
  const std::unique_ptr<libusb_config_descriptor, decltype(&libusb_free_config_descriptor)> configuration(
      described, libusb_free_config_descriptor);
  const std::string place = PlaceOf(device);
  for (int i = 0; i < configuration->bNumInterfaces; ++i) {
    if (configuration->interface[i].num_altsetting < 1) continue;
    const libusb_interface_descriptor& one = configuration->interface[i].altsetting[0];
    const auto isBulk = [&](int endpoint, unsigned direction) {
      return (one.endpoint[endpoint].bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == direction &&
             (one.endpoint[endpoint].bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) == LIBUSB_TRANSFER_TYPE_BULK;
    };
    if (one.bInterfaceClass != LIBUSB_CLASS_VENDOR_SPEC || one.bNumEndpoints < 2 ||
        !isBulk(0, LIBUSB_ENDPOINT_OUT) || !isBulk(1, LIBUSB_ENDPOINT_IN))
      continue;
    const std::string name =
        fmt::format("{}:{}.{}", place, configuration->bConfigurationValue, one.bInterfaceNumber);
    if (KernelText(name, "interface").find("CMSIS-DAP") == std::string::npos) continue;
    return UsbBulkLink::Found{place,
                              KernelText(place, "serial"),
                              KernelText(place, "product"),
                              one.bInterfaceNumber,
                              one.endpoint[0].bEndpointAddress,
                              one.endpoint[1].bEndpointAddress};
  }
  return std::nullopt;
}

template <typename Visit>
void ForEachProbe(libusb_context* context, Visit&& visit) {
  libusb_device** devices = nullptr;
  const auto count = libusb_get_device_list(context, &devices);
  for (ssize_t i = 0; i < count; ++i)
    if (const auto found = Examine(devices[i])) visit(devices[i], *found);
  if (count >= 0) libusb_free_device_list(devices, 1);
}

[[noreturn]] void FailOpening(int error, const UsbBulkLink::Found& wanted) {
  const std::string probe = fmt::format("the debug probe {} ({})", wanted.product, wanted.place);
  if (error == LIBUSB_ERROR_ACCESS)
    throw ProbeError(Kind::NoPermission,
                     fmt::format("no permission to open {}: install the rule 60-tovik-probes.rules in "
                                 "/etc/udev/rules.d and plug the probe in again",
                                 probe));
  if (error == LIBUSB_ERROR_BUSY)
    throw ProbeError(Kind::NoProbe, probe + " is in use: close what else uses it");
  throw ProbeError(Kind::NoProbe, fmt::format("{} cannot be opened: {}", probe, libusb_strerror(error)));
}

[[noreturn]] void FailUnplugged(const char* why) {
  throw ProbeError(Kind::Unplugged,
                   fmt::format("the debug probe has been unplugged ({}): plug it in and start again", why));
}

}  // namespace

struct UsbBulkLink::Device {
  // One of libusb's, with its bytes. Stays where it is while it is under way.
  struct Transfer {
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    std::vector<std::uint8_t> bytes;
    bool isDone = false;

    Transfer() = default;
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() { libusb_free_transfer(transfer); }
  };

  void Submit(std::deque<std::unique_ptr<Transfer>>& queue, std::uint8_t endpoint,
              std::vector<std::uint8_t> bytes);
  void HandleEvents(std::chrono::milliseconds time, int* completed);
  void DropStaleAnswers();

  Context context = Begin();
  libusb_device_handle* handle = nullptr;
  Found found;
  std::deque<std::unique_ptr<Transfer>> packets;
  std::deque<std::unique_ptr<Transfer>> answers;  // come in the order in which their places were made
};

void UsbBulkLink::Device::Submit(std::deque<std::unique_ptr<Transfer>>& queue, std::uint8_t endpoint,
                                 std::vector<std::uint8_t> bytes) {
  auto one = std::make_unique<Transfer>();
  one->bytes = std::move(bytes);
  libusb_fill_bulk_transfer(
      one->transfer, handle, endpoint, one->bytes.data(), static_cast<int>(one->bytes.size()),
      [](libusb_transfer* done) { static_cast<Transfer*>(done->user_data)->isDone = true; }, one.get(), 0);
  if (const int error = libusb_submit_transfer(one->transfer); error != 0)
    FailUnplugged(libusb_strerror(error));
  queue.push_back(std::move(one));
}

void UsbBulkLink::Device::HandleEvents(std::chrono::milliseconds time, int* completed) {
  const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  timeval span{};
  span.tv_sec = micros / 1'000'000;
  span.tv_usec = micros % 1'000'000;
  libusb_handle_events_timeout_completed(context.get(), &span, completed);
}

// A host that was killed leaves the answers to its last packets in the probe, for the next one to find.
void UsbBulkLink::Device::DropStaleAnswers() {
  constexpr unsigned kWaitMs = 20;  // one that is there takes two frames of 1 ms
  constexpr int kMostAnswers = 256;
  std::array<std::uint8_t, 4096> answer{};
  for (int dropped = 0; dropped < kMostAnswers; ++dropped) {
    int length = 0;
    libusb_bulk_transfer(handle, found.inEndpoint, answer.data(), static_cast<int>(answer.size()), &length,
                         kWaitMs);
    if (length == 0) return;
  }
}

std::vector<UsbBulkLink::Found> UsbBulkLink::Find() {
  std::vector<Found> all;
  const Context context = Begin();
  ForEachProbe(context.get(), [&](libusb_device*, const Found& found) { all.push_back(found); });
  return all;
}

UsbBulkLink::UsbBulkLink(const Found& wanted) : device(std::make_unique<Device>()) {
  int error = LIBUSB_ERROR_NO_DEVICE;
  ForEachProbe(device->context.get(), [&](libusb_device* one, const Found& found) {
    if (found.place == wanted.place) error = libusb_open(one, &device->handle);
  });
  device->found = wanted;
  if (error == 0) error = libusb_claim_interface(device->handle, wanted.interface);
  if (error != 0) {
    if (device->handle != nullptr) libusb_close(device->handle);
    FailOpening(error, wanted);
  }
  device->DropStaleAnswers();
}

UsbBulkLink::~UsbBulkLink() {
  constexpr int kMostRounds = 20;
  for (const auto* queue : {&device->packets, &device->answers})
    for (const auto& one : *queue)
      if (!one->isDone) libusb_cancel_transfer(one->transfer);
  for (const auto* queue : {&device->packets, &device->answers})
    for (const auto& one : *queue)
      for (int round = 0; !one->isDone && round < kMostRounds; ++round)
        device->HandleEvents(std::chrono::milliseconds(50), nullptr);
  libusb_release_interface(device->handle, device->found.interface);
  libusb_close(device->handle);
}

void UsbBulkLink::Send(std::span<const std::uint8_t> packet) {
  while (!device->packets.empty() && device->packets.front()->isDone) device->packets.pop_front();
  device->Submit(device->answers, device->found.inEndpoint, std::vector<std::uint8_t>(packetSize));
  device->Submit(device->packets, device->found.outEndpoint, {packet.begin(), packet.end()});
}

std::optional<Packet> UsbBulkLink::Receive(std::chrono::milliseconds timeout) {
  if (device->answers.empty()) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  Device::Transfer& first = *device->answers.front();
  while (!first.isDone) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    device->HandleEvents(left, nullptr);
  }
  const libusb_transfer_status status = first.transfer->status;
  if (status != LIBUSB_TRANSFER_COMPLETED)
    FailUnplugged(status == LIBUSB_TRANSFER_NO_DEVICE ? "it has gone" : "its answer failed");
  first.bytes.resize(static_cast<std::size_t>(first.transfer->actual_length));
  Packet answer = std::move(first.bytes);
  device->answers.pop_front();
  return answer;
}

}  // namespace host
