# The instruction sets that hot loops on the host are compiled for (src/device/host/host_isa.h):
# RATSEG_HOST_ISAS are those of this processor's family, RATSEG_X86 says whether there are others
# than the baseline.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(RATSEG_X86 1)
  set(RATSEG_HOST_ISAS baseline avx2 avx512)
else()
  set(RATSEG_X86 0)
  set(RATSEG_HOST_ISAS baseline)
endif()

# ratseg_isa_source(TARGET BODY ISA option...): compiles BODY, a *-inl.h below src/, for the instruction
# set ISA with these options, in a namespace of its own.
function(ratseg_isa_source target body isa)
  cmake_path(GET body STEM name)
  string(REPLACE "-inl" "" name "${name}")
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${name}_${isa}.cpp)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/isa.cpp.in ${file} @ONLY)
  target_sources(${target} PRIVATE ${file})
  set_source_files_properties(${file} PROPERTIES COMPILE_OPTIONS "${ARGN}")
endfunction()
