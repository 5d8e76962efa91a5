# SPDX-License-Identifier: MIT
# Writes the licenses of the program and of the libraries in it as a text and as C++ (tools/licenses/licenses.h):
#   cmake -DOWN=LICENSE -DCOMPONENTS=... -DTEXT=... -DSOURCE=... -P collect_licenses.cmake
# COMPONENTS has a line for each library: NAME|URL|FILE|PARAGRAPH (see CMakeLists.txt). A missing FILE is a warning:
# the text then has the URL in place of the license.
cmake_minimum_required(VERSION 3.25)

# find_license(RESULT FILE PARAGRAPH): the text; empty when there is none.
function(find_license result path paragraph)
  set(text "")
  if(EXISTS "${path}")
    file(READ "${path}" text)
  endif()
  if(paragraph)
    # "License: BSL-1.0" with indented lines up to an empty one. Without any lines it only refers to that paragraph.
    set(head "\nLicense: ${paragraph}\n ")
    string(FIND "${text}" "${head}" begin)
    if(begin LESS 0)
      set(text "")
    else()
      string(SUBSTRING "${text}" ${begin} -1 text)
      string(FIND "${text}" "\n\n" end)
      string(SUBSTRING "${text}" 0 ${end} text)
    endif()
  endif()
  string(STRIP "${text}" text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

file(READ ${OWN} own)
string(STRIP "${own}" own)
set(all "${own}\n\nThe program contains code of the following libraries. Each has its own license.\n")

file(STRINGS ${COMPONENTS} components)
foreach(component IN LISTS components)
  string(REPLACE "|" ";" component "${component}")
  list(POP_FRONT component name url path paragraph)
  find_license(text "${path}" "${paragraph}")
  if(text STREQUAL "")
    message(WARNING "The license of ${name} was not found: ${path} is missing or does not contain it. "
      "zephly --licenses refers to ${url} instead.")
    set(text "Its license was not available when this program was built. See ${url}")
  endif()
  string(APPEND all "\n== ${name} ==\n\n${text}\n")
endforeach()

file(WRITE ${TEXT} "${all}")
file(WRITE ${SOURCE} "// Written by tools/licenses/collect_licenses.cmake.

#include <tools/licenses/licenses.h>

namespace Zephly::tools {

std::string_view licenseTexts() {
  return R\"licenses(${all})licenses\";
}

}  // namespace Zephly::tools
")
