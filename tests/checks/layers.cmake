# cmake -D SOURCE=<folder> -P layers.cmake
#
# Checks which way the includes of SOURCE/src run (docs/architecture.md), prints one line per
# violation, and fails if there is any:
# - src/device, src/util, src/models, src/project, src/algorithms, src/library and src/app include only what stands before them here;
# - in the solver's folder every room includes only itself and the rooms below it; what stands in the
#   folder itself may include all rooms, which know nothing of it but params.h and engine.h;
# - the CUDA headers are included by src/device/cuda and by *_cuda.cu only;
# - VIGRA's headers, which are for C++17, are included by src/models/vigra_calls.cpp only;
# - Qt is included by src/app and by *_qt.cpp only;
# - the environment is read by src/device/environment.cpp only.
cmake_minimum_required(VERSION 3.25)

set(layers device util models project algorithms library app)

set(solver algorithms/rat_segments/alg)
set(rooms kernels dataterm plain fused_host strips_gpu certificate)
set(below_kernels "")
set(below_dataterm kernels)
set(below_plain kernels dataterm)
set(below_fused_host kernels plain)
set(below_strips_gpu kernels plain)
set(below_certificate kernels plain)
set(known_to_rooms params.h engine.h)

file(GLOB_RECURSE files RELATIVE ${SOURCE} ${SOURCE}/src/*.h ${SOURCE}/src/*.cpp ${SOURCE}/src/*.cu)
list(SORT files)
list(LENGTH files count)
if(count EQUAL 0)
  message(FATAL_ERROR "no sources under ${SOURCE}/src")
endif()

set(violations "")
macro(violation text)
  list(APPEND violations "${file}: ${text}")
endmacro()

foreach(file IN LISTS files)
  string(REGEX REPLACE "^src/([^/]+)/.*" "\\1" layer "${file}")
  list(FIND layers "${layer}" level)
  if(level EQUAL -1)
    violation("stands in none of the folders ${layers}")
    continue()
  endif()
  set(may_cuda OFF)
  if(file MATCHES "^src/device/cuda/" OR file MATCHES "_cuda\\.cu$")
    set(may_cuda ON)
  endif()
  set(may_qt OFF)
  if(layer STREQUAL "app" OR file MATCHES "_qt\\.cpp$")
    set(may_qt ON)
  endif()

  # The room of the solver that the file stands in, if any.
  set(room "")
  if(file MATCHES "^src/${solver}/([^/]+)/")
    set(room ${CMAKE_MATCH_1})
    if(NOT room IN_LIST rooms)
      violation("stands in none of the solver's rooms ${rooms}")
    endif()
  endif()

  file(STRINGS ${SOURCE}/${file} readings REGEX "getenv *\\(")
  if(readings AND NOT file STREQUAL "src/device/environment.cpp")
    violation("only src/device/environment.cpp may call getenv")
  endif()

  file(STRINGS ${SOURCE}/${file} lines REGEX "^[ \t]*#[ \t]*include")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE ".*include[ \t]*[<\"]([^>\"]*)[>\"].*" "\\1" header "${line}")
    string(REGEX REPLACE "/.*" "" target "${header}")
    list(FIND layers "${target}" target_level)
    if(target_level GREATER level)
      violation("${layer} may not include ${header}")
    endif()
    if(NOT room STREQUAL "" AND header MATCHES "^${solver}/")
      string(REPLACE "${solver}/" "" target "${header}")
      string(REGEX REPLACE "/.*" "" target "${target}")
      if(NOT target IN_LIST below_${room} AND NOT target STREQUAL room
          AND NOT target IN_LIST known_to_rooms)
        violation("the room ${room} may not include ${header}")
      endif()
    endif()
    if(header MATCHES "^(cuda_runtime|cuda|cub/|thrust/|device_launch)" AND NOT may_cuda)
      violation("only src/device/cuda and *_cuda.cu may include ${header}")
    endif()
    if(header MATCHES "^vigra/" AND NOT file STREQUAL "src/models/vigra_calls.cpp")
      violation("only src/models/vigra_calls.cpp may include ${header}")
    endif()
    if(header MATCHES "^(Q[A-Z]|Qt)" AND NOT may_qt)
      violation("only src/app and *_qt.cpp may include ${header}")
    endif()
  endforeach()
endforeach()

foreach(violation IN LISTS violations)
  message("${violation}")
endforeach()
list(LENGTH violations wrong)
message("${count} files, ${wrong} violations")
if(wrong GREATER 0)
  message(FATAL_ERROR "the includes run the wrong way")
endif()
