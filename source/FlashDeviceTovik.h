#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FlashUtil.h"
#include "IFlashDevice2.h"
#include "SaciInterface.h"
#include "SectorList.h"

// What a load erases before it programs. The configuration is CCFG and SCFG.
enum class EraseType { None, Chip, RetainMain, RetainMainAndConfiguration, RetainConfiguration };

// The device that the host drives: everything particular to the chip family. One source file a concern, in
// FlashDeviceTovik/. Failures are exceptions derived from std::exception whose text is the complete message
// for the user; the device stays usable after one.
//
// A load is ResetSettings(LoadStart), WriteDataToFlash for every block, ResetSettings(LoadEnd). MAIN flash is
// programmed block by block; CCFG, SCFG, OTP and RAM data are kept and written at the end, in that order.
class FlashDeviceTovik {
 public:
  // Keeps the first text; the others are the host's business. `utility` is copied; its host object outlives
  // the device.
  FlashDeviceTovik(std::string text, std::string, std::string, IFlashProgrammerUtility2 hostUtility);

  // The virtual operations let a variant of the chip change the memory map. Slot order is fixed.
  virtual ~FlashDeviceTovik() = default;
  virtual void ReadStaticFlashPropertiesInfo();
  virtual unsigned int GetOffsetInSector(unsigned int address);
  virtual unsigned int GetSectorBaseAddress(unsigned int address);
  // The address of the first sector that the bytes touch, and whole sectors: 0xFF where no byte is given.
  virtual std::pair<std::uint32_t, std::vector<std::uint8_t>> AlignMainFlashBySectors(
      const unsigned char* data, unsigned int address, int length);
  // Whether the whole range lies in the region. Sums are 32 bits wide. A block of CCFG and OTP together
  // counts as a CCFG block.
  virtual bool AnyRangeWithinCcfg(unsigned int address, int length);
  virtual bool AnyRangeWithinScfg(unsigned int address, int length);
  virtual bool AnyRangeWithinOtp(unsigned int address, int length);
  virtual bool AnyRangeWithinMainFlash(unsigned int address, int length);
  virtual void InterpretChipEraseRetainSectors(const std::vector<unsigned int>& words);

  FlashDeviceTovik(const FlashDeviceTovik&) = delete;
  FlashDeviceTovik& operator=(const FlashDeviceTovik&) = delete;

  // --- What the host's interface reaches ---

  void Initialize();
  [[nodiscard]] bool FlashAvailable() const { return true; }
  [[nodiscard]] const char* ListSupportedOperations() const;
  // Always true: data outside flash is RAM data, sorted out by WriteDataToFlash.
  bool AddressWithinFlash(unsigned int address) { return AnyRangeWithinFlash(address, 0); }
  bool AnyRangeWithinFlash(unsigned int, int) { return true; }
  void WriteDataToFlash(const unsigned char* data, unsigned int address, int length, short page);
  void PerformOperation(const std::string& operation);
  void ResetSettings(ProgramState state);
  // Always true: the device verifies what it programs.
  bool HandleVerification(unsigned int) { return true; }
  void LoadImages(const std::vector<Debugger::ProgramImage>&) {}
  [[nodiscard]] std::vector<std::string> GetRuneFunctionNames() const;
  RuneValue ExecuteRuneFunction(const std::string& name, const std::vector<RuneValue>& params);

 protected:
  // Addresses and sizes in bytes; a size of 0 means that the chip has no such region. Read by Initialize.
  struct MemoryMap {
    std::uint32_t SectorSize = 0;
    std::uint32_t CcfgSize = 0;
    std::uint32_t CcfgUserRecordSize = 0;
    std::uint32_t CcfgBase = 0;
    std::uint32_t ScfgSize = 0;
    std::uint32_t ScfgBase = 0;
    std::uint32_t OtpSize = 0;
    std::uint32_t OtpBase = 0;
    std::uint32_t userRecordAddress = 0;
  };

  // What the chip says of itself. Read anew by every ReadDeviceInfo.
  struct Identity {
    std::uint32_t device = 0;
    std::uint32_t revisionMajor = 0;
    std::uint32_t revisionMinor = 0;
    std::string revisionName = "-";
    std::uint32_t mainFlashSize = 0;  // bytes, 0 = unknown
    std::uint32_t mainSectorCount = 0;
    std::uint32_t ramSize = 0x9000;  // bytes, 0 = unknown; holds until the chip has been asked
    std::vector<FlashUtil::RevisionRow> revisionTable;
  };

  // What one load gathers. A load starts by assigning a fresh one.
  struct LoadState {
    static constexpr std::uint32_t kVerboseModeUnread = 0xFFFF'FFFF;
    std::uint32_t verboseMode = kVerboseModeUnread;  // then 0 or 1

    bool programmingInitialised = false;
    bool verificationOnly = false;
    bool userRecordOnly = false;
    bool ccfgScfgErased = false;  // the chip was erased, CCFG and SCFG included
    bool ccfgScfgRetained = false;
    bool ccfgStored = false;
    bool scfgStored = false;
    bool otpStored = false;
    bool mainVerified = false;
    bool ccfgProgrammed = false;  // programmed and verified, or verified in a verification-only load
    bool scfgProgrammed = false;
    bool ccfgMarkerByteZero =
        false;  // the CCFG that was programmed locks debugging: its authorization byte is 0

    std::uint8_t fillValue = 0;
    std::vector<std::uint8_t> ccfgImage;
    std::vector<std::uint8_t> scfgImage;
    std::vector<std::uint8_t> otpImage;
    std::map<unsigned int, std::vector<unsigned char>> ramData;  // by target address
    SectorMask retainedSectors;
    std::vector<std::string> allowedSectorRanges;
  };

  // --- Settings and messages (Settings.cpp) ---

  // T is bool, unsigned int (hexadecimal) or std::string. Without a default a missing property is a
  // std::logic_error. Read at the moment of use, never cached.
  template <typename T>
  [[nodiscard]] T GetProperty(const std::string& name) const;
  template <typename T>
  [[nodiscard]] T GetProperty(const std::string& name, T defaultValue) const;
  [[nodiscard]] std::shared_ptr<FlashUtil> GetHelper() const { return helper; }
  [[nodiscard]] bool IsVerboseEnabled();
  [[nodiscard]] bool IsImageVerificationEnabled() const;
  // To the user, whatever the verbose setting; cut at 511 characters.
  [[gnu::format(printf, 2, 3)]] void DebugLog(const char* format, ...);

  // --- Load bracket (Device.cpp) ---

  void FinishVerification();
  void FinishProgramming();
  void WriteRamDataThroughDebugPort();

  // --- Identification (Identification.cpp) ---

  bool ReadDeviceInfo();
  bool ReadRevisionInfo();
  bool ReadFlashSize();
  bool ReadRamSize();
  std::uint32_t ReadMemorySize(const std::string& translationProperty);
  void PopulateDeviceInfoFields();
  [[nodiscard]] bool isBleHighPg2OrNewer() const;
  [[nodiscard]] bool isBleMid() const;
  // These parts take no OTP data, and differ in boot, debug authorization and SCFG.
  [[nodiscard]] bool HasHsm() const { return isBleHighPg2OrNewer() || isBleMid(); }
  // Stops the process for an address above 32 bits.
  [[nodiscard]] std::uint32_t Convert(Debugger::Address address) const;

  // --- Boot state and SACI session (BootState.cpp) ---

  // What every caller of ExitSaci grants the boot code; ms.
  static constexpr std::uint32_t kExitTimeout = 5000;
  static constexpr std::uint32_t kExitPollInterval = 100;

  std::uint32_t ReadReg(std::uint32_t address);
  // CFGAP_DEVICESTATUS: the AHB-AP's bit 24, the boot status [15:8], the life cycle [7:0]. One read each.
  std::uint32_t ReadDeviceStatus();
  std::uint8_t ReadBootsta() { return static_cast<std::uint8_t>(ReadDeviceStatus() >> 8); }
  std::uint8_t ReadLifecycle() { return static_cast<std::uint8_t>(ReadDeviceStatus()); }
  bool BeforeSaci();
  bool InSaci();
  bool InDbgProbeLoop();
  bool InBootloader();
  bool IsAhbApEnabled();
  // The debug port, CS_DAP_0, is current afterwards; it is connected if need be, or must be connected
  // already.
  void ConnectDebugPort();
  void RequireDebugPort(const char* errorText);
  void DisconnectCore(const char* id);
  void EnterSaci();
  void ConnectDebugPortAlone();
  void IssuePinResetAndEnterSaci();
  void ExitSaci(bool halt, std::uint32_t timeout, std::uint32_t pollInterval);
  void WaitForBootCodeExit(std::uint32_t timeout, std::uint32_t pollInterval);

  // --- Debug authentication (Authentication.cpp) ---

  void EnsureAuthentication(bool exitSaciAfter);
  void AuthenticateDebugging();
  void SubmitPassword(std::uint64_t passwordId);
  void PrintDebuggingNotAllowedHelp();
  [[nodiscard]] bool LookupPasswordIsHex() const;
  [[nodiscard]] std::string LookupPassword(std::uint64_t passwordId) const;

  // --- Image intake (ImageIntake.cpp) ---

  enum class Destination { Ccfg, Otp, Scfg, MainFlash, Ram };
  Destination DestinationOf(unsigned int address, int length);
  // Told of all CCFG data: what is just the user record switches the rest of the load to the record alone.
  void NoteUserRecord(unsigned int address, int length);
  void WriteDataToFlashInternal(const unsigned char* data, unsigned int address, int length, short page);

  // --- Programming sequence and MAIN flash (MainFlash.cpp) ---

  void initFlashProgramming();
  void ComputeAllowedSectorRanges();
  void ProgramMainFlash(const unsigned char* data, unsigned int address, int length);

  // --- Sector options (SectorOptions.cpp) ---

  bool IsSkipSpecificSectorsOptionEnabled() const;
  SectorMask ConvertRangeToBoolVector(const std::string& property) const;
  // The sectors that the property leaves (`value` true) or lists (false), as range texts. For variants.
  std::vector<std::string> InterpretRangeField(const std::string& property, bool value) const;
  bool IsSkipSectorsFilledWithOptionEnabledAndValid();

  // --- Chip erase and blank check (ChipErase.cpp) ---

  EraseType GetEraseType();
  void EraseAsConfigured();
  void ChipErase(bool retainMainSectors, bool retainCcfgScfg);
  void LogRetainedSectors();
  bool BlankCheck();

  // --- CCFG (Ccfg.cpp, CcfgAuthorization.cpp, Crc32Fields.cpp) ---

  void StoreCcfg(const std::uint8_t* data, std::uint32_t address, int length);
  void ProgramStoredCcfg();
  void ProgramCcfgUserRecord(const std::uint8_t* data, std::uint32_t address, int length);
  bool OverwriteCcfgFields() { return OverwriteCcfgAuthorizationFields(); }
  bool OverwriteCcfgAuthorizationFields();
  std::uint32_t CalcCrc32Field(const std::string& infoProperty, const std::vector<std::uint8_t>& sector,
                               std::uint32_t& offset, std::uint32_t& length) const;
  std::uint32_t CalcCrc32Field(const std::string& infoProperty,
                               const std::vector<std::uint8_t>& sector) const;
  std::string getCrcFieldPropertyInfo(const std::string& fieldName) const;
  void UpdateCrc32Fields(const std::string& listProperty, std::vector<std::uint8_t>& sector);
  void UpdateCrc32Field(const std::string& fieldName, std::uint32_t sectorBase,
                        std::vector<std::uint8_t>& sector);

  // --- Permission check (Permissions.cpp) ---

  // `data` is the piece being stored. Throws, before anything is stored, when it could lock the user out.
  void CheckPermissions(const std::uint8_t* data, int length, const std::string& listProperty) const;

  // --- SCFG (Scfg.cpp) ---

  void StoreScfg(const std::uint8_t* data, std::uint32_t address, int length);
  void ProgramStoredScfg();

  // --- OTP and RAM data (OtpAndRam.cpp) ---

  void StoreOtp(const unsigned char* data, unsigned int address, int length);
  void ProgramStoredOtp();
  void StoreRamData(const unsigned char* data, unsigned int address, int length);
  void ProgramStoredRamData();

  // --- Operations and script functions (Operations.cpp) ---

  void FinishOperation();
  void RequireHsmSupport(const std::string& operation);
  void ReadDeviceInfoOperation();
  RuneValue SaciAppResetDevice(const std::vector<RuneValue>& params);

  // --- HSM (Hsm.cpp) ---

  void ProgramHsmFw(const std::string& fileName);
  void ReadHsmSysInfo();
  void ReadHsmUpdateStatus();

  IFlashProgrammerUtility2 utility;  // the channel points to it: declared first
  SaciInterface saci;
  std::string firstText;
  MemoryMap map;
  Identity identity;
  LoadState load;
  std::shared_ptr<FlashUtil> helper;
};
