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
//
// One thread a device: calls on one object do not overlap, and the host's functions are called on the thread
// of the call. Devices share nothing, so that each may work on a thread of its own, over its own host object.

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
  virtual const char* Initialize(bool& flashAvailable, const char*& supportedOperations) = 0;
  // Addresses above 0xFFFFFFFF stop the process, here and below.
  virtual const char* AddressWithinFlash(Debugger::Address address, bool& within) = 0;
  virtual const char* AnyRangeWithinFlash(Debugger::Address address, int length, bool& anyWithin) = 0;
  // One block of the image: `count` elements, read during the call only. Between ResetSettings(LoadStart) and
  // ResetSettings(LoadEnd).
  // A block that touches n sectors of MAIN flash succeeds exactly if f + n - 1 <= 256, where f, 0 to 255, is
  // the number of its command: acknowledgements are numbered in 8 bits. One or two sectors always pass; a
  // longer block fails in the middle of programming. Commands are numbered modulo 256: in a load 0 is a
  // no-operation, the erase takes one number where there is one, and every block of MAIN flash, or piece of
  // it that the sector settings leave, takes two.
  virtual const char* WriteDataToFlash(const unsigned char* data, Debugger::Address address, int count,
                                       short page) = 0;
  virtual const char* WriteDataToFlash(const unsigned short* data, Debugger::Address address, int count,
                                       short page) = 0;
  virtual const char* PerformOperation(const char* operation) = 0;
  virtual const char* ResetSettings(ProgramState state) = 0;
  virtual const char* HandleVerification(Debugger::Address address, bool& handled) = 0;
  // Ends the object's life: every text and name obtained from it is gone.
  virtual void Delete() = 0;

 protected:
  ~IFlashDevice2() = default;
};

class IFlashDevice3 : public virtual IFlashDevice2 {
 public:
  virtual const char* LoadImages(const Debugger::ProgramImage* images, unsigned int count) = 0;
  virtual ~IFlashDevice3() = default;
};

class IFlashDevice4 : public virtual IFlashDevice3 {
 public:
  virtual const char* GetNumberOfRuneFunctions(unsigned int& count) = 0;
  // `name` is valid while the object lives.
  virtual const char* GetRuneFunctionName(unsigned int index, const char*& name) = 0;
  // A text result is valid until the next ExecuteRuneFunction on the same object.
  virtual const char* ExecuteRuneFunction(const char* name, const C_RuneValue* params,
                                          unsigned int paramCount, C_RuneValue& result) = 0;
};

// The plug-in's one exported symbol. On failure `*device` is left alone, and the text is valid until the next
// failed creation on the same thread, or the thread's end. The host object behind `utility` must outlive the
// device.
extern "C" const char* CreateFlashDevice4(const char* text1, const char* text2, const char* text3,
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
