# How every target of this tree is compiled.

# Numbers are promised bit for bit: no fused multiply-add unless it is written, no fast-math, no
# x87. Exported to those who link the kit, because its headers hold arithmetic too.
add_library(zephly_numbers INTERFACE)
add_library(Zephly::numbers ALIAS zephly_numbers)
target_compile_options(zephly_numbers INTERFACE -ffp-contract=off)

add_library(zephly_warnings INTERFACE)
target_compile_options(zephly_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 takes harmless joining of strings for overlapping copies (GCC bug 105651).
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

# zephly_library(NAME SOURCES...): one library of this tree, linked as Zephly::NAME.
function(zephly_library name)
  add_library(zephly_${name} STATIC ${ARGN})
  add_library(Zephly::${name} ALIAS zephly_${name})
  target_include_directories(zephly_${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(zephly_${name} PUBLIC zephly_numbers PRIVATE zephly_warnings zephly_instruments)
  target_compile_features(zephly_${name} PUBLIC cxx_std_20)
  # Not for tests, which use what they have just made without asking whether it is there.
  target_compile_options(zephly_${name} PRIVATE -Wnull-dereference)
endfunction()

# zephly_program(NAME SOURCES...): one executable of this tree.
function(zephly_program name)
  add_executable(${name} ${ARGN})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE zephly_numbers zephly_warnings zephly_instruments)
endfunction()
