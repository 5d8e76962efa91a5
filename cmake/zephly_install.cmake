# SPDX-License-Identifier: MIT
# The three components of `cmake --install`:
#   runtime      the shared libraries, when there are any
#   development  headers, files for CMake and pkg-config, static libraries
#   tools        the program, its manual page and its completion
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Zephly)
set(ZEPHLY_COMPONENTS kit vitals offline)
if(ZEPHLY_BUILD_HOSTS)
  list(APPEND ZEPHLY_COMPONENTS main_queue simulator capture simulated session_vitals)
  if(ZEPHLY_BUILD_BLUEZ)
    list(APPEND ZEPHLY_COMPONENTS bluez)
  endif()
endif()

# An export set for each, so that an application needs only the dependencies of its components.
foreach(component IN LISTS ZEPHLY_COMPONENTS)
  set(targets zephly_${component})
  if(component STREQUAL kit)
    list(APPEND targets zephly_numbers)
  endif()
  install(TARGETS ${targets} EXPORT Zephly-${component}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT Zephly-${component} NAMESPACE Zephly:: DESTINATION ${package_dir} COMPONENT development)
endforeach()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZephlyConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/ZephlyConfig.cmake
  INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/ZephlyConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/ZephlyConfig.cmake
  ${PROJECT_BINARY_DIR}/package/ZephlyConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# pkg-config. With static libraries the application links their dependencies, too.
file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ZEPHLY_PC_PREFIX "${up}")
if(NOT BUILD_SHARED_LIBS)
  set(ZEPHLY_PC_BLUEZ_NEEDS ", sdbus-c++, libsystemd")
endif()
set(modules zephly)
foreach(component vitals offline capture simulated session_vitals bluez)
  if(component IN_LIST ZEPHLY_COMPONENTS)
    string(REPLACE _ - module ${component})
    list(APPEND modules zephly-${module})
  endif()
endforeach()
foreach(module IN LISTS modules)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/package/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${module}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

if(ZEPHLY_PACKAGES)
  include(${PROJECT_SOURCE_DIR}/packaging/packages.cmake)
  set(manual_page ${PROJECT_BINARY_DIR}/package/zephly.1.gz)
else()
  set(manual_page ${PROJECT_SOURCE_DIR}/tools/man/zephly.1)
endif()
if(ZEPHLY_BUILD_TOOLS)
  install(TARGETS zephly RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  if(NOT ZEPHLY_PACKAGES)  # there the text is part of the package's copyright file
    install(FILES ${ZEPHLY_LICENSES_TEXT} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zephly COMPONENT tools)
  endif()
  install(FILES ${manual_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/zephly
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()
