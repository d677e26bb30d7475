# cmake --install: the programs, and the solver as a library for find_package(ratseg).
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ratseg)

install(TARGETS ratseg_headers ratseg_device ratseg_util ratseg_alg ratseg_static ratseg_shared
  EXPORT ratsegTargets)
install(FILES ${PROJECT_SOURCE_DIR}/include/ratseg/ratseg.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ratseg)
# What a program needs besides that links all of it statically (pkg-config --static).
set(RATSEG_PC_PRIVATE "-lratseg_alg -lratseg_util -lratseg_device")
foreach(library IN LISTS OpenMP_CXX_LIB_NAMES)
  string(APPEND RATSEG_PC_PRIVATE " -l${library}")
endforeach()
if(RATSEG_HAVE_CUDA AND NOT RATSEG_CUDA STREQUAL "EMULATED")
  find_package(CUDAToolkit REQUIRED)
  string(APPEND RATSEG_PC_PRIVATE " -L${CUDAToolkit_LIBRARY_DIR} -lcudart_static -ldl -lrt")
endif()
# Folders as seen from the file, so that what was installed may be moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(RATSEG_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(RATSEG_PC_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR})
  set(RATSEG_PC_INCLUDEDIR ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" up "${up}")
  set(RATSEG_PC_PREFIX "\${pcfiledir}/${up}")
  set(RATSEG_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(RATSEG_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/ratseg.pc.in ratseg.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ratseg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(EXPORT ratsegTargets NAMESPACE ratseg:: DESTINATION ${package_folder})
if(RATSEG_HAVE_QT)
  install(TARGETS ratseg ratseg-dataterm)
  # Image files. Apart from the solver, which needs no Qt.
  install(TARGETS ratseg_image EXPORT ratsegImageTargets)
  install(EXPORT ratsegImageTargets NAMESPACE ratseg:: DESTINATION ${package_folder})
endif()
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The solver, the choice of a device, packed arrays and pictures.
foreach(header
    algorithms/rat_segments/alg/params.h
    algorithms/rat_segments/alg/rat_seg.h
    device/backend.h
    device/selection.h
    device/types.h
    util/fileio.h)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/src/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ratseg/${folder})
endforeach()

configure_package_config_file(cmake/ratsegConfig.cmake.in ratsegConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(ratsegConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ratsegConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ratsegConfigVersion.cmake DESTINATION ${package_folder})
