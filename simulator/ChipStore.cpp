#include "ChipStore.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "Sha256.h"

namespace simulator {
namespace {

constexpr std::string_view kMagic = "TOVCHIP\n";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kDigestSize = 32;

using Bytes = std::vector<std::uint8_t>;

void PutWord(Bytes& file, std::uint32_t word) {
  for (unsigned shift = 0; shift < 32; shift += 8) file.push_back(static_cast<std::uint8_t>(word >> shift));
}

void PutSized(Bytes& file, std::span<const std::uint8_t> bytes) {
  PutWord(file, static_cast<std::uint32_t>(bytes.size()));
  file.insert(file.end(), bytes.begin(), bytes.end());
}

// The file's content in order. Reading past its end is damage: the checksum alone cannot tell a file that
// somebody made with a right one.
class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> content) : rest(content) {}

  std::span<const std::uint8_t> Take(std::size_t size) {
    if (size > rest.size()) throw std::runtime_error("is damaged: it ends too early");
    const auto taken = rest.first(size);
    rest = rest.subspan(size);
    return taken;
  }
  std::uint32_t Word() {
    std::uint32_t word = 0;
    unsigned shift = 0;
    for (const std::uint8_t byte : Take(4)) {
      word |= std::uint32_t{byte} << shift;
      shift += 8;
    }
    return word;
  }
  Bytes Memory(std::uint32_t expectedSize, std::string_view name) {
    const std::uint32_t size = Word();
    if (size != expectedSize)
      throw std::runtime_error("holds " + std::to_string(size) + " bytes of " + std::string(name) +
                               " instead of " + std::to_string(expectedSize));
    const auto bytes = Take(size);
    return {bytes.begin(), bytes.end()};
  }
  std::string Text() {
    const auto bytes = Take(Word());
    return {bytes.begin(), bytes.end()};
  }
  void RequireEnd() const {
    if (!rest.empty()) throw std::runtime_error("is damaged: it goes on after its end");
  }

 private:
  std::span<const std::uint8_t> rest;
};

// Magic, checksum and version hold: what follows them, up to the checksum.
Reader OpenFile(std::span<const std::uint8_t> file) {
  if (file.size() < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), file.begin()))
    throw std::runtime_error("is not a chip file");
  if (file.size() < kMagic.size() + kDigestSize) throw std::runtime_error("is damaged: it ends too early");
  const auto content = file.first(file.size() - kDigestSize);
  if (!std::ranges::equal(Sha256(content), file.last(kDigestSize)))
    throw std::runtime_error("is damaged: its checksum is wrong");
  Reader reader(content.subspan(kMagic.size()));
  if (const std::uint32_t version = reader.Word(); version != kVersion)
    throw std::runtime_error("has format version " + std::to_string(version) + ", only " +
                             std::to_string(kVersion) + " is known");
  return reader;
}

}  // namespace

std::vector<std::uint8_t> PackChip(const ChipDescription& description, const ChipState& state) {
  Bytes file(kMagic.begin(), kMagic.end());
  PutWord(file, kVersion);
  PutSized(file, Bytes(description.name.begin(), description.name.end()));
  for (const std::uint32_t word :
       {description.deviceId, description.partId, std::uint32_t{state.lifeCycle}, state.hsm.version,
        state.hsm.updateStatus, state.hsm.updates, std::uint32_t{state.hsm.boots}})
    PutWord(file, word);
  for (const Bytes* memory : {&state.main, &state.ccfg, &state.scfg, &state.otp, &state.ram})
    PutSized(file, *memory);
  const auto digest = Sha256(file);
  file.insert(file.end(), digest.begin(), digest.end());
  return file;
}

ChipState UnpackChip(const ChipDescription& description, std::span<const std::uint8_t> file) {
  Reader reader = OpenFile(file);
  if (const std::string name = reader.Text(); name != description.name)
    throw std::runtime_error("holds a chip of device " + name + ", not " + description.name);
  const std::uint32_t deviceId = reader.Word();
  const std::uint32_t partId = reader.Word();
  if (deviceId != description.deviceId || partId != description.partId)
    throw std::runtime_error("holds a chip of another identity than device " + description.name);
  ChipState state;
  const std::uint32_t lifeCycle = reader.Word();
  if (lifeCycle > std::numeric_limits<std::uint8_t>::max())
    throw std::runtime_error("is damaged: there is no life cycle " + std::to_string(lifeCycle));
  state.lifeCycle = static_cast<std::uint8_t>(lifeCycle);
  state.hsm.version = reader.Word();
  state.hsm.updateStatus = reader.Word();
  state.hsm.updates = reader.Word();
  state.hsm.boots = reader.Word() != 0;
  state.main = reader.Memory(description.mainSize, "MAIN");
  state.ccfg = reader.Memory(description.ccfgSize, "CCFG");
  state.scfg = reader.Memory(description.scfgSize, "SCFG");
  state.otp = reader.Memory(description.otpSize, "OTP");
  state.ram = reader.Memory(description.ramSize, "RAM");
  reader.RequireEnd();
  return state;
}

std::string DeviceNameOf(std::span<const std::uint8_t> file) {
  return OpenFile(file).Text();
}

}  // namespace simulator
