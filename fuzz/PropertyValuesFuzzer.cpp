#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "DataSection.h"
#include "FlashUtil.h"
#include "PermissionList.h"
#include "Require.h"
#include "SectorList.h"

// Arbitrary texts as values of the structured flash properties. A value is refused or understood; what was
// understood, written down again in the plainest form, must be understood to mean the same.
//
// Input: which property | a few numbers | the text.

namespace {

using namespace fuzz;

// A host that has one property and hears messages.
class OnePropertyHost : public HostObject {
 public:
  explicit OnePropertyHost(std::string propertyValue)
      : HostObject{&s_table}, value(std::move(propertyValue)) {}

  std::string value;
  unsigned errorsReported = 0;

 private:
  static OnePropertyHost& Self(HostObject* object) { return static_cast<OnePropertyHost&>(*object); }
  const static char* GetValueOfProperty(HostObject* object, const char*) {
    return Self(object).value.c_str();
  }
  const static char* ReportError(HostObject* object, const char*) {
    ++Self(object).errorsReported;
    return nullptr;
  }
  const static HostFunctionTable s_table;
};

const HostFunctionTable OnePropertyHost::s_table = [] {
  HostFunctionTable table{};
  table.getValueOfProperty = GetValueOfProperty;
  table.reportError = ReportError;
  return table;
}();

// Nothing when the property's value is refused.
template <typename Read>
auto ReadOrNothing(Read read) -> decltype(read()) {
  try {
    return read();
  } catch (const std::exception&) {
    return {};
  }
}

std::vector<FlashUtil::RevisionRow> ReadRevisions(const std::string& value) {
  OnePropertyHost host(value);
  IFlashProgrammerUtility2 utility(&host);
  std::vector<FlashUtil::RevisionRow> rows;
  FlashUtil(&utility).ReadRevisionsTranslationFromXml(rows);
  return rows;
}

void CheckRevisionTable(const std::string& value) {
  const auto rows = ReadOrNothing([&] { return ReadRevisions(value); });
  std::string plain;
  for (const auto& [code, revision, name] : rows) {
    for (const std::string& entry : {std::to_string(code), revision, name}) plain.append(entry).append(":");
    std::uint32_t major = 7;
    std::uint32_t minor = 8;
    if (revision.empty()) continue;
    FlashUtil::ConvertRevisionStringToMajorMinor(revision, major, minor);
    if (revision.find('.') == std::string::npos)
      Require(major == 7 && minor == 8, "a revision that is no pair of numbers changes nothing");
  }
  Require(ReadRevisions(plain) == rows, "the revision table reads back");
}

std::vector<FlashUtil::SizeRow> ReadSizes(const std::string& value) {
  OnePropertyHost host(value);
  IFlashProgrammerUtility2 utility(&host);
  std::vector<FlashUtil::SizeRow> rows;
  FlashUtil(&utility).ReadSizeTranslationFromXml("sizes", rows);
  return rows;
}

void CheckSizeTable(const std::string& value) {
  const auto rows = ReadOrNothing([&] { return ReadSizes(value); });
  std::string plain;
  for (const auto& [device, part, variant, size] : rows)
    for (const long number : {device, part, variant, size})
      plain += (number == -1 ? "*" : std::to_string(number)) + ":";
  Require(ReadSizes(plain) == rows, "the size table reads back");
}

void CheckAddressAndLength(const std::string& value) {
  OnePropertyHost host(value);
  IFlashProgrammerUtility2 utility(&host);
  std::uint32_t address = 0;
  std::uint32_t length = 0;
  try {
    FlashUtil(&utility).ReadAddressLengthPropertyFromXml("pair", address, length);
  } catch (const std::exception&) {
    Require(host.errorsReported == 1, "a value without two entries is reported before it is refused");
    return;
  }
  OnePropertyHost again(
      FlashUtil::ConvertByteVectorToString(FlashUtil::ConvertWordToByteVector(address, false), ' ', 16) +
      ":0");
  std::erase(again.value, ' ');
  IFlashProgrammerUtility2 utilityAgain(&again);
  std::uint32_t addressAgain = 0;
  FlashUtil(&utilityAgain).ReadAddressLengthPropertyFromXml("pair", addressAgain, length);
  Require(again.errorsReported == 0 && addressAgain == address && length == 0, "the address reads back");
}

void CheckBytes(const std::string& value) {
  std::vector<std::uint8_t> bytes;
  try {
    FlashUtil::ConvertStringToByteVector(value, bytes, ':');
  } catch (const std::exception&) {
    return;
  }
  std::vector<std::uint8_t> again;
  FlashUtil::ConvertStringToByteVector(FlashUtil::ConvertByteVectorToString(bytes, ':', 16), again, ':');
  Require(again == bytes, "bytes read back");
  Require(hexStringToBytes(value).size() == (value.size() + 1) / 2, "two characters are one byte");
}

// `block` lies at `address`; `skipped` and `fill` say which of its bytes the options leave out.
void CheckCutting(const std::vector<std::uint8_t>& block, std::uint32_t address, const SectorMask& allowed,
                  std::uint8_t fill, std::uint32_t sectorSize) {
  std::vector<DataSection> sections{{block.data(), address, static_cast<std::uint32_t>(block.size())}};
  ExcludeSpecificSectorsFromDataSections(&sections, ConvertToAllowedSectorRanges(allowed, true), sectorSize);
  ExcludeSectorsFilledWithValueFromDataSections(&sections, fill, sectorSize);
  std::uint64_t end = address;
  for (const DataSection& section : sections) {
    Require(section.length > 0 && section.address >= end, "sections ascend and are not empty");
    end = std::uint64_t{section.address} + section.length;
    Require(end <= address + block.size() && section.data == block.data() + (section.address - address),
            "a section is a view of its own part of the block");
    for (std::uint64_t at = section.address; at < end; at = (at / sectorSize + 1) * sectorSize)
      Require(at / sectorSize < allowed.size() && allowed[at / sectorSize],
              "no skipped sector is programmed");
  }
}

void CheckSectorOptions(ByteSource input) {
  const std::uint32_t sectorCount = input.Byte();
  const std::uint32_t sectorSize = 1U + input.Byte() % 16U;
  const std::uint32_t address = input.Byte() % (sectorCount * sectorSize + 1);
  const std::uint8_t fill = input.Byte();
  const auto data = input.Take(input.Byte());
  const auto rest = input.Rest();
  const std::string list(rest.begin(), rest.end());

  SectorMask allowed;
  try {
    allowed = ParseSkippedSectors(list, sectorCount);
  } catch (const std::exception&) {
    allowed.assign(sectorCount, true);
  }
  Require(allowed.size() == sectorCount, "the mask has one entry a sector");
  std::string plain = JoinRanges(ConvertToAllowedSectorRanges(allowed, false));
  if (!plain.empty()) {
    plain.resize(plain.size() - 2);  // the last ", "
    Require(ParseSkippedSectors(plain, sectorCount) == allowed, "the list of skipped sectors reads back");
  }
  const std::vector<std::uint8_t> block(data.begin(), data.end());
  if (!block.empty()) CheckCutting(block, address, allowed, fill, sectorSize);
}

void CheckFillValue(const std::string& value) {
  try {
    const std::uint8_t fill = ParseFillValue(value);
    const std::string digits = FlashUtil::ConvertByteVectorToString({fill}, ' ', 16);
    Require(ParseFillValue("0x" + digits) == fill, "the fill value reads back");
  } catch (const std::exception&) {
  }
}

void CheckPermissionList(ByteSource input) {
  const auto data = input.Take(input.Byte());
  const auto rest = input.Rest();
  const std::string list(rest.begin(), rest.end());
  try {
    const std::string objections = PermissionObjections(list, "sector", data);
    const bool differs = objections.find("reading 0x") != std::string::npos;
    Require(!differs || objections.find("\"Permission check\" option") != std::string::npos,
            "an objection names the way out");
    Require(PermissionObjections(list, "sector", {}).find(", reading 0x") == std::string::npos || differs,
            "bytes that are not there are not compared");
  } catch (const std::exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteSource input({data, size});
  const std::uint8_t property = input.Byte() % 7;
  if (property == 0) CheckSectorOptions(input);
  if (property == 1) CheckPermissionList(input);
  if (property < 2) return 0;

  const auto rest = input.Rest();
  const std::string value(rest.begin(), rest.end());
  switch (property) {
    case 2: CheckRevisionTable(value); break;
    case 3: CheckSizeTable(value); break;
    case 4: CheckAddressAndLength(value); break;
    case 5: CheckBytes(value); break;
    default: CheckFillValue(value); break;
  }
  return 0;
}
