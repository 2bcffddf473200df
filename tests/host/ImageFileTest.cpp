#include "host/image/ImageFile.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>

#include "InputErrorOf.h"
#include "host/image/ImageWatch.h"
#include "host/image/ImageWriter.h"
#include "tests/support/ImageRules.h"

namespace {

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
  // Three, as the offsets of their data want it; bytes 0 to 6 of the data are 1 to 7.
  std::vector<Elf32_Phdr> programs = {Program(PT_LOAD, 0, 0x100, 4), Program(PT_NOTE, 0, 0x900, 4),
                                      Program(PT_LOAD, 4, 0x2000'0000, 3)};

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
    header.e_phnum = 3;
  }
  static Elf32_Phdr Program(Elf32_Word type, Elf32_Off offset, Elf32_Addr physical, Elf32_Word size) {
    return {type,        static_cast<Elf32_Off>(sizeof(Elf32_Ehdr) + 3 * sizeof(Elf32_Phdr)) + offset,
            0x7777'0000, physical,
            size,        size + 16,
            PF_R,        4};
  }
  [[nodiscard]] Bytes Whole() const {
    Bytes bytes(sizeof header + programs.size() * sizeof(Elf32_Phdr));
    std::memcpy(bytes.data(), &header, sizeof header);
    std::memcpy(bytes.data() + sizeof header, programs.data(), bytes.size() - sizeof header);
    for (std::uint8_t byte = 1; byte <= 7; ++byte) bytes.push_back(byte);
    return bytes;
  }
};

TEST(ElfImage, GivesLoadedSegmentsAtTheirPhysicalAddresses) {
  ElfFile elf;
  EXPECT_EQ(host::ParseImage("a.elf", elf.Whole()).segments,
            (std::vector<ImageSegment>{{0x100, {1, 2, 3, 4}}, {0x2000'0000, {5, 6, 7}}}));
  elf.programs[0].p_filesz = 0;  // zero-initialized memory
  EXPECT_EQ(host::ParseImage("a.elf", elf.Whole()).segments.size(), 1u);
}

TEST(ElfImage, BadOnesAreRefused) {
  const struct {
    void (*spoil)(ElfFile&);
    std::string error;
  } cases[] = {
      {[](ElfFile& e) { e.header.e_ident[EI_CLASS] = ELFCLASS64; }, "is not a 32-bit little-endian ELF file"},
      {[](ElfFile& e) { e.header.e_ident[EI_DATA] = ELFDATA2MSB; }, "is not a 32-bit little-endian ELF file"},
      {[](ElfFile& e) { e.header.e_machine = EM_386; }, "is an ELF file for machine 3, not for ARM"},
      {[](ElfFile& e) { e.header.e_phnum = 0; }, "has no program headers; is it linked?"},
      // The real count then stands in the first section header, and may be anything.
      {[](ElfFile& e) { e.header.e_phnum = 0xFFFF, e.header.e_phentsize = 0; },
       "damaged ELF: it says that it has 65535 program headers or more"},
      {[](ElfFile& e) { e.header.e_phentsize = 0; },
       "damaged ELF: it says that a program header has 0 bytes, not 32"},
      {[](ElfFile& e) { e.header.e_shnum = 1, e.header.e_shentsize = 41; },
       "damaged ELF: it says that a section header has 41 bytes, not 40"},
      {[](ElfFile& e) { e.programs[0].p_type = e.programs[2].p_type = PT_NOTE; }, "holds no data to load"},
      {[](ElfFile& e) { e.programs[2].p_offset = 0xFFFF'FFFF; },
       "truncated ELF: segment 2 reaches to byte 4294967298, the file has 155"},
      {[](ElfFile& e) { e.programs[2].p_paddr = 0xFFFF'FFFD; },
       "segment 2: 3 bytes at 0xFFFFFFFD do not fit in 32-bit addresses"},
      {[](ElfFile& e) { e.header.e_shoff = 116, e.header.e_shnum = 1, e.header.e_shentsize = 40; },
       "truncated ELF: its section headers reach to byte 156, the file has 155"}};
  for (const auto& c : cases) {
    ElfFile elf;
    c.spoil(elf);
    EXPECT_EQ(InputErrorOf([&] { host::ParseImage("bad.elf", elf.Whole()); }), "bad.elf: " + c.error);
  }
}

// --- Intel HEX and S-record ------------------------------------------------------------------------------

constexpr std::string_view kHex =
    ":020000040001F9\r\n:0400100001020304E2\r\n:020014000506DF\r\n:020000021000EC\r\n"
    ":01FFFF00AA57\r\n:0400000500000000F7\r\n:00000001FF\r\n";
constexpr std::string_view kSRecords =
    "S00600004844521B\nS10500100102E7\nS206123456030456\nS30620000000AA2F\nS306FFFFFFFEAA54\n\nS5030004F8\n"
    "S70500000000FA\n";

TEST(TextImages, BasesAreFollowedAllAddressSizesTakenAndRecordsJoined) {
  EXPECT_EQ(host::ParseImage("a.hex", BytesOf(kHex)).segments,
            (std::vector<ImageSegment>{{0x0001'0010, {1, 2, 3, 4, 5, 6}}, {0x0001'FFFF, {0xAA}}}));
  EXPECT_EQ(host::ParseImage("a.srec", BytesOf(kSRecords)).segments,
            (std::vector<ImageSegment>{
                {0x10, {1, 2}}, {0x12'3456, {3, 4}}, {0x2000'0000, {0xAA}}, {0xFFFF'FFFE, {0xAA}}}));
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
      {"a.ihex", ":\n", ":1: the record has 0 bytes, its length field asks for 5"},
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
      {"a.s37", "S105001001E7\n", ":1: the record has 5 bytes, its length field and type ask for 6"},
      {"a.s28", "S30310FFED\n", ":1: the record has 4 bytes, its length field and type ask for 6"},
      {"a.srec", "S4030000FC\n", ":1: unknown record type S4"},
      {"a.s19", "S\n", ":1: the record has no type"},
      {"a.s19", "S1\n", ":1: the record has 0 bytes, its length field and type ask for 4"},
      {"a.srec", "S307FFFFFFFE0102FA\n", ":1: 2 bytes at 0xFFFFFFFE do not fit in 32-bit addresses"},
      {"a.srec", "S10500100102E7\nS5030002FA\n",
       ":2: 2 data records counted, 1 read: the file has lost lines"},
      {"a.srec", "S10500100102E7\n" + kEnd + kEnd, ":3: there is a line after the end record"},
      {"a.srec", "S10500100102E7\n", ":1: the file ends without its end record; is it cut short?"},
      {"a.srec", kEnd, ": holds no data to load"}};
  for (const auto& c : cases) EXPECT_EQ(ErrorOfText(c.name, c.text), c.name + c.error);
}

// A cut anywhere but in the last line's end is noticed: a table or record without its tail, or no end record.
TEST(Images, EveryTruncationIsRefused) {
  for (const Bytes& whole : {ElfFile().Whole(), BytesOf(kHex), BytesOf(kSRecords)}) {
    const bool endsInALine = whole.back() == '\n';
    for (std::size_t size = 0; size + (endsInALine ? 2 : 0) < whole.size(); ++size)
      EXPECT_THAT(InputErrorOf([&] { host::ParseImage("cut.hex", std::span(whole).first(size)); }),
                  testing::StartsWith("cut.hex:"))
          << size;
  }
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

// Sums by hand: 03+01+02+03 = 09, 02+04+4C+00 = 52; 08+4C+01+02+03 = 5A, 05 = 05.
TEST(ImageWriter, WritesKnownLines) {
  constexpr std::uint8_t kFew[] = {1, 2, 3};
  EXPECT_EQ(host::WriteIntelHex(kFew, 0x4C00'0000), ":020000044C00AE\n:03000000010203F7\n:00000001FF\n");
  EXPECT_EQ(host::WriteSRecord(kFew, 0x4C00'0000), "S0030000FC\nS3084C000000010203A5\nS70500000000FA\n");
}

// Across line and 64 KiB borders alike.
RC_GTEST_PROP(ImageWriter, WhatIsWrittenIsRead, ()) {
  const auto address = *rc::gen::oneOf(rc::gen::inRange<std::uint32_t>(0, 100),
                                       rc::gen::inRange<std::uint32_t>(0x4C00'FF00, 0x4C01'0000));
  const auto size = *rc::gen::inRange<std::size_t>(1, 600);
  const ImageSegment segment{address, *rc::gen::container<Bytes>(size, rc::gen::arbitrary<std::uint8_t>())};
  RC_ASSERT(BrokenWriterRule(segment) == "");
}

// --- which format, which address -------------------------------------------------------------------------

TEST(RawImage, GoesToItsAddressUpToTheTopOfAll) {
  EXPECT_EQ(host::ParseImage("a.bin", Bytes{1, 2}, 0xFFFF'FFFD).segments,
            (std::vector<ImageSegment>{{0xFFFF'FFFD, {1, 2}}}));
  const std::pair<std::uint64_t, const char*> tooHigh[] = {{0xFFFF'FFFE, "0xFFFFFFFE"},
                                                           {~0ull, "0xFFFFFFFFFFFFFFFF"}};
  for (const auto& [address, digits] : tooHigh)
    EXPECT_EQ(InputErrorOf([&, at = address] { host::ParseImage("a.bin", Bytes(2), at); }),
              std::string("a.bin: 2 bytes at ") + digits + " do not fit in 32-bit addresses");
}

TEST(ImageFormats, ContentDecidesBeforeTheExtensionAndWhetherAnAddressMayBeGiven) {
  const std::tuple<std::string, Bytes, ImageFormat> cases[] = {
      {"a.bin", BytesOf(kHex), ImageFormat::IntelHex},
      {"a.elf", BytesOf(kSRecords), ImageFormat::SRecord},
      {"a.hex", ElfFile().Whole(), ImageFormat::Elf}};
  for (const auto& [name, content, format] : cases) {
    EXPECT_EQ(host::ParseImage(name, content).format, format);
    EXPECT_EQ(
        InputErrorOf([&, &name = name, &content = content] { host::ParseImage(name, content, 0x1000); }),
        name + ": is " + std::string(ImageFormatName(format)) +
            ", which holds its own addresses; leave out \"@0x1000\"");
  }
  EXPECT_EQ(host::ParseImage("a.hex", BytesOf(":no hex"), 0).format, ImageFormat::Raw);
  for (const char* name : {"a.srec", "a.S19", "a.s28", "a.s37", "a.mot"})
    EXPECT_EQ(host::FormatByExtension(name), ImageFormat::SRecord) << name;
}

TEST(ImageFormats, WhatFitsNoFormatIsRefused) {
  const std::pair<const char*, const char*> cases[] = {
      {"a.dat", ": is neither ELF nor Intel HEX nor S-record; give a raw binary its address as FILE@ADDRESS"},
      {"a.HEX", ":1: a record must begin with ':'"},
      {"a.mot", ":1: a record must begin with 'S'"},
      {"a.axf", ": truncated ELF: 5 bytes do not hold its header"},
      {"a.bin", ": a raw binary needs an address, as in a.bin@0x0"}};
  for (const auto& [name, error] : cases) EXPECT_EQ(ErrorOfText(name, "hello"), std::string(name) + error);
  EXPECT_EQ(ErrorOfText("a.hex", ""), "a.hex: is empty");
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

TEST_F(ImageArgument, SplitsAtTheLastAtUnlessThatIsAFilesName) {
  EXPECT_EQ(host::ReadImage(Path("a.bin@0x100")).segments,
            (std::vector<ImageSegment>{{0x100, {'a', 'b', 'c'}}}));
  EXPECT_EQ(host::ReadImage(Path("a.bin@256")).segments.front().address, 256u);
  EXPECT_EQ(host::ReadImage(Path("a.bin@0")).name, Path("a.bin"));
  EXPECT_EQ(host::ReadImage(Path("b@2.bin@7")).segments, (std::vector<ImageSegment>{{7, {'b'}}}));
  EXPECT_THAT(Error(Path("b@2.bin")), HasSubstr("b@2.bin: a raw binary needs an address"));
  EXPECT_THAT(Error(Path("c@16")), HasSubstr("c@16: is neither ELF"));
}

TEST_F(ImageArgument, BadOnesAreRefused) {
  std::filesystem::resize_file(folder / "a.bin", (1ull << 30) + 1);  // a hole: it takes no room
  const std::pair<std::string, std::string> cases[] = {
      {Path("none.elf"), ": no such file"},
      {Path("none.bin@0x0"), ": no such file"},
      {folder.string(), ": is a folder"},
      {"", ": no such file"},
      {"/dev/zero", ": is not a regular file"},
      {Path("a.bin"), ": is larger than 1024 MiB"},
      {std::string(300, 'n'), ": cannot be read: File name too long"},
      {Path("b@2.bin@0x100000000"), ": 1 bytes at 0x100000000 do not fit in 32-bit addresses"}};
  for (const auto& [argument, error] : cases)
    EXPECT_THAT(Error(argument), testing::EndsWith(error)) << argument;
  for (const std::string address : {"", "0x", "12k", "-4", "0x1G"})
    EXPECT_EQ(Error(Path("a.bin@") + address), Path("a.bin@") + address + ": \"" + address +
                                                   "\" is not an address (decimal, or hexadecimal with 0x)");
}

TEST_F(ImageArgument, IsWatchedUntilAChangeHasBeenLeftAloneForAMoment) {
  const host::ImageWatch watch({Path("a.bin")});
  const auto waiting = std::async(std::launch::async, [&] { watch.Wait(); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(900)), std::future_status::timeout);
  std::ofstream(folder / "a.bin") << "abcd";
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  EXPECT_EQ(waiting.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

}  // namespace
