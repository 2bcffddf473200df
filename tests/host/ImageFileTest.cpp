#include "host/image/ImageFile.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "InputErrorOf.h"

namespace {

using host::ImageFile;
using host::ImageFormat;
using host::ImageSegment;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

Bytes BytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

std::string ErrorOfText(std::string_view name, std::string_view text) {
  return InputErrorOf([&] { host::ParseImage(name, BytesOf(text)); });
}

// --- ELF -------------------------------------------------------------------------------------------------

struct ElfFile {
  Elf32_Ehdr header{};
  std::vector<Elf32_Phdr> programs;
  Bytes data;  // behind the headers

  ElfFile() {
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS32;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_EXEC;
    header.e_machine = EM_ARM;
    header.e_version = EV_CURRENT;
    header.e_ehsize = sizeof header;
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(Elf32_Phdr);
  }
  // `offset` counts in `data`; three programs must be added for it to be right.
  void Add(Elf32_Word type, Elf32_Off offset, Elf32_Addr physical, Elf32_Word size) {
    programs.push_back({type, static_cast<Elf32_Off>(sizeof header + 3 * sizeof(Elf32_Phdr)) + offset,
                        0x7777'0000, physical, size, size + 16, PF_R, 4});
  }
  [[nodiscard]] Bytes Whole() const {
    Elf32_Ehdr counted = header;
    if (counted.e_phnum == 0) counted.e_phnum = static_cast<Elf32_Half>(programs.size());
    Bytes bytes(sizeof counted + programs.size() * sizeof(Elf32_Phdr));
    std::memcpy(bytes.data(), &counted, sizeof counted);
    if (!programs.empty())
      std::memcpy(bytes.data() + sizeof counted, programs.data(), programs.size() * sizeof(Elf32_Phdr));
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
  }
};

ElfFile SmallElf() {
  ElfFile elf;
  elf.Add(PT_LOAD, 0, 0x100, 4);
  elf.Add(PT_NOTE, 0, 0x900, 4);
  elf.Add(PT_LOAD, 4, 0x2000'0000, 3);
  elf.data = {1, 2, 3, 4, 5, 6, 7};
  return elf;
}

TEST(ElfImage, GivesLoadedSegmentsAtTheirPhysicalAddresses) {
  ElfFile elf = SmallElf();
  const ImageFile image = host::ParseImage("a.elf", elf.Whole());
  EXPECT_EQ(image.format, ImageFormat::Elf);
  EXPECT_EQ(image.segments, (std::vector<ImageSegment>{{0x100, {1, 2, 3, 4}}, {0x2000'0000, {5, 6, 7}}}));
  elf.programs[0].p_filesz = 0;  // zero-initialized memory
  EXPECT_EQ(host::ParseImage("a.elf", elf.Whole()).segments.size(), 1u);
}

TEST(ElfImage, EveryTruncationIsRefused) {
  const Bytes whole = SmallElf().Whole();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string error =
        InputErrorOf([&] { host::ParseImage("cut.elf", std::span(whole).first(size)); });
    EXPECT_THAT(error, testing::StartsWith("cut.elf: ")) << size;
    EXPECT_THAT(error, HasSubstr(size < 4 ? "" : "truncated ELF: ")) << size;
  }
}

TEST(ElfImage, BadOnesAreRefused) {
  const struct {
    void (*spoil)(ElfFile&);
    std::string error;
  } cases[] = {
      {[](ElfFile& elf) { elf.header.e_ident[EI_CLASS] = ELFCLASS64; },
       "is not a 32-bit little-endian ELF file"},
      {[](ElfFile& elf) { elf.header.e_ident[EI_DATA] = ELFDATA2MSB; },
       "is not a 32-bit little-endian ELF file"},
      {[](ElfFile& elf) { elf.header.e_machine = EM_386; }, "is an ELF file for machine 3, not for ARM"},
      // The real count then stands in the first section header, and may be anything.
      {[](ElfFile& elf) { elf.header.e_phnum = 0xFFFF, elf.header.e_phentsize = 0; },
       "damaged ELF: it says that it has 65535 program headers or more"},
      {[](ElfFile& elf) { elf.header.e_phentsize = 0; },
       "damaged ELF: it says that a program header has 0 bytes, not 32"},
      {[](ElfFile& elf) { elf.header.e_shnum = 1, elf.header.e_shentsize = 41; },
       "damaged ELF: it says that a section header has 41 bytes, not 40"},
      {[](ElfFile& elf) { elf.programs.clear(); }, "has no program headers; is it linked?"},
      {[](ElfFile& elf) {
         elf.programs.assign(1, {PT_NOTE, 0, 0, 0, 0, 0, 0, 0});
       },
       "holds no data to load"},
      {[](ElfFile& elf) { elf.programs[2].p_offset = 0xFFFF'FFFF; },
       "truncated ELF: segment 2 reaches to byte 4294967298, the file has 155"},
      {[](ElfFile& elf) { elf.programs[2].p_paddr = 0xFFFF'FFFD; },
       "segment 2: 3 bytes at 0xFFFFFFFD do not fit in 32-bit addresses"},
      {[](ElfFile& elf) {
         elf.header.e_shoff = 156;
         elf.header.e_shnum = 1;
         elf.header.e_shentsize = sizeof(Elf32_Shdr);
       },
       "truncated ELF: its section headers reach to byte 196, the file has 155"}};
  for (const auto& c : cases) {
    ElfFile elf = SmallElf();
    c.spoil(elf);
    EXPECT_EQ(InputErrorOf([&] { host::ParseImage("bad.elf", elf.Whole()); }), "bad.elf: " + c.error);
  }
}

// --- Intel HEX and S-record ------------------------------------------------------------------------------

constexpr std::string_view kHex =
    ":020000040001F9\r\n"
    ":0400100001020304E2\r\n"
    ":020014000506DF\r\n"
    ":020000021000EC\r\n"
    ":01FFFF00AA57\r\n"
    ":0400000500000000F7\r\n"
    ":00000001FF\r\n";
constexpr std::string_view kSRecords =
    "S00600004844521B\n"
    "S10500100102E7\n"
    "S206123456030456\n"
    "S30620000000AA2F\n"
    "\n"
    "S5030003F9\n"
    "S70500000000FA\n";

TEST(HexImage, FollowsBasesAndJoinsRecords) {
  const ImageFile image = host::ParseImage("a.hex", BytesOf(kHex));
  EXPECT_EQ(image.format, ImageFormat::IntelHex);
  EXPECT_EQ(image.segments,
            (std::vector<ImageSegment>{{0x0001'0010, {1, 2, 3, 4, 5, 6}}, {0x0001'FFFF, {0xAA}}}));
}

TEST(SRecordImage, TakesAllAddressSizes) {
  const ImageFile image = host::ParseImage("a.srec", BytesOf(kSRecords));
  EXPECT_EQ(image.format, ImageFormat::SRecord);
  EXPECT_EQ(image.segments,
            (std::vector<ImageSegment>{{0x10, {1, 2}}, {0x12'3456, {3, 4}}, {0x2000'0000, {0xAA}}}));
}

TEST(TextImages, BadOnesAreRefusedWithTheirLine) {
  const std::string kHexEnd = ":00000001FF\n";
  const std::string kEnd = "S9030000FC\n";
  const struct {
    std::string name, text, error;  // the error behind the name
  } cases[] = {
      {"a.hex", "\n:0400100001020304E2\n:020014000506DE\n" + kHexEnd,
       ":3: bad checksum: the line says 0xDE, its bytes give 0xDF"},
      {"a.hex", ":0400100001020304\n", ":1: the record has 8 bytes, its length field asks for 9"},
      {"a.hex", ":0400100001020304E\n", ":1: the record is cut short in the middle of a byte"},
      {"a.hex", ":04001000010203G4E2\n", ":1: column 16 is not a hexadecimal digit"},
      {"a.hex", ":\n", ":1: the record has 0 bytes, its length field asks for 5"},
      {"a.hex", ":0400100001020304E2\n0400100001020304E2\n", ":2: a record must begin with ':'"},
      {"a.hex", ":00000006FA\n", ":1: unknown record type 06"},
      {"a.hex", ":0100000201FC\n", ":1: a base address record must hold 2 bytes"},
      {"a.hex", ":02FFFF000102FD\n", ":1: the record runs past the end of its 64 KiB"},
      {"a.hex", ":02000004FFFFFC\n:02FFFE000102FE\n",
       ":2: 2 bytes at 0xFFFFFFFE do not fit in 32-bit addresses"},
      {"a.hex", ":0400100001020304E2\n", ":1: the file ends without its end record; is it cut short?"},
      {"a.hex", kHexEnd + ":0400100001020304E2\n", ":2: there is a line after the end record"},
      {"a.hex", kHexEnd, ": holds no data to load"},
      {"a.srec", "S10500100102E8\n", ":1: bad checksum: the line says 0xE8, its bytes give 0xE7"},
      {"a.srec", "S105001001E7\n", ":1: the record has 5 bytes, its length field and type ask for 6"},
      {"a.srec", "S30310FFED\n", ":1: the record has 4 bytes, its length field and type ask for 6"},
      {"a.srec", "S4030000FC\n", ":1: unknown record type S4"},
      {"a.s19", "S\n", ":1: the record has no type"},
      {"a.srec", "S307FFFFFFFE0102FA\n", ":1: 2 bytes at 0xFFFFFFFE do not fit in 32-bit addresses"},
      {"a.srec", "S10500100102E7\nS5030002FA\n",
       ":2: 2 data records counted, 1 read: the file has lost lines"},
      {"a.srec", "S10500100102E7\n" + kEnd + kEnd, ":3: there is a line after the end record"},
      {"a.srec", "S10500100102E7\n", ":1: the file ends without its end record; is it cut short?"},
      {"a.srec", kEnd, ": holds no data to load"}};
  for (const auto& c : cases) EXPECT_EQ(ErrorOfText(c.name, c.text), c.name + c.error);
}

// A cut anywhere but in the last line's end is noticed: a record without its tail, or no end record.
TEST(TextImages, EveryTruncationIsRefused) {
  for (const std::string_view whole : {kHex, kSRecords})
    for (std::size_t size = 0; size < whole.find_last_not_of("\r\n") + 1; ++size)
      EXPECT_NE(ErrorOfText("cut.hex", whole.substr(0, size)), "no error") << size;
}

TEST(TextImages, EveryChangedDigitIsRefused) {
  for (const std::string_view whole : {kHex, kSRecords}) {
    for (std::size_t i = 0; i < whole.size(); ++i) {
      if (std::isxdigit(static_cast<unsigned char>(whole[i])) == 0) continue;
      if (i > 0 && whole[i - 1] == 'S') continue;  // the type: no checksum covers it
      std::string changed(whole);
      changed[i] = changed[i] == '7' ? '8' : '7';
      EXPECT_NE(ErrorOfText("changed.hex", changed), "no error") << i;
    }
  }
}

// A writer for the round trips, from the formats' definitions: `bytes` and their checksum, which counts to
// `total`.
std::string Line(const char* start, Bytes bytes, const Bytes& data, unsigned total) {
  bytes.insert(bytes.end(), data.begin(), data.end());
  for (const std::uint8_t byte : bytes) total -= byte;
  bytes.push_back(static_cast<std::uint8_t>(total));
  std::string line = start;
  for (const std::uint8_t byte : bytes) {
    line += "0123456789ABCDEF"[byte >> 4];
    line += "0123456789abcdef"[byte & 15];
  }
  return line + "\n";
}

std::string HexLine(std::uint16_t offset, std::uint8_t type, const Bytes& data) {
  return Line(":",
              {static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(offset >> 8),
               static_cast<std::uint8_t>(offset), type},
              data, 0);
}

std::string SLine(std::uint32_t address, const Bytes& data) {
  Bytes bytes{static_cast<std::uint8_t>(data.size() + 5)};
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(address >> shift));
  return Line("S3", bytes, data, 0xFF);
}

// Segments far enough apart that none adjoin, none across a 64 KiB border.
std::vector<ImageSegment> ArbitrarySegments() {
  const auto count = *rc::gen::inRange<std::size_t>(1, 6);
  std::vector<ImageSegment> segments;
  for (std::size_t i = 0; i < count; ++i) {
    const auto block = *rc::gen::inRange<std::uint32_t>(0, 0x1000);
    const auto offset = *rc::gen::inRange<std::uint32_t>(0, 0xFE00);
    const auto size = *rc::gen::inRange<std::size_t>(1, 300);
    segments.push_back({static_cast<std::uint32_t>(i) << 28 | block << 16 | offset,
                        *rc::gen::container<Bytes>(size, rc::gen::arbitrary<std::uint8_t>())});
  }
  return segments;
}

RC_GTEST_PROP(TextImages, WhatIsWrittenIsRead, ()) {
  const std::vector<ImageSegment> segments = ArbitrarySegments();
  const auto lineBytes = *rc::gen::inRange<std::size_t>(1, 64);
  std::string hex, records = "S0030000FC\n";
  for (const ImageSegment& segment : segments) {
    hex += HexLine(
        0, 4,
        {static_cast<std::uint8_t>(segment.address >> 24), static_cast<std::uint8_t>(segment.address >> 16)});
    for (std::size_t at = 0; at < segment.data.size(); at += lineBytes) {
      const std::span<const std::uint8_t> rest = std::span(segment.data).subspan(at);
      const auto some = rest.first(std::min(lineBytes, rest.size()));
      const auto address = static_cast<std::uint32_t>(segment.address + at);
      hex += HexLine(static_cast<std::uint16_t>(address), 0, {some.begin(), some.end()});
      records += SLine(address, {some.begin(), some.end()});
    }
  }
  RC_ASSERT(host::ParseImage("a", BytesOf(hex + ":00000001FF")).segments == segments);
  RC_ASSERT(host::ParseImage("a", BytesOf(records + "S70500000000FA\r\n")).segments == segments);
}

// --- which format, which address -------------------------------------------------------------------------

TEST(RawImage, GoesToItsAddressUpToTheTopOfAll) {
  const ImageFile image = host::ParseImage("a.bin", Bytes{1, 2}, 0xFFFF'FFFD);
  EXPECT_EQ(image.format, ImageFormat::Raw);
  EXPECT_EQ(image.segments, (std::vector<ImageSegment>{{0xFFFF'FFFD, {1, 2}}}));
  EXPECT_EQ(InputErrorOf([] {
              host::ParseImage("a.bin", Bytes{1, 2}, 0xFFFF'FFFE);
            }),
            "a.bin: 2 bytes at 0xFFFFFFFE do not fit in 32-bit addresses");
  EXPECT_EQ(InputErrorOf([] { host::ParseImage("a.bin", Bytes{1}, 0xFFFF'FFFF'FFFF'FFFF); }),
            "a.bin: 1 bytes at 0xFFFFFFFFFFFFFFFF do not fit in 32-bit addresses");
}

TEST(ImageFormats, ContentDecidesBeforeTheExtension) {
  EXPECT_EQ(host::ParseImage("a.bin", BytesOf(kHex)).format, ImageFormat::IntelHex);
  EXPECT_EQ(host::ParseImage("a.elf", BytesOf(kSRecords)).format, ImageFormat::SRecord);
  EXPECT_EQ(host::ParseImage("a.hex", SmallElf().Whole()).format, ImageFormat::Elf);
  EXPECT_EQ(host::ParseImage("a.hex", BytesOf(":no hex"), 0).format, ImageFormat::Raw);
}

TEST(ImageFormats, WhatFitsNoFormatIsRefused) {
  EXPECT_EQ(
      ErrorOfText("a.dat", "hello"),
      "a.dat: is neither ELF nor Intel HEX nor S-record; give a raw binary its address as FILE@ADDRESS");
  EXPECT_EQ(ErrorOfText("a.HEX", "hello"), "a.HEX:1: a record must begin with ':'");
  EXPECT_EQ(ErrorOfText("a.mot", "hello"), "a.mot:1: a record must begin with 'S'");
  EXPECT_EQ(ErrorOfText("a.axf", "hello"), "a.axf: truncated ELF: 5 bytes do not hold its header");
  EXPECT_EQ(ErrorOfText("a.bin", "hello"), "a.bin: a raw binary needs an address, as in a.bin@0x0");
  EXPECT_EQ(ErrorOfText("a.hex", ""), "a.hex: is empty");
}

TEST(ImageFormats, OnlyARawBinaryTakesAnAddress) {
  EXPECT_EQ(InputErrorOf([] { host::ParseImage("a.hex", BytesOf(kHex), 0x1000); }),
            "a.hex: is Intel HEX, which holds its own addresses; leave out \"@0x1000\"");
  EXPECT_EQ(InputErrorOf([] { host::ParseImage("a.elf", SmallElf().Whole(), 0); }),
            "a.elf: is ELF, which holds its own addresses; leave out \"@0x0\"");
}

// --- arguments -------------------------------------------------------------------------------------------

struct ImageArgument : testing::Test {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / ("tovik-image-" + std::to_string(getpid()));
  void SetUp() override {
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "a.bin") << "abc";
    std::ofstream(folder / "b@2.bin") << "b";
    std::ofstream(folder / "c@16") << "S9";
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  std::string Path(const char* name) const { return (folder / name).string(); }
  std::string Error(const std::string& argument) const {
    return InputErrorOf([&] { host::ReadImage(argument); });
  }
};

TEST_F(ImageArgument, SplitsAtTheLastAt) {
  EXPECT_EQ(host::ReadImage(Path("a.bin@0x100")).segments,
            (std::vector<ImageSegment>{{0x100, {'a', 'b', 'c'}}}));
  EXPECT_EQ(host::ReadImage(Path("a.bin@256")).segments.front().address, 256u);
  EXPECT_EQ(host::ReadImage(Path("a.bin@0")).name, Path("a.bin"));
  EXPECT_EQ(host::ReadImage(Path("b@2.bin@7")).segments, (std::vector<ImageSegment>{{7, {'b'}}}));
}

TEST_F(ImageArgument, AFileWithAnAtInItsNameIsThatFile) {
  EXPECT_THAT(Error(Path("b@2.bin")), HasSubstr("b@2.bin: a raw binary needs an address"));
  EXPECT_THAT(Error(Path("c@16")), HasSubstr("c@16: is neither ELF"));
}

TEST_F(ImageArgument, BadOnesAreRefused) {
  EXPECT_EQ(Error(Path("none.elf")), Path("none.elf") + ": no such file");
  EXPECT_EQ(Error(Path("none.bin@0x0")), Path("none.bin") + ": no such file");
  EXPECT_EQ(Error(folder.string()), folder.string() + ": is a folder");
  EXPECT_EQ(Error(""), ": no such file");
  for (const std::string address : {"", "0x", "12k", "-4", "0x1G"})
    EXPECT_EQ(Error(Path("a.bin@") + address), Path("a.bin@") + address + ": \"" + address +
                                                   "\" is not an address (decimal, or hexadecimal with 0x)");
  EXPECT_EQ(Error(Path("a.bin@0x100000000")),
            Path("a.bin") + ": 3 bytes at 0x100000000 do not fit in 32-bit addresses");
}

}  // namespace
