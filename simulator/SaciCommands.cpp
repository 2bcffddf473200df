#include <algorithm>
#include <span>

#include "CcfgSector.h"
#include "SaciProtocol.h"
#include "SaciServer.h"

namespace simulator {
namespace {

// The word that every erasing or programming command must bring.
constexpr std::uint32_t kKey = 0x5C17'E94B;

// Bits of the command's own half of the header.
constexpr unsigned kEraseRetainMain = 1U << 0;
constexpr unsigned kProgramSkipUserRecord = 1U << 0;
constexpr unsigned kVerifyGivenCrcs = 1U << 0;
constexpr unsigned kVerifySkipUserRecord = 1U << 1;
constexpr unsigned kVerifyBlank = 1U << 15;

constexpr std::uint16_t kPasswordWords = 16;
constexpr std::size_t kOtpWords = 512;  // always sent, however many of them are meant

std::vector<std::uint8_t> BytesOf(std::span<const std::uint32_t> words, std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(words[i / 4] >> (8 * (i % 4)));
  return bytes;
}

std::uint32_t SizeOf(const MemoryRegion& region) {
  return static_cast<std::uint32_t>(region.bytes->size());
}

}  // namespace

SaciServer::ParameterPlan SaciServer::PlanParameters(const Command& header) const {
  const std::uint32_t specific = header.specific;
  const auto sized = [specific](std::uint32_t room, std::size_t words) {
    return specific == 0 || specific > room ? ParameterPlan{.refusal = kBadSize}
                                            : ParameterPlan{.words = words};
  };
  const auto needs = [](bool unit, ParameterPlan plan) {
    return unit ? plan : ParameterPlan{.refusal = kUnknownCommand};
  };
  switch (header.id) {
    case kNoOperation:
    case kReadPasswordId:
    case kExitHalt:
    case kExitShutdown:
    case kResetDevice:
    case kExitRun: return {};
    case kSubmitPassword:
      return specific > kPasswordWords ? ParameterPlan{.refusal = kOverflow} : sized(specific, specific);
    case kEraseChip:
    case kEraseMain: return {.words = 1};
    case kProgramCcfg: return {.words = 1 + description.ccfgSize / 4};
    case kProgramUserRecord: return {.words = 1 + description.userRecord.length / 4};
    case kProgramMainSector: return sized(description.sectorSize, 2 + (specific + 3) / 4);
    case kProgramPipelined: return {.words = 2};
    case kVerifyMain: return {.words = 3};
    case kVerifyCcfg: return {.words = 4};
    case kProgramOtp: return needs(description.otpSize != 0, sized(description.otpSize, 1 + kOtpWords));
    case kProgramScfg:
      return needs(description.scfgSize != 0, sized(description.scfgSize, 1 + description.scfgSize / 4));
    case kVerifyScfg: return needs(description.scfgSize != 0, {.words = 1});
    case kUpdateHsm: return needs(hsm.Exists(), {.words = 1});
    case kReadHsmInfo:
    case kReadHsmStatus: return needs(hsm.Exists(), {});
    default: return {.refusal = kUnknownCommand};
  }
}

SaciServer::Outcome SaciServer::Execute(const Command& command) {
  switch (command.id) {
    case kReadPasswordId: return RequestPasswordId();
    case kSubmitPassword: return SubmitPassword(command);
    case kExitHalt: return {.result = rom.LifeCycleLetsSaciGo() && rom.MayDebug() ? kDone : kNotAllowed};
    case kExitShutdown:
    case kExitRun: return {.result = rom.LifeCycleLetsSaciGo() ? kDone : kNotAllowed};
    case kEraseChip: return EraseChip(command, false);
    case kProgramCcfg: return ProgramCcfg(command);
    case kProgramUserRecord: return ProgramUserRecord(command);
    case kProgramMainSector: return ProgramMainSector(command);
    case kProgramPipelined: return BeginPipelined(command);
    case kVerifyMain: return VerifyMain(command);
    case kVerifyCcfg: return VerifyCcfg(command);
    case kProgramOtp: return ProgramOtp(command);
    case kProgramScfg: return ProgramScfg(command);
    case kVerifyScfg: return VerifyScfg(command);
    case kEraseMain: return EraseChip(command, true);
    case kUpdateHsm: return BeginHsmImage(command);
    case kReadHsmInfo: return ReadHsmSystemInfo();
    case kReadHsmStatus: return {.data = {hsm.UpdateStatus()}};
    default: return {};  // kNoOperation and kResetDevice have no outcome of their own
  }
}

// The identifier's low half comes first. Open debugging needs no password: no words.
SaciServer::Outcome SaciServer::RequestPasswordId() const {
  switch (rom.Access()) {
    case DebugAccess::Open: return {};
    case DebugAccess::Closed: return {.result = kNotAllowed};
    case DebugAccess::Password: break;
  }
  const std::uint64_t id = DebugPasswordId(description, rom.CcfgInForce());
  return {.data = {static_cast<std::uint32_t>(id), static_cast<std::uint32_t>(id >> 32)}};
}

SaciServer::Outcome SaciServer::SubmitPassword(const Command& command) {
  if (rom.Access() != DebugAccess::Password) return {.result = kNotAllowed};
  if (!IsDebugPassword(description, rom.CcfgInForce(), command.words))
    return {.result = kBadPassword, .duration = costs.passwordHash};
  rom.Authorize();
  return {.duration = costs.passwordHash};
}

SaciServer::Outcome SaciServer::EraseChip(const Command& command, bool keepConfiguration) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  Outcome outcome{.duration = costs.chipErase};
  // Read before anything is erased: the field lies in the sector that may go, too.
  if ((command.specific & kEraseRetainMain) != 0)
    outcome.data = RetainWords(description, *memory.Ccfg().bytes);
  const std::uint32_t sectors = description.mainSize / description.sectorSize;
  for (std::uint32_t sector = 0; sector < sectors; ++sector)
    if (!IsSectorRetained(description, outcome.data, sector))
      ChipMemory::Erase(memory.Main(), sector * description.sectorSize, description.sectorSize);
  if (keepConfiguration) return outcome;
  ChipMemory::Erase(memory.Ccfg(), 0, SizeOf(memory.Ccfg()));
  ChipMemory::Erase(memory.Scfg(), 0, SizeOf(memory.Scfg()));
  return outcome;
}

SaciServer::Outcome SaciServer::ProgramCcfg(const Command& command) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  const std::vector<std::uint8_t> bytes = BytesOf(std::span(command.words).subspan(1), description.ccfgSize);
  const std::span<const std::uint8_t> sector = bytes;
  if ((command.specific & kProgramSkipUserRecord) != 0) {
    const std::uint32_t end = description.userRecord.offset + description.userRecord.length;
    memory.Program(memory.Ccfg(), 0, sector.first(description.userRecord.offset));
    memory.Program(memory.Ccfg(), end, sector.subspan(end));
  } else {
    memory.Program(memory.Ccfg(), 0, sector);
  }
  return {.duration = costs.programConfig};
}

SaciServer::Outcome SaciServer::ProgramUserRecord(const Command& command) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  memory.Program(memory.Ccfg(), description.userRecord.offset,
                 BytesOf(std::span(command.words).subspan(1), description.userRecord.length));
  return {.duration = costs.programConfig};
}

// Any number of bytes at a word address, within one sector.
SaciServer::Outcome SaciServer::ProgramMainSector(const Command& command) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  const std::uint32_t address = command.words[1];
  if (address % 4 != 0 || address >= description.mainSize) return {.result = kBadAddress};
  if (address % description.sectorSize + command.specific > description.sectorSize)
    return {.result = kBadSize};
  memory.Program(memory.Main(), address, BytesOf(std::span(command.words).subspan(2), command.specific));
  return {.duration = MainProgramTime(command.specific)};
}

SaciServer::Outcome SaciServer::BeginPipelined(const Command& command) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  const std::uint32_t address = command.words[1];
  if (address % description.sectorSize != 0 || address >= description.mainSize)
    return {.result = kBadAddress};
  streamAddress = address;
  streamBuffer.clear();
  streamBufferFreeAt = 0;
  return {};
}

// Whole sectors: address, length in bytes, CRC.
SaciServer::Outcome SaciServer::VerifyMain(const Command& command) const {
  const std::uint32_t address = command.words[0];
  const std::uint32_t length = command.words[1];
  if (address % description.sectorSize != 0 || address >= description.mainSize)
    return {.result = kBadAddress};
  if (length == 0 || length % description.sectorSize != 0 || length > description.mainSize - address)
    return {.result = kBadSize};
  const Nanoseconds duration = length * costs.crcPerByte;
  if ((command.specific & kVerifyBlank) != 0)
    return {.result = ChipMemory::IsBlank(memory.Main(), address, length) ? kDone : kNotBlank,
            .duration = duration};
  const std::uint32_t crc = ChipMemory::Crc(memory.Main(), {address, length});
  return {.result = crc == command.words[2] ? kDone : kCrcMismatch, .duration = duration};
}

// With given CRCs, in the order boot configuration, CCFG, user record, debug configuration. Without, only the
// user record is checked, against its own word in flash. The user record's check can be skipped in both.
SaciServer::Outcome SaciServer::VerifyCcfg(const Command& command) const {
  const MemoryRegion ccfg = memory.Ccfg();
  Outcome outcome{.duration = description.ccfgSize * costs.crcPerByte};
  if ((command.specific & kVerifyBlank) != 0) {
    if (!ChipMemory::IsBlank(ccfg, 0, description.ccfgSize)) outcome.result = kNotBlank;
    return outcome;
  }
  const bool userRecord = (command.specific & kVerifySkipUserRecord) == 0;
  bool right = true;
  if ((command.specific & kVerifyGivenCrcs) != 0) {
    right = ChipMemory::Crc(ccfg, description.bootCfgCrc) == command.words[0] &&
            ChipMemory::Crc(ccfg, description.ccfgCrc) == command.words[1] &&
            (!userRecord || ChipMemory::Crc(ccfg, description.userRecordCrc) == command.words[2]) &&
            ChipMemory::Crc(ccfg, description.debugCfgCrc) == command.words[3];
  } else if (userRecord) {
    right = IsCrcWordRight(*ccfg.bytes, description.userRecordCrc);
  }
  if (!right) outcome.result = kCrcMismatch;
  return outcome;
}

// A word that holds anything is only written again with what it holds.
SaciServer::Outcome SaciServer::ProgramOtp(const Command& command) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  const std::vector<std::uint8_t> bytes = BytesOf(std::span(command.words).subspan(1), command.specific);
  for (std::uint32_t at = 0; at < bytes.size(); at += 4) {
    const std::uint32_t length = std::min(4U, static_cast<std::uint32_t>(bytes.size()) - at);
    const bool same =
        std::equal(bytes.begin() + at, bytes.begin() + at + length, memory.Otp().bytes->begin() + at);
    if (!same && !ChipMemory::IsBlank(memory.Otp(), at, length))
      return {.result = kFlashError, .duration = costs.programConfig};
  }
  memory.Program(memory.Otp(), 0, bytes);
  return {.duration = costs.programConfig};
}

// The header states how many of the sector's bytes are meant; the rest stays erased.
SaciServer::Outcome SaciServer::ProgramScfg(const Command& command) {
  if (command.words[0] != kKey) return {.result = kBadKey};
  memory.Program(memory.Scfg(), 0, BytesOf(std::span(command.words).subspan(1), command.specific));
  return {.duration = costs.programConfig};
}

SaciServer::Outcome SaciServer::VerifyScfg(const Command& command) const {
  const ByteRange range = description.scfgCrc;
  const bool right = (command.specific & kVerifyGivenCrcs) != 0
                         ? ChipMemory::Crc(memory.Scfg(), range) == command.words[0]
                         : IsCrcWordRight(*memory.Scfg().bytes, range);
  return {.result = right ? kDone : kCrcMismatch, .duration = range.length * costs.crcPerByte};
}

SaciServer::Outcome SaciServer::BeginHsmImage(const Command& command) {
  return {.result = hsm.Begin(command.words[0]) ? kDone : kBadSize, .duration = costs.hsmPrepare};
}

SaciServer::Outcome SaciServer::ReadHsmSystemInfo() const {
  if (!hsm.Boots()) return {.result = kHsmDoesNotBoot};
  const auto words = hsm.SystemInfo();
  return {.data = {words.begin(), words.end()}};
}

Nanoseconds SaciServer::MainProgramTime(std::size_t bytes) const {
  return costs.programSector * bytes / description.sectorSize;
}

}  // namespace simulator
