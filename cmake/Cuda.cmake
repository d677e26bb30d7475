# Sets RATSEG_HAVE_CUDA, and says how the CUDA files are compiled:
#
#   by nvcc       when RATSEG_CUDA allows it and a toolkit of version 12 or newer is there. The runtime
#                 is linked statically.
#   by g++        with RATSEG_CUDA=EMULATED: against the emulated GPU of tests/emulated_gpu, which runs
#                 the same kernels and launchers without a GPU. For tests only.
set(RATSEG_HAVE_CUDA OFF)
if(RATSEG_CUDA STREQUAL "EMULATED")
  set(RATSEG_HAVE_CUDA ON)
elseif(NOT RATSEG_CUDA STREQUAL "OFF")
  if(NOT DEFINED CMAKE_CUDA_ARCHITECTURES)
    set(CMAKE_CUDA_ARCHITECTURES 75-real 80-real 86-real 89-real 90)
  endif()
  include(CheckLanguage)
  check_language(CUDA)
  if(CMAKE_CUDA_COMPILER)
    set(CMAKE_CUDA_RUNTIME_LIBRARY Static)
    enable_language(CUDA)
    if(CMAKE_CUDA_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
      set(RATSEG_HAVE_CUDA ON)
    endif()
  endif()
  if(RATSEG_CUDA STREQUAL "ON" AND NOT RATSEG_HAVE_CUDA)
    message(FATAL_ERROR "RATSEG_CUDA is ON, but no CUDA toolkit of version 12 or newer was found")
  endif()
endif()

# How files with CUDA kernels are compiled for the emulated GPU. A misaligned address, or an index beyond
# an array whose length the compiler knows, ends the program with its line. Multiplications and
# additions are fused as nvcc does it, where this machine's processor can.
set(ratseg_emulated_checks -fsanitize=alignment,bounds)
set(ratseg_emulated_options -xc++ -Wno-unknown-pragmas -fno-extern-tls-init -ffp-contract=fast
  ${ratseg_emulated_checks} -fno-sanitize-recover=all)
if(RATSEG_CUDA STREQUAL "EMULATED")
  include(CheckCXXSourceRuns)
  set(CMAKE_REQUIRED_FLAGS -mfma)
  check_cxx_source_runs("int main() { return __builtin_cpu_supports(\"fma\") ? 0 : 1; }" RATSEG_HAVE_FMA)
  unset(CMAKE_REQUIRED_FLAGS)
  if(RATSEG_HAVE_FMA)
    list(APPEND ratseg_emulated_options -mfma)
  endif()
endif()

# ratseg_cuda_sources(TARGET file.cu...): adds CUDA files to a target.
function(ratseg_cuda_sources target)
  target_sources(${target} PRIVATE ${ARGN})
  if(RATSEG_CUDA STREQUAL "EMULATED")
    # What headers define for GPUs and for the host in different ways has a name of its own for each.
    set_source_files_properties(${ARGN} PROPERTIES
      LANGUAGE CXX
      COMPILE_OPTIONS "${ratseg_emulated_options}"
      COMPILE_DEFINITIONS "__CUDACC__;__CUDA_ARCH__=900;__CUDA_ARCH_LIST__=750,900;tile=gpu_tile;compiledArch=gpuCompiledArch")
  endif()
endfunction()

# ratseg_link_cuda_runtime(TARGET): links what the CUDA files call. Programs that do not enable the
# CUDA language themselves link it through the library.
function(ratseg_link_cuda_runtime target)
  if(RATSEG_CUDA STREQUAL "EMULATED")
    target_link_libraries(${target} PUBLIC ratseg_emulated_gpu)
  else()
    find_package(CUDAToolkit REQUIRED)
    target_link_libraries(${target} PUBLIC CUDA::cudart_static)
  endif()
endfunction()
