#include "Hsm.h"

#include "Crc32.h"
#include "HsmImage.h"
#include "SaciProtocol.h"

namespace simulator {
namespace {

constexpr std::uint8_t kInstalled = 0;

constexpr std::uint32_t kStatusInstalled = 1;
constexpr std::uint32_t kStatusBadHeader = 3;
constexpr std::uint32_t kStatusBadPayload = 4;
constexpr std::uint32_t kStatusUpdateFailed = 5;
constexpr std::uint32_t kStatusFailsToBoot = 7;

constexpr std::uint32_t kSmallestImage = 5;        // words: a header and, as a chain, its length word
constexpr std::uint32_t kLargestImage = 0x1'0000;  // words: 256 KiB, the module's flash
constexpr std::uint32_t kVersionBits = 0x00FF'FFFF;
constexpr std::uint32_t kModuleId = 0x004D'5348;  // "HSM"
constexpr std::size_t kWholeHeader = 4;           // words before the payload
constexpr std::size_t kFirstRecord = 5;           // words of a chain's first record
constexpr std::uint32_t kFirstRecordBytes = 12;

std::size_t WordsFor(std::size_t bytes) {
  return (bytes + 3) / 4;
}

}  // namespace

bool Hsm::Begin(std::uint32_t words) {
  if (words < kSmallestImage || words > kLargestImage) return false;
  image.clear();
  payload.clear();
  announcedWords = words;
  recordEnd = kFirstRecord;
  return true;
}

Hsm::Progress Hsm::Take(std::uint32_t word) {
  image.push_back(word);
  const bool whole = description.hsm == HsmKind::Whole;
  if (image.size() == 1 && word != (whole ? kHsmWholeMagic : kHsmRecordsMagic)) return Refuse(kHsmBadHeader);
  return whole ? TakeWhole() : TakeRecords();
}

Hsm::Progress Hsm::TakeWhole() {
  if (image.size() == kWholeHeader && TakeHeader(std::span(image).subspan(1)) == Progress::Refused)
    return Progress::Refused;
  if (image.size() < announcedWords) return Progress::Wanted;
  if (WordsFor(payloadBytes) != image.size() - kWholeHeader) return Refuse(kHsmBadHeader);
  AppendPayload(kWholeHeader, payloadBytes);
  return Progress::Complete;
}

Hsm::Progress Hsm::TakeRecords() {
  if (image.size() == 2 && image[1] != kFirstRecordBytes) return Refuse(kHsmBadHeader);
  if (recordEnd == 0) {
    recordData = image.size();
    recordEnd = recordData + WordsFor(image.back());
    if (recordEnd > announcedWords) return Refuse(kHsmBadHeader);
  }
  return image.size() < recordEnd ? Progress::Wanted : EndRecord();
}

Hsm::Progress Hsm::EndRecord() {
  if (image.size() == kFirstRecord) {
    if (TakeHeader(std::span(image).subspan(2)) == Progress::Refused) return Progress::Refused;
  } else {
    AppendPayload(recordData, image[recordData - 1]);
  }
  recordEnd = 0;
  return image.size() < announcedWords ? Progress::RecordDone : Progress::Complete;
}

Hsm::Progress Hsm::TakeHeader(std::span<const std::uint32_t> header) {
  versionAndFlags = header[0];
  payloadBytes = header[1];
  payloadCrc = header[2];
  if ((versionAndFlags & ~(kVersionBits | kHsmFailsToBoot)) != 0) return Refuse(kHsmBadHeader);
  if ((versionAndFlags & kVersionBits) < state.version) return Refuse(kHsmOldVersion);
  return Progress::Wanted;
}

Hsm::Progress Hsm::Refuse(std::uint8_t result) {
  refusal = Fail(result);
  return Progress::Refused;
}

void Hsm::AppendPayload(std::size_t firstWord, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i)
    payload.push_back(static_cast<std::uint8_t>(image[firstWord + i / 4] >> (8 * (i % 4))));
}

void Hsm::Abandon() {
  state.updateStatus = kStatusUpdateFailed;
}

std::uint8_t Hsm::Install() {
  if (payload.size() != payloadBytes) return Fail(kHsmBadHeader);
  if (Crc32(payload) != payloadCrc) return Fail(kHsmBadPayload);
  state.version = versionAndFlags & kVersionBits;
  state.boots = (versionAndFlags & kHsmFailsToBoot) == 0;
  ++state.updates;
  if (!state.boots) return Fail(kHsmDoesNotBoot);
  state.updateStatus = kStatusInstalled;
  return kInstalled;
}

std::uint8_t Hsm::Fail(std::uint8_t result) {
  switch (result) {
    case kHsmBadHeader: state.updateStatus = kStatusBadHeader; break;
    case kHsmBadPayload: state.updateStatus = kStatusBadPayload; break;
    case kHsmDoesNotBoot: state.updateStatus = kStatusFailsToBoot; break;
    default: state.updateStatus = kStatusUpdateFailed;
  }
  return result;
}

std::array<std::uint32_t, 9> Hsm::SystemInfo() const {
  return {kModuleId, kLargestImage * 4, state.updates, 0, 0, 0, 0, state.version, 0};
}

std::uint32_t Hsm::UpdateStatus() const {
  return faults.HsmStatus().value_or(state.updateStatus);
}

}  // namespace simulator
