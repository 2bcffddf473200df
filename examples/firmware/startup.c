// Vector table and start-up of the example firmware: no library beneath it.

#include <stdint.h>

extern uint32_t stackTop, dataImage, dataStart, dataEnd, bssStart, bssEnd;  // addresses, from the linker

int main(void);

_Noreturn void ResetHandler(void) {
  const uint32_t* from = &dataImage;
  for (uint32_t* to = &dataStart; to < &dataEnd;) *to++ = *from++;
  for (uint32_t* to = &bssStart; to < &bssEnd;) *to++ = 0;
  main();
  for (;;) {
  }
}

// A debugger finds the program here when something goes wrong.
static _Noreturn void UnexpectedHandler(void) {
  for (;;) __asm volatile("bkpt #0");
}

typedef void (*Handler)(void);

struct VectorTable {
  uint32_t* stackTop;
  Handler reset, nonMaskable, hardFault;
  Handler reserved4To10[7];
  Handler supervisorCall;
  Handler reserved12To13[2];
  Handler pendingService, sysTick;
};

__attribute__((section(".vectors"), used)) static const struct VectorTable vectors = {
    .stackTop = &stackTop,
    .reset = ResetHandler,
    .nonMaskable = UnexpectedHandler,
    .hardFault = UnexpectedHandler,
    .supervisorCall = UnexpectedHandler,
    .pendingService = UnexpectedHandler,
    .sysTick = UnexpectedHandler,
};
