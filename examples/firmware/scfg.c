// The security configuration sector of the example firmware. The CRC word is left wrong on purpose: a load
// puts it right (ScfgOverwriteCrcsToggle).

#include <stddef.h>
#include <stdint.h>

enum { Allowed = 0xA };
enum { CrcToBePatched = 0 };
enum { KeyRingEntries = 18 };

struct KeyEntry {
  uint32_t id;
  uint32_t flags;
  uint8_t hash[32];  // SHA-256 of the public key
  uint32_t reserved;
};
_Static_assert(sizeof(struct KeyEntry) == 44, "");

struct Scfg {
  uint32_t formatVersion;
  uint32_t flags;
  uint8_t updateKeyRingAndScfg;  // two permission nibbles, the first name's in bits 3 to 0
  uint8_t reserved9[0xE4 - 9];
  uint32_t crc;
  struct KeyEntry keyRing[KeyRingEntries];  // filled from the front; an unused entry is all ones
};
_Static_assert(offsetof(struct Scfg, updateKeyRingAndScfg) == 0x008, "");
_Static_assert(offsetof(struct Scfg, crc) == 0x0E4, "");
_Static_assert(offsetof(struct Scfg, keyRing) == 0x0E8, "");
_Static_assert(sizeof(struct Scfg) == 0x400, "");

#define HASH_OF_EXAMPLE_KEY(seed) \
  { seed, seed ^ 0x5A, seed + 0x11, seed ^ 0xC3, [4 ... 31] = seed ^ 0x99 }
#define UNUSED_KEY \
  { 0xFFFFFFFF, 0xFFFFFFFF, {[0 ... 31] = 0xFF}, 0xFFFFFFFF }

__attribute__((section(".scfg"), used)) static const struct Scfg scfg = {
    .formatVersion = 1,
    .flags = 0,
    .updateKeyRingAndScfg = Allowed | Allowed << 4,
    .crc = CrcToBePatched,
    .keyRing =
        {
            [0] = {0x00000001, 0, HASH_OF_EXAMPLE_KEY(0x21), 0},
            [1] = {0x00000002, 0, HASH_OF_EXAMPLE_KEY(0x42), 0},
            [2 ... KeyRingEntries - 1] = UNUSED_KEY,
        },
};
