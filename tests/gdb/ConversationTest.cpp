#include <gtest/gtest.h>

#include "FakeTarget.h"
#include "host/gdb/Link.h"

// What a client is answered, byte for byte, and what becomes of what it sends.

namespace {

using Segments = std::vector<host::ImageSegment>;

std::vector<std::uint8_t> BytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

struct LinkTest : testing::Test {
  // Sends payloads, each as a packet; returns those of the answers. The last is checked to be sound.
  std::string Ask(const std::vector<std::string>& payloads) {
    std::string said;
    for (const std::string& payload : payloads) {
      wire.clear();
      link.Take(host::gdb::Packet(payload));
      EXPECT_TRUE(wire.starts_with("+$")) << wire;
      EXPECT_EQ(wire[wire.size() - 3], '#') << wire;
      if (!said.empty()) said += ' ';
      said += wire.substr(2, wire.size() - 5);
    }
    return said;
  }

  FakeTarget chip;
  std::string wire;
  host::gdb::Link link{chip, chip, [this](std::string_view bytes) { wire += bytes; }};
};

TEST_F(LinkTest, FindsPacketsInWhateverComes) {
  const struct {
    const char* sent;
    const char* answered;
  } cases[] = {
      {"+$?#3f", "+$S05#b8"},
      {"-", "$S05#b8"},  // again
      {"$?#3e", "-"},
      {"$?#zz", "-"},
      {"$qSuppo$?#3f", "+$S05#b8"},
      {"$?", ""},
      {"#3f", "+$S05#b8"},  // the rest of it
      {"\x03 nonsense $?#3f", "+$S05#b8"},
      {"$vMustReplyEmpty#3a", "+$#00"},
      {"$#00", "+$#00"},
      {"$QStartNoAckMode#b0", "+$OK#9a"},
      {"+$?#3f", "$S05#b8"},
      {"$?#3e", "$E01#a6"},  // nobody would ask again
  };
  for (const auto& c : cases) {
    wire.clear();
    link.Take(c.sent);
    EXPECT_EQ(wire, c.answered) << c.sent;
  }
  const std::string damaged = "the client sent a packet with a wrong checksum";
  EXPECT_EQ(chip.complaints,
            (std::vector{damaged, std::string("the client sent bytes that are no packet; is it a debugger?"),
                         damaged}));
}

TEST_F(LinkTest, AnswersAsClientsCanBear) {
  const std::string no =
      "E.this server loads and reads; it does not run programs: 'monitor reset' starts the chip";
  const struct {
    std::vector<std::string> sent;
    std::string answered;
  } cases[] = {
      {{"qSupported:xmlRegisters=i386", "?", "!", "Hg0", "qAttached", "qC"},
       "PacketSize=10000;qXfer:memory-map:read+;qXfer:features:read+;QStartNoAckMode+ S05 OK OK 1 "},
      {{"qCRC:0,9"}, "C376e6e7"},  // the published check value of this CRC
      {{"m0,2", "m3fff,2", "m4000,1", "m0,-1", "m0", "m100000000,1"}, "3132 E01 E01 E01 E01 E01"},
      {{"qCRC:0,ffffffff"}, "E01"},
      {{std::string(0x10000, 'y'), std::string(0x10001, 'y')}, "E01"},  // nothing, and too long
      {{"qXfer:features:read:target.xml:5,7", "qXfer:features:read:target.xml:ffff,9"}, "m versio l"},
      {{"qXfer:features:read:target.xml:0,ffff"},
       R"(l<?xml version="1.0"?><!DOCTYPE target SYSTEM "gdb-target.dtd"><target><architecture>arm</architecture><feature name="org.gnu.gdb.arm.m-profile"><reg name="r0" bitsize="32"/><reg name="r1" bitsize="32"/><reg name="r2" bitsize="32"/><reg name="r3" bitsize="32"/><reg name="r4" bitsize="32"/><reg name="r5" bitsize="32"/><reg name="r6" bitsize="32"/><reg name="r7" bitsize="32"/><reg name="r8" bitsize="32"/><reg name="r9" bitsize="32"/><reg name="r10" bitsize="32"/><reg name="r11" bitsize="32"/><reg name="r12" bitsize="32"/><reg name="sp" bitsize="32" type="data_ptr"/><reg name="lr" bitsize="32"/><reg name="pc" bitsize="32" type="code_ptr"/><reg name="xpsr" bitsize="32"/></feature></target>)"},
      {{"qXfer:memory-map:read::0,ffff"}, R"(l<?xml version="1.0"?><!DOCTYPE memory-map PUBLIC "+//IDN gnu.org//DTD GDB Memory Map V1.0//EN" "http://sourceware.org/gdb/gdb-memory-map.dtd"><memory-map><memory type="flash" start="0x0" length="0x4000"><property name="blocksize">0x800</property></memory><memory type="flash" start="0x10000000" length="0x4000"><property name="blocksize">0x800</property></memory><memory type="flash" start="0x4c000000" length="0x800"><property name="blocksize">0x800</property></memory><memory type="flash" start="0x5c000000" length="0x800"><property name="blocksize">0x800</property></memory><memory type="flash" start="0x4c000800" length="0x400"><property name="blocksize">0x400</property></memory><memory type="flash" start="0x5c000800" length="0x400"><property name="blocksize">0x400</property></memory><memory type="ram" start="0x20000000" length="0x1000"/><memory type="ram" start="0x30000000" length="0x1000"/></memory-map>)"},
      {{"qXfer:osdata:read::0,9"}, ""},
      {{"pf", "p10", "p0", "p11", "p"}, "00000000 00000001 xxxxxxxx E01 E01"},
      {{"c", "vCont;s:1", "C05", "s", "S05"}, no + " " + no + " " + no + " " + no + " " + no},
      {{"M20000000,2:0", "X20000000,2:abc", "X0,1:a"},
       "E.a write with odd digits E.a write of another length than it says "
       "E.0x00000000..0x00000000: 0x00000000 lies in no memory that takes this"},
      {{"X20000000,0:", "X20000000,1", "Xffffffff,1:a", "Xffffffff,2:ab", "X20000fff,2:ab",
        "X" + std::string(41, '7') + ":a"},
       "OK E.a write without data E.0xffffffff..0xffffffff: 0xffffffff lies in no memory that takes this "
       "E.\"ffffffff,2\" is no address and length "
       "E.0x20000fff..0x20001000: 0x20001000 lies in no memory that takes this E.\"" +
           std::string(40, '7') + "\" is no address and length"},
  };
  for (const auto& c : cases) EXPECT_EQ(Ask(c.sent), c.answered);
  EXPECT_EQ(chip.complaints.at(0), "bus error") << "what is flash can be read; what is no memory, by nobody";
  EXPECT_EQ(chip.complaints.at(1), "\"0,-1\" is no address and length");
  chip.map.main.size = 0x10000;
  EXPECT_EQ(Ask({"m0,9000"}).size(), 0x10000U) << "as many bytes as an answer holds";
  link.Take(host::gdb::Packet("qRcmd,6661696c"));
  EXPECT_TRUE(wire.ends_with("$O6661696c#2a$O6661696c65640a#90$E01#a6")) << wire;
  EXPECT_EQ(Ask({"qRcmd,6"}), "E01");
  EXPECT_EQ(chip.complaints.back(), "a monitor command with odd digits");
}

TEST_F(LinkTest, CarriesOutALoadAsOne) {
  EXPECT_EQ(Ask({"X20000010,2:in", "M20000011,1:4F", "vFlashErase:1000,800", "vFlashWrite:1000:c}\x03",
                 "vFlashErase:0,1000", "vFlashWrite:10000ffe:ab", "vFlashErase:4c000000,c00",
                 "vFlashWrite:4c0007ff:xy", "vFlashDone", "Pf=44000000"}),
            "OK OK OK OK OK OK OK OK OK OK");
  const Segments load = {{0xFFE, BytesOf("abc#")},
                         {0x4C00'07FF, BytesOf("x")},
                         {0x4C00'0800, BytesOf("y")},
                         {0x2000'0010, BytesOf("iO")}};
  EXPECT_EQ(chip.loads, std::vector<Segments>{load});
  EXPECT_EQ(chip.ramWrites, (Segments{{0x2000'0010, BytesOf("in")}, {0x2000'0011, BytesOf("O")}}));
}

// Nothing of a load that has failed, or that was left, comes into the next.
TEST_F(LinkTest, BeginsEveryLoadWithNothing) {
  const struct {
    std::vector<std::string> sent;  // before a good load
    const char* answered;
  } cases[] = {
      {{"vFlashWrite:0:ab", "vFlashWrite:0:ab", "vFlashWrite:1:c", "vFlashWrite:8:z", "vFlashDone"},
       "OK OK E.0x00000001..0x00000001: sent twice, and not the same "
       "E.a part of this load has failed: begin it anew "
       "E.a part of this load has failed: begin it anew"},
      {{"vFlashErase:0,4001"}, "E.0x00000000..0x00004000: 0x00004000 lies in no memory that takes this"},
      {{"vFlashWrite:0:ab", "vFlashWrite:3fff:ab"},
       "OK E.0x00003fff..0x00004000: 0x00004000 lies in no memory that takes this"},
      {{"vFlashWrite:ffffffff:a"}, "E.0xffffffff..0xffffffff: 0xffffffff lies in no memory that takes this"},
      {{"vFlashWrite:100000000:a"}, "E.a write of flash without an address"},
      {{"vFlashWrite:20000000:a", "vFlashWrite:zz:a", "vFlashWrite:0"},
       "E.0x20000000..0x20000000: 0x20000000 lies in no memory that takes this "
       "E.a part of this load has failed: begin it anew E.a part of this load has failed: begin it anew"},
      {{"vFlashErase:0,800", "vFlashDone"},
       "OK E.nothing was written to flash; 'monitor erase' erases the chip, which it does as a whole"},
      {{"vFlashErase:0,800", "vFlashWrite:20:old", "vFlashWrite:800:old", "vFlashErase:0,800"},
       "OK OK OK OK"},
      {{"vFlashErase:800,800", "vFlashWrite:800:old", "p0", "vFlashWrite:900:old"},
       "OK OK xxxxxxxx E.a part of this load has failed: begin it anew"},
      {{"X20000000,1:r", "m0,1"}, "OK 31"},  // somebody sets a variable: no part of a load
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answered);
    chip.loads.clear();
    EXPECT_EQ(Ask(c.sent), c.answered);
    EXPECT_EQ(Ask({"vFlashErase:10,1", "vFlashWrite:10:good", "vFlashDone"}), "OK OK OK");
    EXPECT_EQ(chip.loads, (std::vector<Segments>{{{0x10, BytesOf("good")}}}));
  }
  for (const char* text :
       {"the client turned to something else in the middle of a load: 3 bytes had come, nothing was done",
        "the client began a load anew: what it had sent before is dropped"})
    EXPECT_EQ(std::ranges::count(chip.complaints, text), 1) << text;
  chip.failsLoads = true;
  EXPECT_EQ(Ask({"vFlashErase:0,1", "vFlashWrite:0:bad", "vFlashDone", "vFlashDone"}),
            "OK OK E.Error  1  2 E.a part of this load has failed: begin it anew");
  chip.failsLoads = false;
  EXPECT_EQ(Ask({"vFlashErase:10,1", "vFlashWrite:10:good", "vFlashDone"}), "OK OK OK");
  EXPECT_EQ(chip.loads.back(), (Segments{{0x10, BytesOf("good")}}));
}

TEST_F(LinkTest, LoadsRamAloneIntoAClosedChip) {
  chip.isOpen = false;
  EXPECT_EQ(Ask({"X20000000,2:ab", "Pf=00000000", "Pf=00000000"}), "OK OK OK");
  EXPECT_EQ(chip.loads, (std::vector<Segments>{{{0x2000'0000, BytesOf("ab")}}}));
  EXPECT_TRUE(chip.ramWrites.empty());
  EXPECT_EQ(Ask({"X20000000,2:ab", "g"}), "OK " + std::string(15 * 8, 'x') + "0000000000000001");
  EXPECT_EQ(chip.complaints,
            std::vector<std::string>{"2 bytes for RAM were not written: the chip's memory is closed"});
}

TEST_F(LinkTest, RefusesALoadOfAClientThatHasDetached) {
  EXPECT_EQ(Ask({"vKill;1", "k", "D", "vFlashErase:0,800", "vFlashDone", "X20000000,1:a"}),
            "OK X09 OK E01 E01 E01");
  EXPECT_EQ(chip.complaints.at(0), "the client has detached from the chip: connect again before a load");
}

}  // namespace
