# SPDX-License-Identifier: MIT
# How every target of this tree is compiled.

# The version in the names of the shared libraries: changes when an exported symbol changes or is removed.
set(ZEPHLY_ABI_VERSION 1)
# The headers are installed in a separate folder, because `hosts/` and `simulator/` are common names.
set(ZEPHLY_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/zephly-${ZEPHLY_ABI_VERSION})

# Results are promised bit for bit: no implicit fused multiply-add, no fast-math, no
# x87. Exported to those who link the kit, because its headers hold arithmetic too.
add_library(zephly_numbers INTERFACE)
add_library(Zephly::numbers ALIAS zephly_numbers)
set_target_properties(zephly_numbers PROPERTIES EXPORT_NAME numbers)
target_compile_options(zephly_numbers INTERFACE -ffp-contract=off)

add_library(zephly_warnings INTERFACE)
target_compile_options(zephly_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# In a unity build g++ treats each of the files as a header.
target_compile_options(zephly_warnings INTERFACE
  $<$<AND:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>,$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 reports string concatenation as overlapping copies (GCC bug 105651).
  target_compile_options(zephly_warnings INTERFACE -Wno-restrict)
endif()
if(ZEPHLY_WARNINGS_AS_ERRORS)
  target_compile_options(zephly_warnings INTERFACE -Werror)
endif()

add_library(zephly_instruments INTERFACE)
if(ZEPHLY_SANITIZE)
  target_compile_options(zephly_instruments INTERFACE
    -fsanitize=${ZEPHLY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zephly_instruments INTERFACE -fsanitize=${ZEPHLY_SANITIZE})
endif()

if(ZEPHLY_COVERAGE)
  target_compile_options(zephly_instruments INTERFACE --coverage)
  target_link_options(zephly_instruments INTERFACE --coverage)
endif()

# The libraries that are fuzzed are optimised a little, because a fuzzer is ten times slower at -O0, and count which of
# their code an input reaches. Programs without a fuzzer ignore these counters.
set(zephly_fuzzing "")
if(ZEPHLY_BUILD_FUZZERS)
  set(zephly_fuzzing -O1 -fsanitize=fuzzer-no-link)
endif()

# With sanitizers most of the build time is spent on optimising, and most of the run time in the filters.
set(ZEPHLY_SIGNAL_OPTIMISATION "" CACHE STRING "Optimisation of the kit and the software strap (e.g. -O2); empty: as the rest")

# zephly_library(NAME SOURCES...): one library inside this tree, always a static one, linked as Zephly::NAME.
function(zephly_library name)
  add_library(zephly_${name} STATIC ${ARGN})
  zephly_compile(${name})
endfunction()

# zephly_public_library(NAME SOURCES...): one library that is installed, static or shared as BUILD_SHARED_LIBS says.
# A shared one exports only what is marked with ZEPHLY_EXPORT.
function(zephly_public_library name)
  if(BUILD_SHARED_LIBS)
    add_library(zephly_${name} SHARED ${ARGN})
    zephly_hide(${name})
    set_target_properties(zephly_${name} PROPERTIES VERSION ${ZEPHLY_ABI_VERSION}.0 SOVERSION ${ZEPHLY_ABI_VERSION})
    # A function of the application must not replace one of the kit's.
    target_link_options(zephly_${name} PRIVATE -Wl,-Bsymbolic-functions)
    if(NOT ZEPHLY_SANITIZE)
      target_link_options(zephly_${name} PRIVATE -Wl,--no-undefined)
    endif()
  else()
    add_library(zephly_${name} STATIC ${ARGN})
  endif()
  zephly_compile(${name})
  target_compile_options(zephly_${name} PRIVATE ${zephly_fuzzing})
  string(REPLACE _ - file zephly-${name})
  set_target_properties(zephly_${name} PROPERTIES OUTPUT_NAME ${file} EXPORT_NAME ${name})
endfunction()

# zephly_public_headers(FILES...): headers of this folder that applications may include.
function(zephly_public_headers)
  if(NOT ZEPHLY_INSTALL)
    return()
  endif()
  file(RELATIVE_PATH here ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  foreach(header IN LISTS ARGN)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${header} DESTINATION ${ZEPHLY_INCLUDE_DIR}/${here}/${folder} COMPONENT development)
  endforeach()
endfunction()

# zephly_hide(NAME): its code may be part of a shared library, which then exports only what is marked.
function(zephly_hide name)
  set_target_properties(zephly_${name} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON POSITION_INDEPENDENT_CODE ON)
endfunction()

# zephly_compile(NAME): the settings of every library.
function(zephly_compile name)
  add_library(Zephly::${name} ALIAS zephly_${name})
  target_include_directories(zephly_${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${ZEPHLY_INCLUDE_DIR}>)
  target_link_libraries(zephly_${name}
    PUBLIC zephly_numbers
    PRIVATE $<BUILD_INTERFACE:zephly_warnings> $<BUILD_INTERFACE:zephly_instruments>)
  target_compile_features(zephly_${name} PUBLIC cxx_std_20)
  # Not for tests, which dereference optionals and pointers without a check.
  target_compile_options(zephly_${name} PRIVATE -Wnull-dereference)
endfunction()

# zephly_program(NAME SOURCES...): one executable of this tree.
function(zephly_program name)
  add_executable(${name} ${ARGN})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE zephly_numbers zephly_warnings zephly_instruments)
endfunction()
