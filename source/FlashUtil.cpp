#include "FlashUtil.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

constexpr char kRevisionProperty[] = "DeviceInfoRevisionTranslation";

bool HasHexPrefix(const std::string& entry) {
  return entry.size() > 2 && entry[0] == '0' && entry[1] == 'x';
}

int ParseRevisionCode(const std::string& entry) {
  const unsigned long code = HasHexPrefix(entry) ? std::strtoul(entry.c_str() + 2, nullptr, 16)
                                                 : std::strtoul(entry.c_str(), nullptr, 10);
  return static_cast<int>(code);
}

long ParseSizeEntry(const std::string& entry) {
  if (entry.at(0) == '*') return -1;
  return HasHexPrefix(entry) ? std::strtol(entry.c_str() + 2, nullptr, 16)
                             : std::strtol(entry.c_str(), nullptr, 10);
}

// The message names the revision property whichever table was read. The text is interface: scripts read it.
void RequireWholeRows(std::size_t entries, std::size_t entriesPerRow) {
  if (entries % entriesPerRow == 0) return;
  throw std::runtime_error(
      std::string("Property \"") + kRevisionProperty +
      "\" in Flash Properties XML does not contain the expected number of entries (N * " +
      std::to_string(entriesPerRow) + " entries expected)");
}

}  // namespace

IFlashProgrammerUtility2* FlashUtil::GetFlashProgrammerUtility() const {
  if (utility == nullptr)
    throw std::runtime_error("FlashUtil::GetFlashProgrammerUtility(): Pointer is NULL.");
  return utility;
}

void FlashUtil::ReadRevisionsTranslationFromXml(std::vector<RevisionRow>& rows) const {
  std::vector<std::string> entries;
  Split(GetFlashProgrammerUtility()->GetValueOfProperty(kRevisionProperty), ':', entries);
  RequireWholeRows(entries.size(), 3);
  for (std::size_t i = 0; i < entries.size(); i += 3)
    rows.emplace_back(ParseRevisionCode(entries[i]), entries[i + 1], entries[i + 2]);
}

void FlashUtil::ReadSizeTranslationFromXml(const std::string& property, std::vector<SizeRow>& rows) const {
  std::vector<std::string> entries;
  Split(GetFlashProgrammerUtility()->GetValueOfProperty(property), ':', entries);
  RequireWholeRows(entries.size(), 4);
  for (std::size_t i = 0; i < entries.size(); i += 4)
    rows.emplace_back(ParseSizeEntry(entries[i]), ParseSizeEntry(entries[i + 1]),
                      ParseSizeEntry(entries[i + 2]), ParseSizeEntry(entries[i + 3]));
}

void FlashUtil::ReadAddressLengthPropertyFromXml(std::string property, std::uint32_t& address,
                                                 std::uint32_t& length) const {
  IFlashProgrammerUtility2* const host = GetFlashProgrammerUtility();
  std::string value;
  try {
    value = host->GetValueOfProperty(property);
  } catch (...) {
    throw std::runtime_error("Failed to read property \"" + property + "\" from Flash Properties XML.");
  }
  std::vector<std::string> entries;
  Split(value, ':', entries);
  if (entries.size() != 2)
    host->ReportError("Property '" + property +
                      "' in Flash Properties XML does not contain 2 values delimited by ':'.\n");
  address = static_cast<std::uint32_t>(std::strtoul(entries.at(0).c_str(), nullptr, 16));
  length = static_cast<std::uint32_t>(std::strtoul(entries.at(1).c_str(), nullptr, 16));
}

std::vector<std::string>& FlashUtil::Split(const std::string& text, char delimiter,
                                           std::vector<std::string>& pieces) {
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, delimiter);) pieces.push_back(piece);
  return pieces;
}

void FlashUtil::ConvertRevisionStringToMajorMinor(std::string text, std::uint32_t& major,
                                                  std::uint32_t& minor) {
  if (text.empty())
    throw std::runtime_error("FlashUtil::ConvertRevisionStringToMajorMinor(): Input string is empty");
  std::vector<std::string> parts;
  Split(text, '.', parts);
  if (parts.size() != 2) return;
  major = static_cast<std::uint32_t>(std::strtoul(parts[0].c_str(), nullptr, 10));
  minor = static_cast<std::uint32_t>(std::strtoul(parts[1].c_str(), nullptr, 10));
}

std::string FlashUtil::ConvertByteVectorToString(const std::vector<std::uint8_t>& bytes, char separator,
                                                 int base) {
  if (bytes.empty()) return "";
  if (base != 10 && base != 16)
    throw std::runtime_error("ConvertByteVectorToString() does not support base " + std::to_string(base));
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) text += separator;
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), base == 10 ? "%02u" : "%02X", unsigned{bytes[i]});
    text += digits.data();
  }
  return text;
}

void FlashUtil::ReverseByteVector(std::vector<std::uint8_t>& bytes) {
  std::reverse(bytes.begin(), bytes.end());
}

void FlashUtil::ReverseByteArray(std::uint8_t* bytes, std::uint32_t length) {
  std::reverse(bytes, bytes + length);
}

void FlashUtil::ConvertStringToByteVector(std::string text, std::vector<std::uint8_t>& bytes,
                                          char delimiter) {
  std::vector<std::string> pieces;
  Split(text, delimiter, pieces);
  bytes.resize(pieces.size());
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const std::string& piece = pieces[i];
    // Its two halves run together. The text is interface: scripts read it.
    if (piece.size() > 2) throw std::runtime_error("Error: Expecting HEX valueConvertStringToByteVector(): ");
    const unsigned long value = std::strtoul(piece.c_str(), nullptr, 16);
    if (value > 255) throw std::runtime_error("Failed to convert HEX string '" + piece + "' to byte.");
    bytes[i] = static_cast<std::uint8_t>(value);
  }
}

std::uint32_t FlashUtil::ConvertByteArrayToWord(const std::uint8_t* bytes, bool littleEndian) {
  std::uint32_t word = 0;
  for (unsigned i = 0; i < 4; ++i) word |= std::uint32_t{bytes[i]} << (8 * (littleEndian ? i : 3 - i));
  return word;
}

std::vector<std::uint8_t> FlashUtil::ConvertWordToByteVector(std::uint32_t word, bool littleEndian) {
  std::vector<std::uint8_t> bytes(4);
  for (unsigned i = 0; i < 4; ++i)
    bytes[littleEndian ? i : 3 - i] = static_cast<std::uint8_t>(word >> (8 * i));
  return bytes;
}

std::vector<std::uint8_t> hexStringToBytes(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < text.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::strtol(text.substr(i, 2).c_str(), nullptr, 16)));
  return bytes;
}
