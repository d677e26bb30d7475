# cmake -D SOURCE=<folder> -D BUILD=<folder> -D WORK=<folder> -D QT=<bool> -D COMPILER=<c++>
#       -D FLAGS=<flags> -P install.cmake
#
# Installs the build into WORK, looks for what users need, and builds and runs a project that finds the
# library there.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nends with ${status}:\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
if(QT)
  foreach(program ratseg ratseg-dataterm)
    execute_process(COMMAND ${WORK}/prefix/bin/${program} OUTPUT_VARIABLE usage ERROR_QUIET)
    if(NOT usage MATCHES "-image")
      message(FATAL_ERROR "the installed ${program} does not print its options, but: ${usage}")
    endif()
  endforeach()
endif()

# README.md's function, as it stands there.
file(READ ${SOURCE}/README.md readme)
string(FIND "${readme}" "```cpp\n" begin)
string(SUBSTRING "${readme}" ${begin} -1 readme)
string(SUBSTRING "${readme}" 7 -1 readme)
string(FIND "${readme}" "```" end)
string(SUBSTRING "${readme}" 0 ${end} example)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/consumer DESTINATION ${WORK})
file(WRITE ${WORK}/consumer/segment.cpp "${example}")

set(settings -G Ninja -DIMAGES=${QT} -DCMAKE_CXX_COMPILER=${COMPILER} "-DCMAKE_CXX_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} -S ${WORK}/consumer -B ${WORK}/found ${settings} -DCMAKE_PREFIX_PATH=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/found)
run(${WORK}/found/consumer)
if(QT)
  run(${WORK}/found/images ${WORK}/picture.png)
endif()

run(${CMAKE_COMMAND} -S ${WORK}/consumer -B ${WORK}/subfolder ${settings} -DRATSEG_FOLDER=${SOURCE}
  -DRATSEG_CUDA=OFF)
file(STRINGS ${WORK}/subfolder/CMakeCache.txt tests REGEX "^RATSEG_TESTS:BOOL=ON|^GTest_DIR")
if(tests)
  message(FATAL_ERROR "as a subfolder the project builds its tests: ${tests}")
endif()
