# Makes one C++ source of the page's plain files: cmake -DOUTPUT=... -P embed.cmake
#
# The modules become one script, in the order below, without their lines of import and the word
# export: each name is unique among all modules.
set(modules
  words dom escape workers log state filter virtual_list lines facets summary timeline patterns changes keys main)

function(read_source name result)
  file(READ ${CMAKE_CURRENT_LIST_DIR}/${name} text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(append_source name text)
  # A compiler need not take a literal of more than 64 KiB.
  string(LENGTH "${text}" rest)
  set(at 0)
  set(literals "")
  while(rest GREATER 0)
    string(SUBSTRING "${text}" ${at} 16000 part)
    string(LENGTH "${part}" length)
    math(EXPR at "${at} + ${length}")
    math(EXPR rest "${rest} - ${length}")
    string(APPEND literals "R\"__(${part})__\"\n")
  endwhile()
  file(APPEND ${OUTPUT} "inline constexpr std::string_view ${name} =\n${literals};\n")
endfunction()

set(script "")
foreach(module IN LISTS modules)
  read_source(${module}.js text)
  string(REGEX REPLACE "(^|\n)import [^;]*;" "" text "${text}")
  string(REGEX REPLACE "(^|\n)export " "\\1" text "${text}")
  string(APPEND script "${text}")
endforeach()

file(WRITE ${OUTPUT}
  "#pragma once\n\n#include <string_view>\n\nnamespace trelvo::page_sources {\n\n")
foreach(name IN ITEMS page.html:kPage page.css:kStyle worker.js:kWorker)
  string(REPLACE ":" ";" pair ${name})
  list(GET pair 0 file)
  list(GET pair 1 constant)
  read_source(${file} text)
  append_source(${constant} "${text}")
endforeach()
append_source(kScript "${script}")
file(APPEND ${OUTPUT} "\n}  // namespace trelvo::page_sources\n")
