#include "ExceptionSafeFlashDevice.h"
#include "FlashDeviceTovik.h"

extern "C" __attribute__((visibility("default"))) const char* CreateFlashDevice4(
    const char* text1, const char* text2, const char* text3, IFlashProgrammerUtility2 utility,
    IFlashDevice4** device) {
  return FlashDeviceFactory4<FlashDeviceTovik, unsigned char, unsigned int>::MakeExceptionSafe(
      text1, text2, text3, utility, device);
}
