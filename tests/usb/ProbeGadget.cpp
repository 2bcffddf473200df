// A CMSIS-DAP debug probe with a simulated chip, as a USB device: the kernel's gadget drivers speak USB, this
// program answers the packets. It is plugged in while the program runs. SIGTERM unplugs it, as does the
// chip's fault of that name; the chip is kept in its file then.

#include <fcntl.h>
#include <linux/usb/functionfs.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "host/probe/simulated/SimulatedBoard.h"
#include "simulator/probe/ProbeTransport.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: tovik_probe_gadget DEVICE.xml CHIP GADGET CABLE BYTES PACKETS LATE FAULT\n"
    "  GADGET   its folder in configfs, with one function: ffs (version 2) or hid (version 1)\n"
    "  CABLE    where the function's FunctionFS is mounted, or its /dev/hidgN\n"
    "  BYTES    of a packet; PACKETS are said to be taken before the first is answered\n"
    "  LATE     the packet that is answered two seconds late, 0 for none; FAULT of the chip may be empty\n";

struct Arguments {
  fs::path device;
  fs::path chip;
  fs::path gadget;
  fs::path cable;
  simulator::ProbeSpeed speed;
  unsigned late = 0;
  std::string fault;
};

// What the kernel wants to know of version 2, little-endian as this machine is.
struct [[gnu::packed]] Interface {
  usb_interface_descriptor self;
  usb_endpoint_descriptor_no_audio out;
  usb_endpoint_descriptor_no_audio in;
};

struct [[gnu::packed]] Descriptors {
  usb_functionfs_descs_head_v2 head;
  std::uint32_t fullSpeedCount;
  std::uint32_t highSpeedCount;
  Interface fullSpeed;
  Interface highSpeed;
};

struct [[gnu::packed]] Texts {
  usb_functionfs_strings_head head;
  std::uint16_t language;
  char name[sizeof "CMSIS-DAP"];
};

usb_endpoint_descriptor_no_audio Bulk(std::uint8_t address, std::uint16_t packet) {
  return {.bLength = sizeof(usb_endpoint_descriptor_no_audio),
          .bDescriptorType = USB_DT_ENDPOINT,
          .bEndpointAddress = address,
          .bmAttributes = USB_ENDPOINT_XFER_BULK,
          .wMaxPacketSize = packet,
          .bInterval = 0};
}

Interface VendorInterface(std::uint16_t packet) {
  usb_interface_descriptor self{};
  self.bLength = sizeof self;
  self.bDescriptorType = USB_DT_INTERFACE;
  self.bNumEndpoints = 2;
  self.bInterfaceClass = USB_CLASS_VENDOR_SPEC;
  self.iInterface = 1;
  return {self, Bulk(USB_DIR_OUT | 1, packet), Bulk(USB_DIR_IN | 2, packet)};
}

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int Open(const fs::path& path, int flags) {
  const int opened = open(path.c_str(), flags | O_CLOEXEC);
  if (opened < 0) ThrowErrno(path);
  return opened;
}

void Write(int to, const void* bytes, std::size_t size) {
  if (write(to, bytes, size) != static_cast<ssize_t>(size)) ThrowErrno("write");
}

// Where packets come out of USB, and where answers go in.
struct Cable {
  int packets = -1;
  int answers = -1;
};

// To the first USB controller that can be a device, or from it.
void Attach(const fs::path& gadget, bool attaches) {
  std::string controller;
  if (attaches) controller = fs::directory_iterator("/sys/class/udc")->path().filename();
  std::ofstream(gadget / "UDC") << controller << std::endl;
}

Cable PlugIntoFunctionFs(const fs::path& gadget, const fs::path& mount) {
  constexpr std::uint16_t kEnglish = 0x409;
  constexpr std::uint16_t kFullSpeedPacket = 64;
  constexpr std::uint16_t kHighSpeedPacket = 512;
  const Descriptors descriptors{.head = {.magic = FUNCTIONFS_DESCRIPTORS_MAGIC_V2,
                                         .length = sizeof descriptors,
                                         .flags = FUNCTIONFS_HAS_FS_DESC | FUNCTIONFS_HAS_HS_DESC},
                                .fullSpeedCount = 3,
                                .highSpeedCount = 3,
                                .fullSpeed = VendorInterface(kFullSpeedPacket),
                                .highSpeed = VendorInterface(kHighSpeedPacket)};
  const Texts texts{
      .head = {.magic = FUNCTIONFS_STRINGS_MAGIC, .length = sizeof texts, .str_count = 1, .lang_count = 1},
      .language = kEnglish,
      .name = "CMSIS-DAP"};
  // The gadget is there for as long as this is open.
  const int control = Open(mount / "ep0", O_RDWR);
  Write(control, &descriptors, sizeof descriptors);
  Write(control, &texts, sizeof texts);
  const Cable cable{Open(mount / "ep1", O_RDONLY), Open(mount / "ep2", O_WRONLY)};
  Attach(gadget, true);
  return cable;
}

Cable PlugIn(const fs::path& gadget, const fs::path& place) {
  if (fs::is_directory(place)) return PlugIntoFunctionFs(gadget, place);
  Attach(gadget, true);
  const int both = Open(place, O_RDWR);
  return {both, both};
}

// Takes no packet before the host has taken the answer to the last one: no real probe does less for its host.
class Probe {
 public:
  Probe(host::SimulatedBoard& attached, const simulator::ProbeSpeed& speed)
      : board(attached), transport(board.Target(), speed) {}

  [[noreturn]] void Serve(const Cable& cable, unsigned late) {
    for (unsigned count = 1;; ++count) {
      std::vector<std::uint8_t> packet(transport.Speed().packetSize);
      const ssize_t length = read(cable.packets, packet.data(), packet.size());
      if (length < 0) ThrowErrno("read");
      packet.resize(static_cast<std::size_t>(length));
      const auto answer = Execute(packet);
      if (count == late) {
        std::fprintf(stderr, "packet %u is answered late\n", count);
        std::this_thread::sleep_for(std::chrono::seconds(2));
      }
      if (answer)
        Write(cable.answers, answer->data(), answer->size());
      else
        std::fprintf(stderr, "packet %u has no answer\n", count);
    }
  }

  // Whatever packet is being executed is executed first, and no other after it.
  void KeepChip() {
    busy.lock();
    board.Save();
  }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<std::vector<std::uint8_t>> Execute(const std::vector<std::uint8_t>& packet) {
    const std::scoped_lock lock(busy);
    KeepTime();
    transport.Send(packet);
    return transport.Receive(10 * simulator::kSecond);  // of the chip's time, more than any packet takes
  }

  // What passes on this machine between two packets passes on the chip.
  void KeepTime() {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - reckoned);
    transport.Sleep(static_cast<std::uint32_t>(passed.count()));
    reckoned += passed;
  }

  host::SimulatedBoard& board;
  simulator::ProbeTransport transport;
  Clock::time_point reckoned = Clock::now();
  std::mutex busy;
};

Arguments Parse(char** texts) {
  Arguments arguments{texts[1], texts[2], texts[3], texts[4], {}, 0, texts[8]};
  arguments.speed.packetSize = std::stoul(texts[5]);
  arguments.speed.packetCount = static_cast<std::uint8_t>(std::stoul(texts[6]));
  arguments.late = static_cast<unsigned>(std::stoul(texts[7]));
  arguments.speed.sendsWholeReports = !fs::is_directory(arguments.cable);
  return arguments;
}

void Run(const Arguments& arguments) {
  sigset_t end;
  sigemptyset(&end);
  sigaddset(&end, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &end, nullptr);

  host::SimulatedChipOptions options{.file = arguments.chip};
  if (!arguments.fault.empty()) options.faults = {arguments.fault};
  host::SimulatedBoard board(host::ReadDeviceDescription(arguments.device), options);
  Probe probe(board, arguments.speed);
  const Cable cable = PlugIn(arguments.gadget, arguments.cable);
  std::thread([&] {
    try {
      probe.Serve(cable, arguments.late);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      kill(getpid(), SIGTERM);
    }
  }).detach();
  int signal = 0;
  sigwait(&end, &signal);
  Attach(arguments.gadget, false);
  probe.KeepChip();
  _exit(EXIT_SUCCESS);  // the other thread may still be waiting for a packet
}

}  // namespace

int main(int count, char** texts) {
  if (count != 9) {
    std::fputs(kUsage, stderr);
    return EXIT_FAILURE;
  }
  try {
    Run(Parse(texts));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  return EXIT_FAILURE;
}
