#include "host/device/DeviceDescription.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include "InputErrorOf.h"
#include "host/plan/Preflight.h"

namespace {

using host::DeviceDescription;
using testing::HasSubstr;

const std::filesystem::path kDevices = std::filesystem::path(TOVIK_SOURCE_DIR) / "devices";

// --- the files in devices/ ---------------------------------------------------------------------------------
// What the plug-in takes from them, the loads on every device hold against their chips; here is the rest.

struct DeviceFile : testing::TestWithParam<std::string> {
  const DeviceDescription device = host::ReadDeviceDescription(kDevices / (GetParam() + ".xml"));
  const host::ChipFacts& chip = device.chip;
  const std::uint32_t deviceNumber = chip.deviceId >> 12 & 0xFFFF;
  const bool isCorvel = device.family == "Corvel";
  const bool isNewer = chip.hsm != host::HsmForm::None;  // of the newer configuration format

  bool Has(const std::string& name) const { return device.Find(name) != nullptr; }
};

TEST_P(DeviceFile, MapIsTheChips) {
  EXPECT_THAT(host::Contradictions(device), testing::IsEmpty());
  EXPECT_EQ(device.map.aliasMask, deviceNumber == 0xBB98 || deviceNumber == 0xBBC5 ? 0x1000'0000u : 0u);
}

TEST_P(DeviceFile, CrcWordsCanBePutRightInAnyOrder) {
  const host::CoveredRange covered[] = {chip.bootCrc, chip.ccfgCrc, chip.userRecordCrc, chip.debugCrc};
  for (const host::CoveredRange& one : covered) {
    const std::uint32_t word = one.offset + one.length;
    EXPECT_LE(word + 4, chip.ccfg.size);
    for (const host::CoveredRange& other : covered)
      EXPECT_TRUE(word + 4 <= other.offset || word >= other.offset + other.length) << word;
  }
  // The key ring, from byte 232 on, may be cut off but for its first entry of 44 bytes.
  EXPECT_LE(chip.scfgCrc.offset + chip.scfgCrc.length + 4, 232u + 44u);
}

TEST_P(DeviceFile, FieldsLieWhereThePluginTakesThemToBe) {
  EXPECT_EQ(chip.authorizationTypeOffset, chip.ccfg.size - 48);
  EXPECT_EQ(chip.authorizationIdOffset, chip.ccfg.size - 44);
  EXPECT_EQ(chip.authorizationHashOffset, chip.ccfg.size - 36);
  EXPECT_LE(chip.debugCrc.offset, chip.authorizationTypeOffset);
  EXPECT_GE(chip.debugCrc.offset + chip.debugCrc.length, chip.authorizationHashOffset + 32);
  EXPECT_EQ(chip.retainWords, chip.mainSize / chip.sectorSize > 256 ? 3u : 2u);
  EXPECT_EQ(chip.retainGroupShift, isCorvel ? 4u : 0u);
}

TEST_P(DeviceFile, OffersTheSettingsThatActOnIt) {
  // The others of all devices are missed by every load that lacks them.
  for (const char* name :
       {"CcfgOverwriteAuthorizationFieldsPasswordId", "CcfgOverwriteAuthorizationFieldsPasswordHash",
        "DeviceInfoFlashSize", "DeviceInfoRAMSize", "DeviceInfoRevision"})
    EXPECT_TRUE(Has(name)) << name;
  EXPECT_EQ(Has("FlashEraseSetting"), !isCorvel);
  for (const char* name : {"NoFlashErase", "RetainMainSectors"}) EXPECT_EQ(Has(name), isCorvel) << name;
  for (const char* name : {"DebugPasswordFormatList", "DebugPassword", "DebugPasswordHex"})
    EXPECT_EQ(Has(name), !isNewer) << name;
  for (const char* name : {"RetainCcfgScfg", "HsmImagePath", "HsmSysInfo", "HsmUpdateStatus"})
    EXPECT_EQ(Has(name), isNewer) << name;
  // Only the name that the plug-in must ask for.
  EXPECT_FALSE(Has(isNewer ? "scfg.crc32Info" : "scfg2.crc32Info"));
}

std::vector<std::string> DeviceNames() {
  std::vector<std::string> names;
  for (const auto& file : host::ListDeviceFiles(kDevices)) names.push_back(file.stem().string());
  return names;
}
INSTANTIATE_TEST_SUITE_P(Devices, DeviceFile, testing::ValuesIn(DeviceNames()), [](const auto& test) {
  std::string name = test.param;
  std::erase(name, '-');
  return name;
});

TEST(DeviceFiles, CoverEveryKindOfDevice) {
  std::map<std::pair<std::uint32_t, host::HsmForm>, int> corvels;
  int serins = 0;
  for (const std::string& name : DeviceNames()) {
    const DeviceDescription device = host::ReadDeviceDescription(kDevices / (name + ".xml"));
    const std::uint32_t number = device.chip.deviceId >> 12 & 0xFFFF;
    ++(device.family == "Corvel" ? corvels[{number, device.chip.hsm}] : serins);
  }
  using enum host::HsmForm;
  EXPECT_EQ(corvels,
            (decltype(corvels){
                {{0xBB98, None}, 1}, {{0xBB98, Whole}, 1}, {{0xBBC5, Whole}, 1}, {{0xBBCC, Records}, 1}}));
  EXPECT_GE(serins, 1);
}

TEST(DeviceFiles, AreFoundByNameAndByPath) {
  EXPECT_EQ(host::FindDeviceFile("corvel-m30", kDevices), kDevices / "corvel-m30.xml");
  const std::string path = (kDevices / "serin-s20.xml").string();
  EXPECT_EQ(host::FindDeviceFile(path, "/nonexistent"), path);
  EXPECT_THAT(
      InputErrorOf([] { host::FindDeviceFile("corvel-m31", kDevices); }),
      testing::AllOf(HasSubstr("no device \"corvel-m31\""), HasSubstr("corvel-h50, corvel-m30, serin-s20")));
  EXPECT_THAT(InputErrorOf([] { host::FindDeviceFile("any", "/nonexistent"); }),
              HasSubstr("/nonexistent: cannot be read as a folder of device descriptions"));
}

// --- the format --------------------------------------------------------------------------------------

// Line numbers of the errors below count in this text, whose first line is line 1.
constexpr std::string_view kSmallDevice = R"(<device family='Test'>
<description>A device</description>
<map><main size='0x1000'/><ram base='0x20000000' size='256'/></map>
<facts>
<fact name='SectorSize' value='0x800' meaning='m'/>
<fact name='CcfgBase' value='0x40000000' meaning='m'/>
<fact name='CcfgSize' value='0x100' meaning='m'/>
<fact name='CcfgUserRecordSize' value='10' meaning='m'/>
<fact name='ccfg.userRecord.crc32Info' value='20:C' meaning='m'/>
</facts>
<group name='Group'>
<setting name='Toggle' type='bool' default='0' meaning='m'/>
<setting name='Choice' type='choice' default='A' meaning='m'><choice>A</choice><choice>B</choice></setting>
<display name='Shown' meaning='m'/>
</group>
<chip deviceId='0x10001001' partId='0x2' lifeCycle='5' hsm='whole'>
<main size='4096' sectorSize='2048'/>
<ccfg base='0x40000000' size='0x100'>
<userRecord offset='0x20' length='16'/>
<crc covers='boot' offset='0' length='4'/>
<crc covers='ccfg' offset='8' length='8'/>
<crc covers='userRecord' offset='0x20' length='12'/>
<crc covers='debug' offset='0xD0' length='44'/>
<retain offset='8' words='2' groupShift='4'/>
<authorization type='0xD0' id='0xD4' hash='0xDC'/>
</ccfg>
<otp base='0x40001000' size='64'/>
<ram base='0x20000000' size='256'/>
</chip>
</device>
)";

std::string Replaced(std::string_view from, std::string_view to) {
  std::string text(kSmallDevice);
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::logic_error("not in the text: " + std::string(from));
  return text.replace(at, from.size(), to);
}

TEST(DeviceDescription, BadFilesAreRefusedWithFileAndLine) {
  const struct {
    std::string from, to;  // what is changed in the small device
    std::string error;     // behind the file's name
  } cases[] = {
      {"</facts>", "</fact>", "10: broken XML: "},
      {std::string(kSmallDevice), "<part/>", "1: the root element must be <device>"},
      {" family='Test'", "", "1: <device> lacks the attribute \"family\""},
      {"<description>A device</description>", "", "1: <device> lacks a <description>"},
      {"</description>", "</description><description/>", "2: <device> has a second <description>"},
      {"<group name='Group'>", "<group name='Group'><flag/>", "11: <flag> does not belong in <group>"},
      {"<group name='Group'>", "<group name='Group'>text", "11: text does not belong in <group>"},
      {"type='bool'", "type='boolean'", "12: unknown type \"boolean\""},
      {"type='bool'", "type='bool' hint='h'", "12: <setting> has an unknown attribute \"hint\""},
      {"default='0'", "default='2'", "12: default of Toggle: \"2\" is not 1 or 0"},
      {"default='0'", "default='off'", "12: default of Toggle: \"off\" must be spelled"},
      {"default='A'", "default='C'", "13: default of Choice: \"C\" is not one of \"A\", \"B\""},
      {"default='A'", "default='a'", "13: default of Choice: \"a\" must be spelled"},
      {"'Shown'", "'Toggle'", "14: the property \"Toggle\" is given twice"},
      {"<main size='0x1000'/>", "<main size='lots'/>", "3: size=\"lots\" is not a number of 32 bits"},
      {"<main size='0x1000'/>", "<main size='0x1001'/>", "3: main is not a whole number of sectors"},
      {"size='256'/></map>", "size='0x1000001'/></map>", "3: size=\"0x1000001\" is more than 0x1000000"},
      {"base='0x20000000' size='256'/></map>", "base='0xFFFFFF01' size='256'/></map>",
       "3: <ram> ends above 32 bits"},
      {"base='0x20000000' size='256'/></map>", "base='0x800' size='256'/></map>", "3: main and ram overlap"},
      {"<map>", "<map aliasMask='0x40000000'>", "3: ccfg lies in the alias"},
      {"value='0x800'", "value=''", "4: the fact SectorSize: \"\" is not a hexadecimal number of 32 bits"},
      {"value='0x800'", "value='801'", "4: the fact SectorSize: \"801\" is not at most 0x800"},
      {"value='0x100'", "value='801'", "4: the fact CcfgSize: \"801\" is not at most 0x800"},
      {"<facts>", "<facts><fact name='ScfgSize' value='401' meaning='m'/>",
       "4: the fact ScfgSize: \"401\" is not at most 0x400"},
      {"value='10'", "value='81'", "4: the fact CcfgUserRecordSize: \"81\" is not at most 0x80"},
      {"value='0x800'", "value='0'", "3: main is not a whole number of sectors"},
      {"'CcfgSize'", "'CcfgSizes'", "4: <facts> lacks the fact \"CcfgSize\""},
      {"20:C", "20", "4: the fact ccfg.userRecord.crc32Info: \"20\" is not OFFSET:LENGTH"},
      {"20:C", "0xF1:0xC", "3: the user record does not lie in the ccfg"},
      {"deviceId='0x10001001'", "deviceId='0x1000010001'",
       "16: deviceId=\"0x1000010001\" is not a number of 32 bits"},
      {"hsm='whole'", "hsm='half'", "16: hsm=\"half\" is none of"},
      {"covers='boot'", "covers='boots'", "18: <ccfg> lacks the <crc covers=\"boot\">"},
      {"<group name", "<include file='../x.xml'/><group name", "11: file=\"../x.xml\" must lie in"},
      {"<group name", "<include file='/etc/x.xml'/><group name", "11: file=\"/etc/x.xml\" must lie in"},
      {"<group name", "<include file='absent.xml'/><group name", "11: absent.xml: no such file"},
      {"lifeCycle='5'", "lifeCycle='0x105'", "16: lifeCycle=\"0x105\" is more than 0xff"},
      {"<chip ", "<ports memory='256'/><chip ", "16: memory=\"256\" is more than 0xff"},
      {"<chip ", "<ports memory='0'/><chip ", "16: <ports> lacks the register CFGAP_DEVICEID"},
      {"<chip ", "<ports memory='0'><port number='1'><register name='R' offset='2'/></port></ports><chip ",
       "16: the offset of R is no multiple of 4"}};
  for (const auto& c : cases) {
    const std::string error =
        InputErrorOf([&] { host::ParseDeviceDescription(Replaced(c.from, c.to), "small.xml"); });
    EXPECT_THAT(error, testing::StartsWith("small.xml:" + c.error));
    EXPECT_THAT(error, testing::Not(HasSubstr("\n")));
  }
}

TEST(DeviceDescription, PortsAreTheFamilysOrAllGiven) {
  const DeviceDescription plain = host::ParseDeviceDescription(kSmallDevice, "small.xml");
  std::string xml = "<ports memory='7'><port number='9'>";
  for (const host::PortRegister& one : plain.ports.registers)
    xml += "<register name='" + one.name + "' offset='0xF0'/>";
  const DeviceDescription given =
      host::ParseDeviceDescription(Replaced("<chip ", xml + "</port></ports><chip "), "small.xml");
  EXPECT_EQ(given.ports.memory, 7);
  EXPECT_EQ(given.ports.registers.size(), 8u);
  EXPECT_EQ(*given.ports.Find("SECAP_RXCTL"), (host::PortRegister{"SECAP_RXCTL", 9, 0xF0}));
  EXPECT_EQ(*plain.ports.Find("SECAP_RXCTL"), (host::PortRegister{"SECAP_RXCTL", 2, 0x0C}));
  EXPECT_EQ(plain.ports.Find("SECAP"), nullptr);
}

TEST(DeviceDescription, EveryTruncationIsRefused) {
  const std::string whole(kSmallDevice.substr(0, kSmallDevice.rfind('>') + 1));
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_THAT(InputErrorOf([&] { host::ParseDeviceDescription(whole.substr(0, size), "cut.xml"); }),
                testing::StartsWith("cut.xml:"))
        << size;
}

TEST(DeviceDescription, AnIncludedFileIsNamedInItsErrors) {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / ("tovik-include-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "more.xml")
      << "<settings>\n<group name=\"G\">\n"
      << "<setting name=\"Toggle\" type=\"bool\" default=\"1\" meaning=\"m\"/>\n"
      << "</group></settings>";
  const std::string xml = Replaced("<chip ", "<include file='more.xml'/><chip ");
  EXPECT_EQ(InputErrorOf([&] { host::ParseDeviceDescription(xml, folder / "small.xml"); }),
            (folder / "more.xml").string() + ":3: the property \"Toggle\" is given twice");
  std::filesystem::remove_all(folder);
}

}  // namespace
