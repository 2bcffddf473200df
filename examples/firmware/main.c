// Blinks a LED in the rhythm of a Morse "T", for Tovik.

#include <stdint.h>

// The pin register and the LED's bit are chosen here: the simulated chip runs no program.
static volatile uint32_t* const kPinToggle = (volatile uint32_t*)0x40020010u;
static const uint32_t kLedBit = 1u << 6;

struct Step {
  uint16_t on, off;  // in units of `ticksPerUnit`
};
static const struct Step s_rhythm[] = {{3, 7}, {3, 7}, {3, 1}, {1, 7}};

// Initialized data: in flash behind the code, copied to RAM by the start-up, where a debugger may change it.
static volatile uint32_t ticksPerUnit = 40000;

// Loaded straight into RAM at the end of a load, and gone at the next power cycle: how a debug session can
// tell the program something without touching flash.
enum { SessionMagic = 0x53455353 };  // "SSES"
struct Session {
  uint32_t magic;
  uint32_t isFast;  // not 0: four times as fast
};
__attribute__((section(".session"), used)) static volatile struct Session session = {SessionMagic, 1};

uint32_t blinks;  // in zero-initialized RAM, for a debugger to watch

static void Wait(uint32_t units) {
  const uint32_t shift = session.magic == SessionMagic && session.isFast != 0 ? 2 : 0;
  for (uint32_t ticks = (units * ticksPerUnit) >> shift; ticks > 0; --ticks) __asm volatile("nop");
}

int main(void) {
  for (;;) {
    for (uint32_t step = 0; step < sizeof s_rhythm / sizeof s_rhythm[0]; ++step) {
      *kPinToggle = kLedBit;
      Wait(s_rhythm[step].on);
      *kPinToggle = kLedBit;
      Wait(s_rhythm[step].off);
    }
    ++blinks;
  }
}
