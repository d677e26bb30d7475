# cmake -D SOURCE=<folder> -D COMPILER=<c++> -P headers.cmake
#
# Compiles each header of SOURCE/src alone and fails if one needs something included before it. Those
# that include the CUDA headers are for nvcc and left out.
file(GLOB_RECURSE headers RELATIVE ${SOURCE}/src ${SOURCE}/src/*.h)
list(SORT headers)
list(LENGTH headers count)
if(count EQUAL 0)
  message(FATAL_ERROR "no headers under ${SOURCE}/src")
endif()

# host_sweep-inl.h is made for files that name their instruction set.
set(flags -std=c++20 -fsyntax-only -fopenmp -Wall -Wextra -Werror -Wno-psabi -Wno-unused-function
  -DRATSEG_WITH_CUDA=0 -DRATSEG_ISA=isa_check -DRATSEG_ISA_NAME="check" -I ${SOURCE}/src)
set(failed "")
foreach(header IN LISTS headers)
  file(STRINGS ${SOURCE}/src/${header} cuda REGEX "#include <cuda")
  if(cuda)
    math(EXPR count "${count} - 1")
    continue()
  endif()
  execute_process(COMMAND ${COMPILER} ${flags} -x c++ ${SOURCE}/src/${header}
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    list(APPEND failed ${header})
    message("${header}:\n${output}")
  endif()
endforeach()
list(LENGTH failed wrong)
message("${count} headers, ${wrong} do not compile alone")
if(wrong GREATER 0)
  message(FATAL_ERROR "not self-sufficient: ${failed}")
endif()
