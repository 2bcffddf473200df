#include "host/check/Poison.h"

#include <malloc.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace host {

namespace {

constexpr std::size_t kStack = 16U << 10;  // deeper than a plug-in goes between two calls of the host
// Freed blocks up to this size are kept in short lists and handed out again as they are, so many of a size.
constexpr std::size_t kLargestBlock = 1032;
constexpr std::size_t kBlocks = 8;

std::uint8_t s_byte = 0;
const HostFunctionTable* s_functions = nullptr;

[[gnu::noinline]] void PoisonStack(std::uint8_t byte) {
  volatile std::uint8_t below[kStack];
  for (volatile std::uint8_t& cell : below) cell = byte;
}

void PoisonHeap(std::uint8_t byte) {
  (void)mallopt(M_PERTURB, byte ^ 0xFF);  // what is allocated gets the other bits
  std::array<void*, kBlocks> blocks{};
  for (std::size_t size = 24; size <= kLargestBlock; size += 16) {
    for (void*& block : blocks) {
      block = std::malloc(size);
      if (block != nullptr) std::memset(block, byte, size);
    }
    for (void* const block : blocks) std::free(block);
  }
}

// A function of the host's table in front of the one that was there.
template <auto function>
struct Poisoning;
template <typename... Arguments, const char* (*HostFunctionTable::*function)(HostObject*, Arguments...)>
struct Poisoning<function> {
  const static char* Call(HostObject* host, Arguments... arguments) {
    const char* const answer = (s_functions->*function)(host, arguments...);
    Poison(s_byte);
    return answer;
  }
};

template <auto... functions>
HostFunctionTable Behind(HostFunctionTable table) {
  ((table.*functions = Poisoning<functions>::Call), ...);
  return table;
}

}  // namespace

void Poison(std::uint8_t byte) {
  PoisonHeap(byte);
  PoisonStack(byte);
}

void PoisonAfterCalls(HostServices& services, std::uint8_t byte) {
  using Table = HostFunctionTable;
  static HostFunctionTable s_poisoning;
  s_byte = byte;
  s_functions = services.table;
  s_poisoning =
      Behind<&Table::getValueOfProperty, &Table::setValueOfProperty, &Table::resetTarget, &Table::readMemory,
             &Table::writeMemory, &Table::lookupReg, &Table::readReg, &Table::writeReg, &Table::reportError,
             &Table::reportInfo, &Table::sleep, &Table::setCore, &Table::disconnect, &Table::isConnected,
             &Table::setCoreById, &Table::connect, &Table::reConnect>(*services.table);
  services.table = &s_poisoning;
}

}  // namespace host
