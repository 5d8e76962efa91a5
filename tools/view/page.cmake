# SPDX-License-Identifier: MIT
# Zephly::tools_view_page: the pages of `zephly view` and `zephly report`, embedded. It provides assets() and
# reportPage() of tools/view/assets.h.
#
# With Node.js 18 or newer and npm the page is built, in ZEPHLY_PAGE_DIR, which several build folders share.
# Without them the program is built all the same; both commands then say what it lacks.
set(ZEPHLY_PAGE_DIR "${PROJECT_BINARY_DIR}/page" CACHE PATH "Where the page of zephly view is built")

set(ZEPHLY_HAS_PAGE FALSE CACHE INTERNAL "The page of zephly view is built")
if(ZEPHLY_BUILD_PAGE)
  find_program(ZEPHLY_NODE node)
  find_program(ZEPHLY_NPM npm)
  if(ZEPHLY_NODE AND ZEPHLY_NPM)
    execute_process(COMMAND ${ZEPHLY_NODE} --version OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
    string(REGEX REPLACE "^v" "" version "${version}")
    if(version VERSION_GREATER_EQUAL 18)
      set(ZEPHLY_HAS_PAGE TRUE CACHE INTERNAL "The page of zephly view is built")
    else()
      message(STATUS "zephly view: no page, Node.js is ${version} and has to be 18 or newer")
    endif()
  else()
    message(STATUS "zephly view: no page, Node.js (18 or newer) or npm is missing")
  endif()
else()
  message(STATUS "zephly view: no page, ZEPHLY_BUILD_PAGE is off")
endif()

if(NOT ZEPHLY_HAS_PAGE)
  zephly_library(tools_view_page no_page.cpp)
  return()
endif()

set(page ${CMAKE_CURRENT_SOURCE_DIR}/page)
file(GLOB_RECURSE page_sources CONFIGURE_DEPENDS ${page}/src/*)
list(APPEND page_sources ${page}/index.html ${page}/report.html ${page}/tsconfig.json ${page}/vite.config.js
  ${page}/vite.report.config.js ${page}/embed.mjs
  ${page}/package.json ${page}/package-lock.json ${page}/build_page.cmake)
set(page_cpp ${CMAKE_CURRENT_BINARY_DIR}/page.cpp)
add_custom_command(
  OUTPUT ${page_cpp}.stamp
  BYPRODUCTS ${page_cpp}
  COMMAND ${CMAKE_COMMAND} -DSOURCE=${page} -DWORK=${ZEPHLY_PAGE_DIR} -DOUTPUT=${page_cpp}
    -DNODE=${ZEPHLY_NODE} -DNPM=${ZEPHLY_NPM} -P ${page}/build_page.cmake
  DEPENDS ${page_sources}
  COMMENT "Building the page of zephly view"
  VERBATIM)
add_custom_target(zephly_page DEPENDS ${page_cpp}.stamp)
zephly_library(tools_view_page ${page_cpp})
set_source_files_properties(${page_cpp} PROPERTIES GENERATED TRUE)
add_dependencies(zephly_tools_view_page zephly_page)
