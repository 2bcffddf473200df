#include "host/probe/simulated/ServedProbe.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "host/device/InputError.h"
#include "host/probe/cmsisdap/TcpFrames.h"
#include "host/probe/simulated/SimulatedBoard.h"
#include "host/probe/simulated/SimulatedLink.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// In modelled time, and more than any command keeps the probe busy: an answer that does not come by then has
// been lost by request.
constexpr auto kLongestSilence = std::chrono::seconds(10);

std::span<const std::uint8_t> AsBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

struct ServedProbe::Model {
  simulator::ProbeSpeed speed;
  Pace pace;
};

// The modelled time goes on while the probe works, and while its client lets it wait, as the client's does:
// what a client sleeps for has happened when it comes back.
class ServedProbe::Client final : public net::Talk {
 public:
  Client(SimulatedBoard& itsBoard, const Model& model, const Ears& itsEars, net::Send sendBytes)
      : board(itsBoard),
        ears(itsEars),
        send(std::move(sendBytes)),
        link(board.Target(), model.speed, model.pace) {}

  bool Take(std::string_view bytes) override {
    if (bytes.empty()) return true;
    try {
      link.Sleep(MillisecondsOfRest());
      frames.Add(AsBytes(bytes));
      Work();
      restsSince = Clock::now();
      return true;
    } catch (const std::runtime_error& error) {
      ears.complain(fmt::format("the client is sent away: {}", error.what()));
      wasSentAway = true;
      return false;
    }
  }

  void End() override {
    if (frames.IsInPacket() && !wasSentAway) ears.complain("the client left in the middle of a packet");
    board.Target().ports.SetResetPin(true);  // nobody drives it any more
    ears.clientHasGone();
  }

 private:
  [[nodiscard]] std::uint32_t MillisecondsOfRest() const {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - restsSince);
    return static_cast<std::uint32_t>(rest.count());
  }

  // As many packets are under way as the probe takes; the others wait here, as they would in the network.
  void Work() {
    while (const auto packet = frames.Next()) {
      if (link.IsFull()) Answer();
      link.Send(*packet);
    }
    while (link.IsAnswerDue()) Answer();
  }

  void Answer() {
    const auto answer = link.Receive(kLongestSilence);
    if (!answer) return;
    const std::vector<std::uint8_t> framed = Framed(*answer, FrameKind::Answer);
    send({reinterpret_cast<const char*>(framed.data()), framed.size()});
  }

  SimulatedBoard& board;
  const Ears& ears;
  net::Send send;
  SimulatedLink link;
  FrameReader frames{FrameKind::Request};
  Clock::time_point restsSince = Clock::now();
  bool wasSentAway = false;
};

ServedProbe::ServedProbe(const DeviceDescription& device, const SimulatedChipOptions& options,
                         std::string_view probe) {
  constexpr std::string_view kKind = "sim";
  const std::string_view rest = probe.starts_with(kKind) ? probe.substr(kKind.size()) : "?";
  if (!rest.empty() && !rest.starts_with(':'))
    throw InputError(
        fmt::format("\"{}\" cannot be served: sim:hs, sim:fs and sim:hid are simulated probes", probe));
  const Pace pace = options.inRealTime ? Pace::RealTime : Pace::AsFastAsPossible;
  model = std::make_unique<Model>(Model{NamedSpeed(rest.empty() ? "hs" : rest.substr(1)), pace});
  board = std::make_unique<SimulatedBoard>(device, options);
}

ServedProbe::~ServedProbe() = default;

ChipView& ServedProbe::Chip() {
  return *board;
}

net::Service ServedProbe::Offer(Ears ears) {
  return {.welcome =
              [this, ears](net::Send send) {
                return std::make_unique<Client>(*board, *model, ears, std::move(send));
              },
          .busy = "",  // its packets have no word for that
          .say = ears.say};
}

}  // namespace host
