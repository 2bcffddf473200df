#include "ExceptionSafeFlashDevice.h"
#include "FlashDeviceTovik.h"

extern "C" __attribute__((visibility("default"))) char const* CreateFlashDevice4(
    char const* text1, char const* text2, char const* text3, IFlashProgrammerUtility2 utility,
    IFlashDevice4** device) {
  return FlashDeviceFactory4<FlashDeviceTovik, unsigned char, unsigned int>::MakeExceptionSafe(
      text1, text2, text3, utility, device);
}
