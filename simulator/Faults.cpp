#include "Faults.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>

namespace simulator {
namespace {

using Pieces = std::vector<std::string_view>;

Pieces Split(std::string_view text, char separator) {
  Pieces pieces;
  for (;;) {
    const std::size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string Quoted(std::string_view text) {
  return std::string("\"").append(text).append("\"");
}

[[noreturn]] void Reject(std::string_view piece, std::string_view why) {
  throw std::runtime_error(std::string("Fault ").append(Quoted(piece)).append(": ").append(why));
}

std::uint32_t Number(std::string_view text, std::string_view piece,
                     std::uint32_t largest = std::numeric_limits<std::uint32_t>::max()) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  std::uint32_t value = 0;
  const char* end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, value, hex ? 16 : 10);
  if (parsed.ec != std::errc{} || parsed.ptr != end) Reject(piece, Quoted(text).append(" is not a number"));
  if (value > largest) Reject(piece, Quoted(text).append(" is above ").append(std::to_string(largest)));
  return value;
}

// The number behind "key=" when `piece` begins so.
std::optional<std::uint32_t> Keyed(std::string_view piece, std::string_view key,
                                   std::uint32_t largest = std::numeric_limits<std::uint32_t>::max()) {
  if (!piece.starts_with(key) || !piece.substr(key.size()).starts_with('=')) return std::nullopt;
  return Number(piece.substr(key.size() + 1), piece, largest);
}

std::optional<std::uint32_t> Nth(std::string_view piece) {
  const auto nth = Keyed(piece, "nth");
  if (nth && *nth == 0) Reject(piece, "the first is number 1");
  return nth;
}

void SetAction(SaciFault& fault, std::string_view piece) {
  using Action = SaciFault::Action;
  constexpr std::uint32_t kByte = 0xFF;
  const auto set = [&fault](Action action, std::uint32_t value = 0) {
    fault.action = action;
    fault.value = value;
  };
  if (const auto result = Keyed(piece, "result", kByte)) return set(Action::Result, *result);
  if (const auto late = Keyed(piece, "late")) return set(Action::Late, *late);
  if (const auto count = Keyed(piece, "count", kByte)) return set(Action::Count, *count);
  if (piece == "lost") return set(Action::Lost);
  if (piece == "wrong-id") return set(Action::WrongId);
  if (piece == "wrong-seq") return set(Action::WrongSequence);
  if (piece == "hang") return set(Action::Hang);
  Reject(piece, "no such action");
}

SaciFault ParseSaci(std::string_view entry, const Pieces& pieces) {
  if (pieces.size() < 3 || pieces.size() > 4) Reject(entry, "is not saci:COMMAND[:nth=N]:ACTION");
  SaciFault fault;
  if (pieces[1] != "*") fault.command = static_cast<std::uint8_t>(Number(pieces[1], entry, 0xFF));
  if (pieces.size() == 4) {
    const auto nth = Nth(pieces[2]);
    if (!nth) Reject(pieces[2], "is not nth=N");
    fault.nth = *nth;
  }
  SetAction(fault, pieces.back());
  return fault;
}

}  // namespace

void Faults::Add(std::string_view text) {
  if (text.empty()) return;
  Faults extended = *this;
  for (const std::string_view entry : Split(text, ',')) extended.AddOne(entry);
  *this = std::move(extended);
}

void Faults::AddOne(std::string_view entry) {
  const Pieces pieces = Split(entry, ':');
  const std::string_view kind = pieces.front();
  if (kind == "saci") {
    answers.push_back(ParseSaci(entry, pieces));
    return;
  }
  if (kind == "wire") return AddWire(entry);
  if (kind == "packet") return AddPacket(entry);
  if (kind == "reset-misses-saci" && pieces.size() == 1) {
    resets.push_back({});
    return;
  }
  if (pieces.size() != 2 || !AddPair(entry, kind, pieces[1])) Reject(entry, "no such fault");
}

bool Faults::AddPair(std::string_view entry, std::string_view kind, std::string_view what) {
  if (kind == "cell") {
    cells.push_back(Number(what, entry));
    return true;
  }
  if (kind == "ram") {
    ramBytes.push_back(Number(what, entry));
    return true;
  }
  if (kind == "reset-misses-saci") {
    const auto nth = Nth(what);
    if (nth) resets.push_back({.nth = *nth});
    return nth.has_value();
  }
  if (kind == "power") {
    const auto words = Keyed(what, "after");
    if (words == 0U) Reject(entry, "the first word is number 1");
    if (words) wordsToPowerCut = *words;
    return words.has_value();
  }
  if (kind == "hsm") {
    const auto status = Keyed(what, "status");
    if (status) hsmStatus = status;
    return status.has_value();
  }
  return false;
}

void Faults::AddWire(std::string_view entry) {
  const Pieces pieces = Split(entry, ':');
  const auto nth = pieces.size() == 3 ? Nth(pieces[1]) : std::nullopt;
  if (pieces.size() != (nth ? 3U : 2U)) Reject(entry, "is not wire[:nth=N]:ACTION");
  WireFault fault;
  if (nth) fault.nth = *nth;
  fault.waits = Keyed(pieces.back(), "wait");
  if (fault.waits || pieces.back() == "wait")
    fault.kind = AccessFault::Wait;
  else if (pieces.back() != "fault")
    Reject(pieces.back(), "no such action");
  accesses.push_back(fault);
}

void Faults::AddPacket(std::string_view entry) {
  const Pieces pieces = Split(entry, ':');
  if (pieces.size() != 3) Reject(entry, "is not packet:N:ACTION");
  LinkFault fault;
  fault.nth = Number(pieces[1], entry);
  if (fault.nth == 0) Reject(entry, "the first is number 1");
  if (pieces[2] == "short")
    fault.kind = PacketFault::Short;
  else if (pieces[2] == "unplugged")
    fault.kind = PacketFault::Unplugged;
  else if (pieces[2] != "lost")
    Reject(pieces[2], "no such action");
  packets.push_back(fault);
}

std::optional<SaciFault> Faults::NextAnswer(std::uint8_t command) {
  std::optional<SaciFault> next;
  for (SaciFault& fault : answers) {
    if (fault.command && *fault.command != command) continue;
    ++fault.seen;
    if (!next && (fault.nth == 0 || fault.nth == fault.seen)) next = fault;
  }
  return next;
}

bool Faults::NextResetMisses() {
  bool misses = false;
  for (ResetFault& fault : resets) {
    ++fault.seen;
    misses = misses || fault.nth == 0 || fault.nth == fault.seen;
  }
  return misses;
}

Faults::AccessFault Faults::FindAccessFault() {
  bool waits = false;
  for (WireFault& fault : accesses) {
    if (fault.kind != AccessFault::Wait || fault.seen + 1 < fault.nth || fault.waits == 0U) continue;
    if (fault.waits) --*fault.waits;
    waits = true;
  }
  if (waits) return AccessFault::Wait;
  bool fails = false;
  for (WireFault& fault : accesses) {
    ++fault.seen;
    fails = fails || (fault.kind == AccessFault::Fail && (fault.nth == 0 || fault.nth == fault.seen));
  }
  return fails ? AccessFault::Fail : AccessFault::None;
}

std::optional<Faults::PacketFault> Faults::NextPacket() {
  std::optional<PacketFault> next;
  for (LinkFault& fault : packets)
    if (++fault.seen == fault.nth && !next) next = fault.kind;
  return next;
}

bool Faults::CellFails(std::uint32_t address) const {
  return std::ranges::find(cells, address) != cells.end();
}

bool Faults::RamByteFails(std::uint32_t address) const {
  return std::ranges::find(ramBytes, address) != ramBytes.end();
}

bool Faults::NextWordCutsPower() {
  return wordsToPowerCut != 0 && --wordsToPowerCut == 0;
}

}  // namespace simulator
