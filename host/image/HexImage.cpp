#include <fmt/format.h>

#include <numeric>

#include "host/device/InputError.h"
#include "host/image/ImageFormats.h"

namespace host {
namespace {

// The lines of a text that are not blank, one after another, with what the error messages need.
class LineReader {
 public:
  LineReader(std::string_view fileName, std::string_view fileText) : name(fileName), rest(fileText) {}

  // False at the end of the text.
  bool Next() {
    while (!rest.empty()) {
      const std::size_t end = rest.find('\n');
      line = rest.substr(0, end);
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
      ++number;
      line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
      if (!line.empty()) return true;
    }
    line = {};
    return false;
  }

  [[nodiscard]] std::string_view Line() const { return line; }

  [[noreturn]] void Refuse(std::string_view text) const {
    throw InputError(fmt::format("{}:{}: {}", name, number, text));
  }

  // The bytes that the line's hexadecimal digits from `column` (counted from 0) on give.
  [[nodiscard]] std::vector<std::uint8_t> Bytes(std::size_t column) const {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = column; i < line.size(); i += 2) {
      const unsigned high = Digit(i);
      if (i + 1 == line.size()) Refuse("the record is cut short in the middle of a byte");
      bytes.push_back(static_cast<std::uint8_t>(high << 4 | Digit(i + 1)));
    }
    return bytes;
  }

  // The end of the text came before the record that must end it.
  [[noreturn]] void RefuseEnd() const {
    throw InputError(
        fmt::format("{}:{}: the file ends without its end record; is it cut short?", name, number));
  }

 private:
  [[nodiscard]] unsigned Digit(std::size_t column) const {
    const char c = line[column];
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    Refuse(fmt::format("column {} is not a hexadecimal digit", column + 1));
  }

  std::string_view name;
  std::string_view rest;
  std::string_view line;
  std::size_t number = 0;
};

unsigned SumOf(std::span<const std::uint8_t> bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), 0u) & 0xFFu;
}

void RequireChecksum(const LineReader& lines, unsigned given, unsigned right) {
  if (given != right)
    lines.Refuse(fmt::format("bad checksum: the line says 0x{:02X}, its bytes give 0x{:02X}", given, right));
}

std::uint32_t BigEndian(std::span<const std::uint8_t> bytes) {
  std::uint32_t value = 0;
  for (const std::uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

// Joins the record to the one before where it carries on from it.
void Append(const LineReader& lines, std::vector<ImageSegment>& segments, std::uint32_t address,
            std::span<const std::uint8_t> data) {
  if (data.empty()) return;
  if (data.size() > 0xFFFF'FFFF - address)
    lines.Refuse(fmt::format("{} bytes at 0x{:08X} do not fit in 32-bit addresses", data.size(), address));
  if (segments.empty() || segments.back().address + segments.back().data.size() != address)
    segments.push_back({address, {}});
  std::vector<std::uint8_t>& bytes = segments.back().data;
  bytes.insert(bytes.end(), data.begin(), data.end());
}

// ":" count(1) offset(2) type(1) data(count) checksum(1): all bytes sum to 0.
struct HexRecord {
  std::uint32_t offset;
  unsigned type;
  std::vector<std::uint8_t> data;
};

HexRecord ReadHexRecord(const LineReader& lines) {
  if (lines.Line().front() != ':') lines.Refuse("a record must begin with ':'");
  const std::vector<std::uint8_t> bytes = lines.Bytes(1);
  if (bytes.size() < 5 || bytes.size() != bytes[0] + 5u)
    lines.Refuse(fmt::format("the record has {} bytes, its length field asks for {}", bytes.size(),
                             bytes.empty() ? 5u : bytes[0] + 5u));
  const std::span<const std::uint8_t> all(bytes);
  RequireChecksum(lines, all.back(), (0x100 - SumOf(all.first(all.size() - 1))) & 0xFF);
  return {BigEndian(all.subspan(1, 2)), all[3], {bytes.begin() + 4, bytes.end() - 1}};
}

// "S" type, then count(1) address(2 to 4) data checksum(1): count and what follows sum to 0xFF.
struct SRecord {
  char type;
  std::uint32_t address;
  std::vector<std::uint8_t> data;
};

// Bytes of the address field; 0 for a type that does not exist.
std::size_t AddressBytes(char type) {
  switch (type) {
    case '0':
    case '1':
    case '5':
    case '9': return 2;
    case '2':
    case '6':
    case '8': return 3;
    case '3':
    case '7': return 4;
    default: return 0;
  }
}

SRecord ReadSRecord(const LineReader& lines) {
  const std::string_view line = lines.Line();
  if (line.front() != 'S') lines.Refuse("a record must begin with 'S'");
  if (line.size() < 2) lines.Refuse("the record has no type");
  const std::size_t addressBytes = AddressBytes(line[1]);
  if (addressBytes == 0) lines.Refuse(fmt::format("unknown record type S{}", line[1]));
  const std::vector<std::uint8_t> bytes = lines.Bytes(2);
  const std::size_t wanted = bytes.empty() ? 0 : bytes[0] + std::size_t{1};
  if (bytes.size() != wanted || wanted < addressBytes + 2)
    lines.Refuse(fmt::format("the record has {} bytes, its length field and type ask for {}", bytes.size(),
                             std::max(wanted, addressBytes + 2)));
  const std::span<const std::uint8_t> all(bytes);
  RequireChecksum(lines, all.back(), 0xFF - SumOf(all.first(all.size() - 1)));
  const auto data = all.subspan(1 + addressBytes, all.size() - addressBytes - 2);
  return {line[1], BigEndian(all.subspan(1, addressBytes)), {data.begin(), data.end()}};
}

}  // namespace

std::vector<ImageSegment> ParseIntelHex(std::string_view name, std::string_view text) {
  enum : unsigned { Data, End, SegmentBase, SegmentStart, LinearBase, LinearStart };
  LineReader lines(name, text);
  std::vector<ImageSegment> segments;
  std::uint32_t base = 0;
  bool ended = false;
  while (lines.Next()) {
    if (ended) lines.Refuse("there is a line after the end record");
    const HexRecord record = ReadHexRecord(lines);
    switch (record.type) {
      case Data:
        // Past it, readers disagree: one wraps to the start of the 64 KiB, another carries on.
        if (record.offset + record.data.size() > 0x10000)
          lines.Refuse("the record runs past the end of its 64 KiB");
        Append(lines, segments, base + record.offset, record.data);
        break;
      case End: ended = true; break;
      case SegmentBase:
      case LinearBase:
        if (record.data.size() != 2) lines.Refuse("a base address record must hold 2 bytes");
        base = BigEndian(record.data) << (record.type == LinearBase ? 16 : 4);
        break;
      case SegmentStart:
      case LinearStart: break;  // the chip's own vector table says where to start
      default: lines.Refuse(fmt::format("unknown record type {:02X}", record.type));
    }
  }
  if (!ended) lines.RefuseEnd();
  return segments;
}

std::vector<ImageSegment> ParseSRecord(std::string_view name, std::string_view text) {
  LineReader lines(name, text);
  std::vector<ImageSegment> segments;
  std::size_t dataRecords = 0;
  bool ended = false;
  while (lines.Next()) {
    if (ended) lines.Refuse("there is a line after the end record");
    const SRecord record = ReadSRecord(lines);
    switch (record.type) {
      case '0': break;  // a title
      case '5':
      case '6':
        if (record.address != dataRecords)
          lines.Refuse(fmt::format("{} data records counted, {} read: the file has lost lines",
                                   record.address, dataRecords));
        break;
      case '7':
      case '8':
      case '9': ended = true; break;
      default:
        ++dataRecords;
        Append(lines, segments, record.address, record.data);
        break;
    }
  }
  if (!ended) lines.RefuseEnd();
  return segments;
}

}  // namespace host
