# cmake -D NM=<nm> -D LIBRARY=<libratseg.so> -P symbols.cmake
#
# Fails where the shared library defines a symbol outside namespace ratseg, or lacks those that
# programs need.
execute_process(COMMAND ${NM} --dynamic --defined-only --demangle ${LIBRARY}
  OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\n" ";" lines "${text}")
set(count 0)
foreach(line IN LISTS lines)
  if(line STREQUAL "")
    continue()
  endif()
  math(EXPR count "${count} + 1")
  string(REGEX REPLACE "^[0-9a-f]+ . " "" name "${line}")
  if(NOT name MATCHES "^((typeinfo|typeinfo name|vtable) for )?ratseg::")
    message(SEND_ERROR "shows ${name}")
  endif()
endforeach()
foreach(needed "ratseg::segment(" "ratseg::Solver::run(" "typeinfo for ratseg::InvalidArgument")
  string(FIND "${text}" "${needed}" at)
  if(at EQUAL -1)
    message(SEND_ERROR "lacks ${needed}")
  endif()
endforeach()
message("${count} symbols")
