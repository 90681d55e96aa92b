# Fails unless every defined dynamic symbol of the library is one of its own
# names (Korvane:: or Tamarind::, possibly behind a template's return type).
execute_process(COMMAND ${NM} -D -C --defined-only ${LIBRARY}
  OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${out}")
set(count 0)
foreach(line IN LISTS lines)
  if(line STREQUAL "")
    continue()
  endif()
  # "<address> <type> <name>"
  string(REGEX REPLACE "^[0-9a-f]+ . " "" name "${line}")
  if(NOT name MATCHES "^([a-z]+ )?(Korvane|Tamarind)::")
    message(FATAL_ERROR "exported symbol that is not the library's own: ${line}")
  endif()
  math(EXPR count "${count} + 1")
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "the library exports nothing")
endif()
message(STATUS "${count} exported symbols, all the library's own")
