#pragma once

#include <limits>
#include <type_traits>

#include "ContractAssertion.h"
#include "DebuggerAddress.h"
#include "IFlashProgrammerUtility2.h"
#include "RuneValue.h"

// What the host calls. Every operation but Delete returns null for success or an error text; the text belongs
// to the plug-in and is valid until the next failing call on the same object. Results are written on success
// only. Slot order and virtual inheritance are part of the contract: add nothing, reorder nothing.

namespace Debugger {

// The host's record of one program image; carried, not interpreted.
struct ProgramImage {
  unsigned long long opaque[3];
};
static_assert(sizeof(ProgramImage) == 24 && std::is_trivially_copyable_v<ProgramImage>);

}  // namespace Debugger

// The host's codes; the names are ours. Other values may arrive and are ignored.
enum class ProgramState : int { LoadStart = 1, LoadEnd = 2 };

class IFlashDevice2 {
 public:
  // `supportedOperations` receives a text with static lifetime: operation names joined by ", ".
  virtual char const* Initialize(bool& flashAvailable, char const*& supportedOperations) = 0;
  // Addresses above 0xFFFFFFFF stop the process, here and below.
  virtual char const* AddressWithinFlash(Debugger::Address address, bool& within) = 0;
  virtual char const* AnyRangeWithinFlash(Debugger::Address address, int length, bool& anyWithin) = 0;
  // One block of the image: `count` elements, read during the call only. Between ResetSettings(LoadStart) and
  // ResetSettings(LoadEnd).
  virtual char const* WriteDataToFlash(unsigned char const* data, Debugger::Address address, int count,
                                       short page) = 0;
  virtual char const* WriteDataToFlash(unsigned short const* data, Debugger::Address address, int count,
                                       short page) = 0;
  virtual char const* PerformOperation(char const* operation) = 0;
  virtual char const* ResetSettings(ProgramState state) = 0;
  virtual char const* HandleVerification(Debugger::Address address, bool& handled) = 0;
  // Ends the object's life: every text and name obtained from it is gone.
  virtual void Delete() = 0;

 protected:
  ~IFlashDevice2() = default;
};

class IFlashDevice3 : public virtual IFlashDevice2 {
 public:
  virtual char const* LoadImages(Debugger::ProgramImage const* images, unsigned int count) = 0;
  virtual ~IFlashDevice3() = default;
};

class IFlashDevice4 : public virtual IFlashDevice3 {
 public:
  virtual char const* GetNumberOfRuneFunctions(unsigned int& count) = 0;
  // `name` is valid while the object lives.
  virtual char const* GetRuneFunctionName(unsigned int index, char const*& name) = 0;
  // A text result is valid until the next ExecuteRuneFunction on the same object.
  virtual char const* ExecuteRuneFunction(char const* name, C_RuneValue const* params,
                                          unsigned int paramCount, C_RuneValue& result) = 0;
};

// The plug-in's one exported symbol. On failure `*device` is left alone. The host object behind `utility`
// must outlive the device.
extern "C" char const* CreateFlashDevice4(char const* text1, char const* text2, char const* text3,
                                          IFlashProgrammerUtility2 utility, IFlashDevice4** device);

namespace Detail {

// Host address to target address. An address that does not fit stops the process: it is a broken contract,
// not a user error.
template <typename ConvertedAddress>
struct DefaultConverter {
  static ConvertedAddress Convert(Debugger::Address address) {
    constexpr unsigned long long kLargest = std::numeric_limits<ConvertedAddress>::max();
    AssertContract(kLargest >= address, "false", "include/IFlashDevice2");
    return static_cast<ConvertedAddress>(Extract(address));
  }
};

}  // namespace Detail
