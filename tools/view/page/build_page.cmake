# SPDX-License-Identifier: MIT
# Builds the pages of `zephly view` and `zephly report` into WORK and writes them as C++ to OUTPUT:
#   cmake -DSOURCE=... -DWORK=... -DOUTPUT=... -DNODE=... -DNPM=... -P build_page.cmake
# WORK is shared by several build folders, which may come here at once: whoever is first does the work, and
# what is there already for the same sources is not built again. Nothing is written into the source folder.
cmake_minimum_required(VERSION 3.25)

file(MAKE_DIRECTORY ${WORK})
file(LOCK ${WORK} DIRECTORY GUARD PROCESS TIMEOUT 600)

# digest(RESULT FILES...): one hash of their names and contents.
function(digest result)
  set(all "")
  foreach(path ${ARGN})
    file(SHA256 ${SOURCE}/${path} hash)
    string(APPEND all "${path} ${hash}\n")
  endforeach()
  string(SHA256 hash "${all}")
  set(${result} ${hash} PARENT_SCOPE)
endfunction()

# isDone(RESULT STAMP VALUE): whether this step has been done for the same input.
function(isDone result stamp value)
  set(${result} FALSE PARENT_SCOPE)
  if(EXISTS ${WORK}/${stamp})
    file(READ ${WORK}/${stamp} done)
    if(done STREQUAL value)
      set(${result} TRUE PARENT_SCOPE)
    endif()
  endif()
endfunction()

# run(MESSAGE COMMAND...): in WORK; a failure ends the build with what was printed and with MESSAGE.
function(run message)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${output}\n${message}")
  endif()
endfunction()

execute_process(COMMAND ${NODE} --version OUTPUT_VARIABLE node OUTPUT_STRIP_TRAILING_WHITESPACE)

digest(packages package.json package-lock.json)
isDone(installed packages.stamp "${packages} ${node}")
if(NOT installed)
  message(STATUS "zephly view: fetching the page's packages (once)")
  file(REMOVE ${WORK}/packages.stamp)
  file(COPY ${SOURCE}/package.json ${SOURCE}/package-lock.json DESTINATION ${WORK})
  # No package's own scripts are run: none is needed.
  run("The packages of the page of `zephly view` could not be fetched from the npm registry. \
Without them: configure with -DZEPHLY_BUILD_PAGE=OFF; everything but the page is built then."
    ${NPM} ci --ignore-scripts --no-audit --no-fund --prefer-offline)
  file(WRITE ${WORK}/packages.stamp "${packages} ${node}")
endif()

file(GLOB_RECURSE sources RELATIVE ${SOURCE} ${SOURCE}/src/*)
list(APPEND sources index.html report.html tsconfig.json vite.config.js vite.report.config.js embed.mjs package.json
  package-lock.json)
list(SORT sources)
digest(page ${sources})
isDone(built page.stamp "${page} ${node}")
if(NOT built)
  message(STATUS "zephly view: building the page")
  file(REMOVE ${WORK}/page.stamp)
  file(REMOVE_RECURSE ${WORK}/src)
  foreach(path ${sources})
    get_filename_component(folder ${WORK}/${path} DIRECTORY)
    file(COPY ${SOURCE}/${path} DESTINATION ${folder})
  endforeach()
  run("The page of `zephly view` does not build." ${NPM} run --silent build)
  run("The page of `zephly view` cannot be embedded." ${NODE} embed.mjs dist dist-report page.cpp)
  file(WRITE ${WORK}/page.stamp "${page} ${node}")
endif()

file(COPY_FILE ${WORK}/page.cpp ${OUTPUT} ONLY_IF_DIFFERENT)
# Also when nothing was to be done the output is as new as the sources.
file(TOUCH ${OUTPUT}.stamp)
