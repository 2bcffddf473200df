# How the project's own targets are compiled and linked. Nothing here reaches a target that merely links one of
# them: link these PRIVATE.
#   tovik_warnings  our warnings and how g++ may use memory, for the tests' own code
#   tovik_options   warnings, hardening and what the sanitizers and the coverage need, for everything else
#   tovik_seldom    beside tovik_options, for code that runs seldom: beside the sanitizers it is not optimized, which
#                   takes longer than running it
# Warnings are errors where CMAKE_COMPILE_WARNING_AS_ERROR says so, as the presets do.

set(TOVIK_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
option(TOVIK_COVERAGE "Instrument for line and branch coverage" OFF)

if(NOT CMAKE_BUILD_TYPE AND PROJECT_IS_TOP_LEVEL)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_library(tovik_warnings INTERFACE)
target_compile_features(tovik_warnings INTERFACE cxx_std_20)
target_compile_options(tovik_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Takes "text" + std::to_string(n) for an overlapping copy when it optimizes with -O3 or -Os.
  target_compile_options(tovik_warnings INTERFACE -Wno-restrict)
endif()
if(TOVIK_UNITY AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # Takes a file that is compiled together with others for a header.
  target_compile_options(tovik_warnings INTERFACE -Wno-subobject-linkage)
endif()

if(PROJECT_IS_TOP_LEVEL AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # g++ spends a tenth of its time on collecting garbage, which it need not below 1 GB.
  target_compile_options(tovik_warnings INTERFACE --param=ggc-min-heapsize=1000000)
endif()

add_library(tovik_seldom INTERFACE)
add_library(tovik_options INTERFACE)
target_link_libraries(tovik_options INTERFACE tovik_warnings)
target_compile_options(tovik_options INTERFACE -fstack-protector-strong)
target_link_options(tovik_options INTERFACE LINKER:-z,relro,-z,now)

if(TOVIK_SANITIZE)
  target_compile_options(tovik_options INTERFACE
    -fsanitize=${TOVIK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_definitions(tovik_options INTERFACE _GLIBCXX_ASSERTIONS)
  target_link_options(tovik_options INTERFACE -fsanitize=${TOVIK_SANITIZE})
  target_compile_options(tovik_seldom INTERFACE -O0)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # At every access, a quarter of the time of a compilation. The fuzzers, which clang builds, have them.
    target_compile_options(tovik_options INTERFACE -fno-sanitize=null,alignment,vptr)
  endif()
else()
  # Needs the optimizer, would hide what the sanitizers look for, and is the distribution's to choose where it
  # has chosen. Asked anew each time: the flags may have changed.
  include(CheckCXXSourceCompiles)
  set(CMAKE_TRY_COMPILE_CONFIGURATION ${CMAKE_BUILD_TYPE})
  unset(TOVIK_FORTIFY CACHE)
  check_cxx_source_compiles("
    #if !defined(__OPTIMIZE__) || defined(_FORTIFY_SOURCE)
    #error
    #endif
    int main() {}" TOVIK_FORTIFY)
  if(TOVIK_FORTIFY)
    target_compile_options(tovik_options INTERFACE -D_FORTIFY_SOURCE=2)
  endif()
endif()

if(TOVIK_COVERAGE)
  target_compile_options(tovik_options INTERFACE --coverage)
  target_link_options(tovik_options INTERFACE --coverage)
else()
  # A file that is shipped does not tell where it was built.
  target_compile_options(tovik_options INTERFACE
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
endif()
