#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FakeHost.h"
#include "PluginUnderTest.h"

// Sectors, regions and fields as the settings of FakeHost describe them.
constexpr std::uint32_t kSector = 0x800;
constexpr std::uint32_t kCcfg = 0x4E020000;
constexpr std::uint32_t kCcfgSize = 0x800;
constexpr std::uint32_t kUserRecord = kCcfg + 0x700;
constexpr std::uint32_t kUserRecordSize = 0x80;
constexpr std::uint32_t kAuthorizationType = kCcfgSize - 48;
constexpr std::uint32_t kOtp = 0x4E020800;
constexpr std::uint32_t kOtpSize = 0x100;
constexpr std::uint32_t kScfg = 0x4E040000;
constexpr std::uint32_t kScfgSize = 0x400;
constexpr std::uint32_t kRam = 0x20000000;

// `size` bytes that differ from their neighbours, and none of them 0xFF or 0.
Bytes Pattern(std::size_t size, std::uint8_t seed = 1);
// A CCFG sector that leaves debugging open.
Bytes OpenCcfg();
Bytes BytesOf(std::span<const std::uint32_t> words);

// A device of the built library over a fake host, and scripts that drive it: settings and steps, separated by
// semicolons, steps also by blanks. Numbers are hexadecimal but for the ids of commands.
//
//   Name=Value  -Name               a setting; one that is taken away
//   part=Mid  deviceid=1BB7702F     the chip: its part, or the register that tells it
//   status=81  closed  flip=800     its boot status, its debug port, a byte that reads back wrong
//   cores=CS_DAP_0,Cortex           the cores that are connected
//   9<3,0  13!84  5<*1,0  5!*86     the reply to the next command 9, to every command 5: data, or a result;
//   34!8E#33  34<0~10               with another command's id; ready so many polls late (both decimal)
//   init  start  end                Initialize and ResetSettings
//   m c s o u r                     a block: MAIN sector 0, open CCFG, SCFG, OTP, user record, 3 bytes of RAM
//   800+400  800*400:FF  800:0102   a block at an address: of a pattern, of one value, of these bytes;
//   0+800*1000+800                  of several of the first two
//   EnterSaci()  Erase              a script function, its integer parameter in brackets; an operation
//   hsm=A0,5,44332211               HsmImagePath, with an image of these words there
//   ?Name  ?ram                     tells a setting; tells how many bytes of RAM were written
//   ?12@7D0+4                       tells bytes of the last command 12, those behind its key: all but the
//   zeros .                               forgets what came before all                             tells all
//   events from here on, not only commands and messages
class Bench {
 public:
  // What came of it, in order: commands as id/specific in hex ("/0" is left out; passwords with their words,
  // MAIN flash as 15@address+length, HSM firmware with the words of each transfer), messages as "I text" and
  // "E text", what was asked for as "= text", and "! text" of a step that failed, or what a script function
  // returned instead of 0. Commands are separated by blanks, the rest by " | ".
  std::string Play(const std::string& script);

  // Made and initialized at the first step, so that settings come before; what that called is forgotten.
  PluginDevice& Device();

  // The last command with this id; fails the test when there is none.
  [[nodiscard]] SaciCommand Command(std::uint8_t id) const;
  [[nodiscard]] std::size_t CallCount(const std::string& call) const;

  FakeHost host;

 private:
  void Give(const std::string& setting);
  std::string Step(const std::string& step);
  std::string Write(std::uint32_t address, const Bytes& data) { return Device().Write(address, data); }
  [[nodiscard]] std::string Shown(const std::string& part) const;
  void Tell();

  std::optional<PluginDevice> made;
  std::vector<std::string> tale;
  std::size_t eventsTold = 0, commandsTold = 0;
  bool lastIsCommand = false;
  bool tellsAll = false;
};

// A script and what comes of it. Each is played on a bench of its own, after what is `given`.
struct Row {
  std::string script, outcome;
};
void ExpectPlays(const std::string& given, const std::vector<Row>& rows);

class DeviceTest : public testing::Test, public Bench {};
