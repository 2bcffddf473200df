// The customer configuration sector of the example firmware. The CRC words are left wrong on purpose: a load
// puts them right (CcfgOverwriteCrcsToggle).

#include <stddef.h>
#include <stdint.h>

enum { Allowed = 0xA };  // a permission nibble: anything else locks what it stands for
enum { CrcToBePatched = 0 };

enum DebugAuthorization {
  DebugNotAllowed = 0x00,
  DebugAlwaysAllowed = 0x5A,
  DebugByPassword = 0xA5,
};

struct Ccfg {
  // Boot configuration.
  uint32_t vectorTable;
  uint32_t bootFlags;
  uint32_t bootClock;  // Hz
  uint32_t bootCrc;

  // Chip configuration.
  uint8_t chipEraseAndProgramFlash;  // two permission nibbles each, the first name's in bits 3 to 0
  uint8_t verifyFlashAndEnterSaci;
  uint8_t reserved12[14];
  uint32_t chipEraseRetain[3];  // bit i of the first word: sector i; then groups of eight sectors
  uint8_t reserved2C[0x74C - 0x2C];
  uint32_t ccfgCrc;

  // User record.
  char product[16];
  uint32_t hardwareRevision;
  uint8_t reserved764[0x7CC - 0x764];
  uint32_t userRecordCrc;

  // Debug configuration.
  uint8_t debugAuthorization;
  uint8_t reserved7D1[3];
  uint8_t passwordId[8];     // most significant byte first
  uint8_t passwordHash[32];  // SHA-256 of the password's bytes, filled up with zeros to whole words
  uint32_t debugCrc;
};
_Static_assert(offsetof(struct Ccfg, bootCrc) == 0x00C, "");
_Static_assert(offsetof(struct Ccfg, chipEraseAndProgramFlash) == 0x010, "");
_Static_assert(offsetof(struct Ccfg, chipEraseRetain) == 0x020, "");
_Static_assert(offsetof(struct Ccfg, ccfgCrc) == 0x74C, "");
_Static_assert(offsetof(struct Ccfg, userRecordCrc) == 0x7CC, "");
_Static_assert(offsetof(struct Ccfg, debugAuthorization) == 0x7D0, "");
_Static_assert(offsetof(struct Ccfg, debugCrc) == 0x7FC, "");
_Static_assert(sizeof(struct Ccfg) == 0x800, "");

__attribute__((section(".ccfg"), used)) static const struct Ccfg ccfg = {
    .vectorTable = 0x00000000,
    .bootFlags = 0xFFFFFFFF,
    .bootClock = 48000000,
    .bootCrc = CrcToBePatched,

    .chipEraseAndProgramFlash = Allowed | Allowed << 4,
    .verifyFlashAndEnterSaci = Allowed | Allowed << 4,
    .chipEraseRetain = {0xC0000000, 0, 0},  // sectors 30 and 31: the program's own store
    .ccfgCrc = CrcToBePatched,

    .product = "Tovik blinker",
    .hardwareRevision = 2,
    .userRecordCrc = CrcToBePatched,

#ifdef REQUIRE_PASSWORD
    // The password is the text open-sesame: its 11 characters and one zero byte make three words.
    //   printf 'open-sesame\0' | sha256sum
    .debugAuthorization = DebugByPassword,
    .passwordId = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1A, 0x2B},
    .passwordHash = {0xf7, 0xdc, 0x22, 0x07, 0x00, 0x20, 0x7a, 0xe2, 0x94, 0x1c, 0x29,
                     0x56, 0x22, 0x15, 0xaf, 0x49, 0xf2, 0x03, 0x0d, 0x96, 0x91, 0x55,
                     0xab, 0xdd, 0x6f, 0xba, 0xa9, 0x4e, 0xe7, 0xf9, 0x96, 0xc0},
#else
    .debugAuthorization = DebugAlwaysAllowed,
    .passwordId = {0},
    .passwordHash = {0},
#endif
    .debugCrc = CrcToBePatched,
};
