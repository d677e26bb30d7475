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

# README.md's program, as it stands there.
file(READ ${SOURCE}/README.md readme)
string(FIND "${readme}" "```cpp\n" begin)
string(SUBSTRING "${readme}" ${begin} -1 readme)
string(SUBSTRING "${readme}" 7 -1 readme)
string(FIND "${readme}" "```" end)
string(SUBSTRING "${readme}" 0 ${end} example)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/consumer DESTINATION ${WORK})
file(WRITE ${WORK}/consumer/example.cpp "${example}")

# run_example(PROGRAM [VARIABLE=VALUE...])
function(run_example program)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env ${ARGN} ${program}
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE error)
  if(NOT status EQUAL 0 OR NOT error STREQUAL "" OR
      NOT output MATCHES "^label 0 covers 40 % after [1-9][0-9]* iterations on Host \\([0-9]+ threads?\\)\n$")
    message(FATAL_ERROR "${program} ends with ${status} and says: ${output}${error}")
  endif()
endfunction()

set(settings -G Ninja -DIMAGES=${QT} -DCMAKE_CXX_COMPILER=${COMPILER} "-DCMAKE_CXX_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} -S ${WORK}/consumer -B ${WORK}/found ${settings} -DCMAKE_PREFIX_PATH=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/found)
run_example(${WORK}/found/example_shared)
run_example(${WORK}/found/example_static)
run(${WORK}/found/solver)
if(QT)
  run(${WORK}/found/images ${WORK}/picture.png)
endif()

# Without CMake: the shared library, and all of it static, which sanitizers do not allow.
file(GLOB_RECURSE packages ${WORK}/prefix/ratseg.pc)
list(LENGTH packages count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one ratseg.pc, but found ${count}: ${packages}")
endif()
cmake_path(GET packages PARENT_PATH folder)
cmake_path(GET folder PARENT_PATH libraries)
find_program(PKG_CONFIG pkg-config)
if(NOT PKG_CONFIG)
  message(STATUS "not tried, since there is no pkg-config: ratseg.pc")
else()
  # build_with_pkg_config(PROGRAM FLAGS OPTION...): with FLAGS of the compiler and what pkg-config says
  # with the OPTIONs.
  function(build_with_pkg_config program flags)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${folder} ${PKG_CONFIG} ${ARGN}
      --cflags --libs ratseg RESULT_VARIABLE status OUTPUT_VARIABLE words ERROR_VARIABLE error
      OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT status EQUAL 0)
      message(FATAL_ERROR "pkg-config ends with ${status}: ${error}")
    endif()
    separate_arguments(words UNIX_COMMAND "${words}")
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run(${COMPILER} -std=c++20 ${flags} ${WORK}/consumer/example.cpp ${words} -o ${program})
  endfunction()
  build_with_pkg_config(${WORK}/example_pkg "${FLAGS}")
  run_example(${WORK}/example_pkg LD_LIBRARY_PATH=${libraries})
  if(NOT FLAGS MATCHES "fsanitize")
    build_with_pkg_config(${WORK}/example_pkg_static "${FLAGS} -static" --static)
    run_example(${WORK}/example_pkg_static)
  endif()
endif()

run(${CMAKE_COMMAND} -S ${WORK}/consumer -B ${WORK}/subfolder ${settings} -DRATSEG_FOLDER=${SOURCE}
  -DRATSEG_CUDA=OFF)
file(STRINGS ${WORK}/subfolder/CMakeCache.txt tests REGEX "^RATSEG_TESTS:BOOL=ON|^GTest_DIR")
if(tests)
  message(FATAL_ERROR "as a subfolder the project builds its tests: ${tests}")
endif()
