# Cross-builds for arm64 with Debian's compiler against TOVIK_ARM64_ROOT, a folder with the unpacked arm64 packages
# (`./dev arm64` makes it), and runs what it built under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TOVIK_ARM64_ROOT)
set(CMAKE_SYSROOT ${TOVIK_ARM64_ROOT})
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${TOVIK_ARM64_ROOT})
