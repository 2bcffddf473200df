#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "FlashUtil.h"
#include "PermissionList.h"
#include "Require.h"
#include "SectorList.h"
#include "tests/support/CuttingRules.h"

// Arbitrary texts as values of the structured flash properties. A value is refused or understood; what was
// understood, written down again in the plainest form, must be understood to mean the same.
//
// Input: which property | a few numbers | the text.

namespace {

using namespace fuzz;
using Bytes = std::vector<std::uint8_t>;

// A host that has one property and hears messages, and what reads the property.
struct OnePropertyHost : HostObject {
  explicit OnePropertyHost(std::string propertyValue)
      : HostObject{&s_table}, value(std::move(propertyValue)) {}

  std::string value;
  unsigned errorsReported = 0;
  IFlashProgrammerUtility2 utility{this};
  const FlashUtil reader{&utility};

  static OnePropertyHost& Self(HostObject* object) { return static_cast<OnePropertyHost&>(*object); }
  const static HostFunctionTable s_table;
};

const HostFunctionTable OnePropertyHost::s_table = [] {
  HostFunctionTable table{};
  table.getValueOfProperty = [](HostObject* object, const char*) { return Self(object).value.c_str(); };
  table.reportError = [](HostObject* object, const char*) -> const char* {
    ++Self(object).errorsReported;
    return nullptr;
  };
  return table;
}();

// Whether `call` accepts the value.
template <typename Call>
bool Accepts(Call call) {
  try {
    call();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void CheckRevisionTable(const std::string& value) {
  const auto read = [](const std::string& text, std::vector<FlashUtil::RevisionRow>& rows) {
    OnePropertyHost(text).reader.ReadRevisionsTranslationFromXml(rows);
  };
  std::vector<FlashUtil::RevisionRow> rows, again;
  if (!Accepts([&] { read(value, rows); })) return;
  std::string plain;
  for (const auto& [code, revision, name] : rows) {
    for (const std::string& entry : {std::to_string(code), revision, name}) plain.append(entry).append(":");
    std::uint32_t major = 7, minor = 8;
    if (revision.empty()) continue;
    FlashUtil::ConvertRevisionStringToMajorMinor(revision, major, minor);
    Require(revision.find('.') != std::string::npos || (major == 7 && minor == 8),
            "a revision that is no pair of numbers changes nothing");
  }
  read(plain, again);
  Require(again == rows, "the revision table reads back");
}

void CheckSizeTable(const std::string& value) {
  const auto read = [](const std::string& text, std::vector<FlashUtil::SizeRow>& rows) {
    OnePropertyHost(text).reader.ReadSizeTranslationFromXml("sizes", rows);
  };
  std::vector<FlashUtil::SizeRow> rows, again;
  if (!Accepts([&] { read(value, rows); })) return;
  std::string plain;
  for (const auto& [device, part, variant, size] : rows)
    for (const long number : {device, part, variant, size})
      plain += (number == -1 ? "*" : std::to_string(number)) + ":";
  read(plain, again);
  Require(again == rows, "the size table reads back");
}

void CheckAddressAndLength(const std::string& value) {
  OnePropertyHost host(value);
  std::uint32_t address = 0, length = 0, addressAgain = 0;
  if (!Accepts([&] { host.reader.ReadAddressLengthPropertyFromXml("pair", address, length); })) {
    Require(host.errorsReported == 1, "a value without two entries is reported before it is refused");
    return;
  }
  const Bytes word = FlashUtil::ConvertWordToByteVector(address, false);
  std::string plain = FlashUtil::ConvertByteVectorToString(word, ' ', 16) + ":0";
  std::erase(plain, ' ');
  OnePropertyHost again(plain);
  again.reader.ReadAddressLengthPropertyFromXml("pair", addressAgain, length);
  Require(again.errorsReported == 0 && addressAgain == address && length == 0, "the address reads back");
}

void CheckBytes(const std::string& value) {
  Bytes bytes, again;
  if (!Accepts([&] { FlashUtil::ConvertStringToByteVector(value, bytes, ':'); })) return;
  FlashUtil::ConvertStringToByteVector(FlashUtil::ConvertByteVectorToString(bytes, ':', 16), again, ':');
  Require(again == bytes, "bytes read back");
  Require(hexStringToBytes(value).size() == (value.size() + 1) / 2, "two characters are one byte");
}

void CheckFillValue(const std::string& value) {
  std::uint8_t fill = 0;
  if (!Accepts([&] { fill = ParseFillValue(value); })) return;
  const std::string digits = FlashUtil::ConvertByteVectorToString({fill}, ' ', 16);
  Require(ParseFillValue("0x" + digits) == fill, "the fill value reads back");
}

void CheckSectorOptions(ByteSource input) {
  const std::uint32_t sectorCount = input.Byte();
  const std::uint32_t sectorSize = 4U + input.Byte() % 13U;  // a word at least
  const std::uint32_t address = input.Byte() % (sectorCount * sectorSize + 1);
  const std::uint8_t fill = input.Byte();
  const auto block = input.Take(input.Byte());
  const std::string list = AsText(input.Rest());

  SectorMask allowed(sectorCount, true);
  (void)Accepts([&] { allowed = ParseSkippedSectors(list, sectorCount); });
  Require(allowed.size() == sectorCount, "the mask has one entry a sector");
  std::string plain = JoinRanges(ConvertToAllowedSectorRanges(allowed, false));
  if (!plain.empty()) {
    plain.resize(plain.size() - 2);  // the last ", "
    Require(ParseSkippedSectors(plain, sectorCount) == allowed, "the list of skipped sectors reads back");
  }
  if (block.empty() || allowed.empty()) return;
  RequireKept(BrokenCuttingRule(block, address, sectorSize, allowed, fill));
}

void CheckPermissionList(ByteSource input) {
  const auto data = input.Take(input.Byte());
  const std::string list = AsText(input.Rest());
  (void)Accepts([&] {
    const std::string objections = PermissionObjections(list, "sector", data);
    const bool differs = objections.find("reading 0x") != std::string::npos;
    Require(!differs || objections.find("\"Permission check\" option") != std::string::npos,
            "an objection names the way out");
    Require(PermissionObjections(list, "sector", {}).find(", reading 0x") == std::string::npos || differs,
            "bytes that are not there are not compared");
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteSource input({data, size});
  switch (input.Byte() % 7) {
    case 0: CheckSectorOptions(input); break;
    case 1: CheckPermissionList(input); break;
    case 2: CheckRevisionTable(AsText(input.Rest())); break;
    case 3: CheckSizeTable(AsText(input.Rest())); break;
    case 4: CheckAddressAndLength(AsText(input.Rest())); break;
    case 5: CheckBytes(AsText(input.Rest())); break;
    default: CheckFillValue(AsText(input.Rest())); break;
  }
  return 0;
}
