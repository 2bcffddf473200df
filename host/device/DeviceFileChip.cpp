#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/device/DeviceFileParts.h"

namespace host {
namespace {

CoveredRange ReadCrc(const XmlText& xml, const pugi::xml_node& sector, std::string_view covers) {
  for (const pugi::xml_node& crc : sector.children("crc")) {
    if (crc.attribute("covers").value() != covers) continue;
    xml.AllowOnly(crc, {"covers", "offset", "length"}, {});
    return {xml.Number(crc, "offset"), xml.Number(crc, "length")};
  }
  xml.Refuse(sector, fmt::format("<{}> lacks the <crc covers=\"{}\">", sector.name(), covers));
}

void ReadChipCcfg(const XmlText& xml, const pugi::xml_node& ccfg, ChipFacts& chip) {
  xml.AllowOnly(ccfg, {"base", "size"}, {"userRecord", "crc", "retain", "authorization"});
  chip.ccfg = {xml.Number(ccfg, "base"), xml.Number(ccfg, "size", kLargestMemory)};
  const pugi::xml_node userRecord = xml.Only(ccfg, "userRecord");
  xml.AllowOnly(userRecord, {"offset", "length"}, {});
  chip.userRecord = {xml.Number(userRecord, "offset"), xml.Number(userRecord, "length")};
  chip.bootCrc = ReadCrc(xml, ccfg, "boot");
  chip.ccfgCrc = ReadCrc(xml, ccfg, "ccfg");
  chip.userRecordCrc = ReadCrc(xml, ccfg, "userRecord");
  chip.debugCrc = ReadCrc(xml, ccfg, "debug");
  const pugi::xml_node retain = xml.Only(ccfg, "retain");
  xml.AllowOnly(retain, {"offset", "words", "groupShift"}, {});
  chip.retainOffset = xml.Number(retain, "offset");
  chip.retainWords = xml.Number(retain, "words");
  chip.retainGroupShift = xml.Number(retain, "groupShift");
  const pugi::xml_node authorization = xml.Only(ccfg, "authorization");
  xml.AllowOnly(authorization, {"type", "id", "hash"}, {});
  chip.authorizationTypeOffset = xml.Number(authorization, "type");
  chip.authorizationIdOffset = xml.Number(authorization, "id");
  chip.authorizationHashOffset = xml.Number(authorization, "hash");
}

struct HsmFormName {
  std::string_view name;
  HsmForm form;
};
constexpr HsmFormName s_hsmForms[] = {
    {"none", HsmForm::None}, {"whole", HsmForm::Whole}, {"records", HsmForm::Records}};

HsmForm ReadHsm(const XmlText& xml, const pugi::xml_node& node) {
  const std::string_view name = node.attribute("hsm").as_string("none");
  const auto known = std::find_if(std::begin(s_hsmForms), std::end(s_hsmForms),
                                  [&](const HsmFormName& one) { return one.name == name; });
  if (known == std::end(s_hsmForms))
    xml.Refuse(node, fmt::format("hsm=\"{}\" is none of none, whole, records", name));
  return known->form;
}

}  // namespace

ChipFacts ReadChip(const XmlText& xml, const pugi::xml_node& root) {
  const pugi::xml_node node = xml.Only(root, "chip");
  xml.AllowOnly(node, {"deviceId", "partId", "lifeCycle", "hsm"}, {"main", "ccfg", "scfg", "otp", "ram"});
  ChipFacts chip;
  chip.deviceId = xml.Number(node, "deviceId");
  chip.partId = xml.Number(node, "partId");
  chip.lifeCycle = static_cast<std::uint8_t>(xml.Number(node, "lifeCycle", 0xFF));
  chip.hsm = ReadHsm(xml, node);
  const pugi::xml_node main = xml.Only(node, "main");
  xml.AllowOnly(main, {"size", "sectorSize"}, {});
  chip.mainSize = xml.Number(main, "size", kLargestMemory);
  chip.sectorSize = xml.Number(main, "sectorSize");
  ReadChipCcfg(xml, xml.Only(node, "ccfg"), chip);
  if (const pugi::xml_node scfg = xml.OnlyIfAny(node, "scfg")) {
    xml.AllowOnly(scfg, {"base", "size"}, {"crc"});
    chip.scfg = {xml.Number(scfg, "base"), xml.Number(scfg, "size", kLargestMemory)};
    chip.scfgCrc = ReadCrc(xml, scfg, "scfg");
  }
  if (const pugi::xml_node otp = xml.OnlyIfAny(node, "otp")) chip.otp = ReadRange(xml, otp);
  chip.ram = ReadRange(xml, xml.Only(node, "ram"));
  return chip;
}

}  // namespace host
