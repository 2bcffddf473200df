# What `cmake --install` puts where. No file tells where it was built, and tovik-flash finds its parts from where it
# is itself, so that the whole may be moved.

set(plugins ${CMAKE_INSTALL_LIBDIR}/tovik)
set(descriptions ${CMAKE_INSTALL_DATADIR}/tovik/devices)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/tovik)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/TovikFlashLoader)
set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/tovik-flash)

# The date of the release stands in the list of changes, beside the version that is built.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)
file(STRINGS CHANGELOG.md release REGEX "^## ${PROJECT_VERSION} \\(" LIMIT_COUNT 1)
if(NOT release MATCHES "\\(([0-9-]+)\\)")
  message(FATAL_ERROR "CHANGELOG.md says nothing of version ${PROJECT_VERSION}")
endif()
set(TOVIK_RELEASE_DATE ${CMAKE_MATCH_1})

# ---- for those who load the plug-in ----

install(TARGETS FlashDeviceTovik LIBRARY DESTINATION ${plugins} COMPONENT program)
install(DIRECTORY devices/ DESTINATION ${descriptions} COMPONENT program FILES_MATCHING PATTERN "*.xml")

add_library(tovik_contract INTERFACE)
set_target_properties(tovik_contract PROPERTIES EXPORT_NAME Contract)
target_compile_features(tovik_contract INTERFACE cxx_std_20)
target_include_directories(tovik_contract INTERFACE $<INSTALL_INTERFACE:${headers}>)
install(TARGETS tovik_contract EXPORT TovikFlashLoaderTargets)
install(EXPORT TovikFlashLoaderTargets NAMESPACE TovikFlashLoader:: DESTINATION ${package} COMPONENT development)
install(DIRECTORY include/ DESTINATION ${headers} COMPONENT development)

include(CMakePackageConfigHelpers)
set(plugin ${plugins}/libFlashDeviceTovik.so)
configure_package_config_file(cmake/TovikFlashLoaderConfig.cmake.in TovikFlashLoaderConfig.cmake
  INSTALL_DESTINATION ${package} PATH_VARS plugin descriptions)
write_basic_package_version_file(TovikFlashLoaderConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/TovikFlashLoaderConfig.cmake
    ${PROJECT_BINARY_DIR}/TovikFlashLoaderConfigVersion.cmake
  DESTINATION ${package} COMPONENT development)

if(NOT TOVIK_BUILD_HOST)
  return()
endif()

# ---- tovik-flash ----

install(TARGETS tovik-flash RUNTIME COMPONENT program)
install(FILES host/probe/60-tovik-probes.rules DESTINATION lib/udev/rules.d COMPONENT program)
install(FILES README.md DESTINATION ${documents} COMPONENT program)
install(FILES LICENSE RENAME copyright DESTINATION ${documents} COMPONENT program)
install(DIRECTORY docs DESTINATION ${documents} COMPONENT program)

# Of Debian's own zsh only /usr looks into the distribution's folder, and all others look into the usual one.
set(zsh_functions zsh/site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
  set(zsh_functions zsh/vendor-completions)
endif()
install(FILES host/cli/completion/_tovik-flash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/${zsh_functions} COMPONENT program)
install(FILES host/cli/completion/tovik-flash.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT program)
install(FILES host/cli/completion/tovik-flash.bash RENAME tovik-flash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT program)

# Installs FILE as its NAME.gz, without a time in it. What follows goes to install().
find_program(TOVIK_GZIP gzip REQUIRED)
function(tovik_install_gzipped file name)
  set(packed ${PROJECT_BINARY_DIR}/installed/${name}.gz)
  add_custom_command(OUTPUT ${packed} COMMAND ${TOVIK_GZIP} -9n < ${file} > ${packed} DEPENDS ${file} VERBATIM)
  add_custom_target(${name}.gz ALL DEPENDS ${packed})
  install(FILES ${packed} COMPONENT program ${ARGN})
endfunction()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/installed)
tovik_install_gzipped(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog DESTINATION ${documents})

# The program writes its manual page; that of a cross compiler cannot where nothing runs it.
if(NOT CMAKE_CROSSCOMPILING OR CMAKE_CROSSCOMPILING_EMULATOR)
  set(page ${PROJECT_BINARY_DIR}/installed/tovik-flash.1)
  add_custom_command(OUTPUT ${page}
    COMMAND tovik-flash --manual ${TOVIK_RELEASE_DATE} > ${page} DEPENDS tovik-flash VERBATIM)
  tovik_install_gzipped(${page} tovik-flash.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

include(cmake/Packages.cmake)
