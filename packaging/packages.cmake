# SPDX-License-Identifier: MIT
# Debian packages, by CPack: which installed files each one holds, and its control fields. Used by scripts/package,
# which sets the compiler options.
if(NOT BUILD_SHARED_LIBS OR NOT ZEPHLY_BUILD_BLUEZ OR NOT ZEPHLY_HAS_PAGE)
  message(FATAL_ERROR "The packages hold everything: -DBUILD_SHARED_LIBS=ON, with BlueZ, the tools and their page")
endif()

set(library libzephly${ZEPHLY_ABI_VERSION})
set(runtime_package ${library})
set(development_package libzephly-dev)
set(tools_package zephly-tools)

# The documents that Debian requires of every package.
set(documents ${PROJECT_BINARY_DIR}/package)
set(CPACK_PACKAGE_CONTACT "Zephly developers <developers@zephly.invalid>")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # that of SOURCE_DATE_EPOCH
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${documents}/changelog @ONLY)
execute_process(COMMAND gzip -9nkf ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/tools/man/zephly.1
  OUTPUT_FILE ${documents}/zephly.1.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component runtime development tools)
  install(FILES ${documents}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package} COMPONENT ${component})
endforeach()
foreach(component runtime development)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package} COMPONENT ${component})
endforeach()
# The licenses of the libraries in the program, as `zephly --licenses` prints them.
add_custom_command(OUTPUT ${documents}/copyright
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/debian/collect_licences ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
    ${ZEPHLY_LICENSES_TEXT} > ${documents}/copyright
  DEPENDS ${CMAKE_CURRENT_LIST_DIR}/debian/collect_licences ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
    zephly_tools_licenses
  VERBATIM)
add_custom_target(zephly_licences ALL DEPENDS ${documents}/copyright)
install(FILES ${documents}/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${tools_package} COMPONENT tools)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/debs)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/set_times.cmake)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE zephly)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# Dependencies are computed from the linked libraries; our own are found in the build folders.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "")
foreach(component IN LISTS ZEPHLY_COMPONENTS)
  get_target_property(folder zephly_${component} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${folder})
endforeach()

# The dependency of other packages that use the libraries, and a trigger that updates the linker's cache.
set(shlibs "")
foreach(component IN LISTS ZEPHLY_COMPONENTS)
  get_target_property(file zephly_${component} OUTPUT_NAME)
  string(APPEND shlibs "lib${file} ${ZEPHLY_ABI_VERSION} ${library} (>= ${PROJECT_VERSION})\n")
endforeach()
file(CONFIGURE OUTPUT ${documents}/shlibs CONTENT "${shlibs}" @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${documents}/shlibs ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS bluez)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "software development kit of the Zephly chest strap
The kit finds the strap over Bluetooth Low Energy, keeps the connection, and
gives an application electrocardiogram, respiration, electrode contact,
temperatures, battery and counted exercises.

This package holds the shared libraries: the kit, its main queue, the host on
BlueZ, the simulated host with its simulated strap, captures of sessions, and
beats, heart rate and breathing.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION}), libboost-dev (>= 1.81) | libboost1.81-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "kit of the Zephly chest strap - development files
The kit finds the strap over Bluetooth Low Energy, keeps the connection, and
gives an application electrocardiogram, respiration, electrode contact,
temperatures, battery and counted exercises.

This package holds the headers (C++20), and what CMake and pkg-config need.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS bluez)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "watch, record and replay the Zephly chest strap
The program zephly shows what the strap sends, on the terminal and on a live
page in the browser, records it, exports recordings as EDF+ and CSV, and can be
a strap itself, in software or through a Bluetooth adapter.

It is not a medical device.")

include(CPack)
