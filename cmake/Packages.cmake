# `cpack` makes two Debian packages of what is installed: tovik-flash and tovik-flash-dev. Two builds of the same
# sources give the same bytes: all times are that of the release.

find_program(TOVIK_SHLIBDEPS dpkg-shlibdeps)
if(NOT TOVIK_SHLIBDEPS)
  return()
endif()

function(tovik_release_time variable format)
  execute_process(COMMAND date -u -d ${TOVIK_RELEASE_DATE} ${format}
    OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(${variable} ${time} PARENT_SCOPE)
endfunction()
tovik_release_time(release_epoch +%s)
tovik_release_time(release_time -R)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CPackProject.cmake)
file(WRITE ${CPACK_PROJECT_CONFIG_FILE} "set(ENV{SOURCE_DATE_EPOCH} ${release_epoch})\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The Tovik flash loader authors <tovik-flash@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL program development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME tovik-flash)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS "gdb-multiarch, openocd")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "flash programmer for Serin and Corvel microcontrollers
Programs, verifies and erases chips of the Tovik family through a flash-loader
plug-in for debuggers, which is part of this package, as are descriptions of
the devices and a simulated chip to try a load on.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME tovik-flash-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "tovik-flash (= ${version})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "headers for hosts of the Tovik flash-loader plug-in
The contract between a debugger and the flash-loader plug-in, as C++ headers
and a CMake package that tells where plug-in and device descriptions are.")

# What Debian wants to find beside the documents that every installation has: a list of changes of the packages,
# and the documents' folder under the second package's name.
file(WRITE ${PROJECT_BINARY_DIR}/changelog.Debian
"tovik-flash (${version}) unstable; urgency=medium

  * Version ${PROJECT_VERSION}; see changelog.gz for what is new in it.

 -- ${CPACK_PACKAGE_CONTACT}  ${release_time}
")
tovik_install_gzipped(${PROJECT_BINARY_DIR}/changelog.Debian changelog.Debian
  DESTINATION ${documents} EXCLUDE_FROM_ALL)
file(CREATE_LINK tovik-flash ${PROJECT_BINARY_DIR}/installed/tovik-flash-dev SYMBOLIC)
install(FILES ${PROJECT_BINARY_DIR}/installed/tovik-flash-dev DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc
  COMPONENT development EXCLUDE_FROM_ALL)

include(CPack)
