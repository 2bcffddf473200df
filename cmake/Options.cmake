# What every target of the project is compiled and linked with: link tovik_options.

set(TOVIK_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
option(TOVIK_COVERAGE "Instrument for line and branch coverage" OFF)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(tovik_options INTERFACE)
target_compile_features(tovik_options INTERFACE cxx_std_20)
target_compile_options(tovik_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror
  -fstack-protector-strong -fvisibility=hidden -fvisibility-inlines-hidden)
target_link_options(tovik_options INTERFACE LINKER:-z,relro,-z,now)

if(TOVIK_SANITIZE)
  target_compile_options(tovik_options INTERFACE
    -fsanitize=${TOVIK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tovik_options INTERFACE -fsanitize=${TOVIK_SANITIZE})
else()
  # Needs the optimizer, and would hide what the sanitizers look for.
  target_compile_options(tovik_options INTERFACE $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
endif()

if(TOVIK_COVERAGE)
  target_compile_options(tovik_options INTERFACE --coverage)
  target_link_options(tovik_options INTERFACE --coverage)
endif()
