# cmake -D COMPILER=<c++> -D CLANG_FORMAT=<program> -D WORK=<folder> -P notice_faults.cmake
#
# Runs the checks on small source trees, one fault in each: they must fail, with the right line.

# Runs a check on a tree of one file and expects the result (0 = passes) and the text.
function(expect check file content result text)
  set(tree ${WORK}/${check})
  file(REMOVE_RECURSE ${tree})
  file(WRITE ${tree}/src/util/rgb.h "struct RGB {};\n")
  file(WRITE ${tree}/.clang-format "BasedOnStyle: Google\n")
  file(WRITE ${tree}/${file} "${content}")
  execute_process(
    COMMAND ${CMAKE_COMMAND} -D SOURCE=${tree} -D COMPILER=${COMPILER}
      -D CLANG_FORMAT=${CLANG_FORMAT} -P ${CMAKE_CURRENT_LIST_DIR}/${check}.cmake
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(status EQUAL 0)
    set(got 0)
  else()
    set(got 1)
  endif()
  string(FIND "${output}" "${text}" at)
  if(NOT got EQUAL result OR at EQUAL -1)
    message(SEND_ERROR "${check} on ${file}: expected ${result} with \"${text}\", "
      "got ${got} with:\n${output}")
  endif()
endfunction()

expect(layers src/app/x_qt.cpp "#include <QImage>\n#include \"util/rgb.h\"\n" 0
  "2 files, 0 violations")
expect(layers src/device/x.h "#include \"util/rgb.h\"\n" 1
  "src/device/x.h: device may not include util/rgb.h")
expect(layers src/util/x.cpp "  #  include \"algorithms/x.h\"\n" 1
  "src/util/x.cpp: util may not include algorithms/x.h")
expect(layers src/algorithms/x.cpp "#include \"app/options.h\"\n" 1
  "src/algorithms/x.cpp: algorithms may not include app/options.h")
expect(layers src/util/x.cu "#include <cuda_runtime.h>\n" 1
  "src/util/x.cu: only src/device/cuda and *_cuda.cu may include cuda_runtime.h")
expect(layers src/util/x.cpp "#include <QImage>\n" 1
  "src/util/x.cpp: only src/app and *_qt.cpp may include QImage")
set(solver algorithms/rat_segments/alg)
expect(layers src/${solver}/strips_gpu/x.cpp "#include \"${solver}/plain/x.h\"\n" 0
  "2 files, 0 violations")
expect(layers src/${solver}/rat_seg_impl.cpp "#include \"${solver}/strips_gpu/x.h\"\n" 0
  "2 files, 0 violations")
expect(layers src/${solver}/plain/x.cpp "#include \"${solver}/params.h\"\n" 0
  "2 files, 0 violations")
expect(layers src/${solver}/plain/x.cpp "#include \"${solver}/strips_gpu/x.h\"\n" 1
  "src/${solver}/plain/x.cpp: the room plain may not include ${solver}/strips_gpu/x.h")
expect(layers src/${solver}/plain/x.cpp "#include \"${solver}/rat_seg_impl.h\"\n" 1
  "src/${solver}/plain/x.cpp: the room plain may not include ${solver}/rat_seg_impl.h")
expect(layers src/${solver}/attic/x.cpp "" 1
  "src/${solver}/attic/x.cpp: stands in none of the solver's rooms")
expect(layers src/device/environment.cpp "const char* x = std::getenv(\"X\")\;\n" 0
  "2 files, 0 violations")
expect(layers src/util/x.cpp "const char* x = std::getenv(\"X\")\;\n" 1
  "src/util/x.cpp: only src/device/environment.cpp may call getenv")
expect(layers src/extra/x.cpp "" 1 "src/extra/x.cpp: stands in none of the folders")

expect(headers src/util/x.h "#include \"util/rgb.h\"\ninline RGB f() { return {}; }\n" 0
  "2 headers, 0 do not compile alone")
expect(headers src/util/x.h "inline RGB f() { return {}; }\n" 1 "not self-sufficient: util/x.h")

if(CLANG_FORMAT)
  execute_process(COMMAND ${CLANG_FORMAT} --version OUTPUT_VARIABLE version)
  if(version MATCHES "version 14\\.")
    expect(format src/util/x.h "struct X {};\n" 0 "2 files, 0 not formatted")
    expect(format src/util/x.h "struct   X{};\n" 1 "src/util/x.h: not formatted")
  endif()
endif()
