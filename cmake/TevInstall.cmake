# SPDX-License-Identifier: BSD-3-Clause
# What is installed, in three components, each of which becomes a package (cmake/TevPackages.cmake):
#
#   runtime       lib/libtev*.so.0 libvro_*.so.0 and lib/tevblas/, where they carry the distribution's names
#   development   headers, names to link by, pkg-config files, the CMake package "tevalon"
#   tool          bin/tev-offload and what it starts, libexec/tev_sink and libexec/tev_contestant
#
# Programs and libraries find each other by where they lie themselves, so the whole may be moved.
include(CMakePackageConfigHelpers)

set(libraries tev tevblas tevblas64 tevlapack tevlapack64 tev_offload vro_host vro_device)
# What has to be built before `cmake --install`.
add_custom_target(installed DEPENDS ${libraries} tev_check blas blas64 tev-offload tev_sink tev_contestant)

install(TARGETS ${libraries} tev_check EXPORT tevalon
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS blas blas64
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tevblas COMPONENT runtime NAMELINK_COMPONENT development)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/install)
foreach(library libtev.so.0 libtev_offload.so.0 libvro_host.so.0)  # which they open beside themselves
  file(CREATE_LINK ../${library} ${CMAKE_BINARY_DIR}/install/${library} SYMBOLIC)
  install(FILES ${CMAKE_BINARY_DIR}/install/${library} DESTINATION ${CMAKE_INSTALL_LIBDIR}/tevblas COMPONENT runtime)
endforeach()
install(DIRECTORY include/tev include/vro DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(TARGETS tev-offload RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
install(TARGETS tev_sink tev_contestant RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR} COMPONENT tool)

function(tev_manual page component)
  string(REGEX MATCH "[0-9]$" section ${page})
  set(packed ${CMAKE_BINARY_DIR}/install/${page}.gz)
  add_custom_command(OUTPUT ${packed} DEPENDS docs/man/${page} VERBATIM
    COMMAND sh -c "gzip -9nc '${CMAKE_SOURCE_DIR}/docs/man/${page}' > '${packed}'")
  add_custom_target(manual_${page} ALL DEPENDS ${packed})
  add_dependencies(installed manual_${page})
  install(FILES ${packed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
tev_manual(tev-offload.1 tool)
tev_manual(tevblas.7 runtime)

# tev_pkg_config(<library> <description> [<library that it needs>]): relative to the file's own folder.
file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" up ${up})
function(tev_pkg_config library description)
  set(requires ${ARGN})
  configure_file(cmake/library.pc.in install/${library}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/install/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endfunction()
tev_pkg_config(tev "BLAS, factorizations and their settings under names of their own")
tev_pkg_config(tevblas "The standard names of BLAS and CBLAS")
tev_pkg_config(tevblas64 "The standard names of BLAS and CBLAS, 64-bit integers")
tev_pkg_config(tevlapack "Factorizations under LAPACK's names, for programs that link a LAPACK behind them")
tev_pkg_config(tevlapack64 "Factorizations under LAPACK's names, 64-bit integers")
tev_pkg_config(tev_offload "Factorizations that a sink takes a share of" vro_host)
tev_pkg_config(tev_check "Judges requests to a sink before they are sent")
tev_pkg_config(vro_host "The offload runtime, host's side")
tev_pkg_config(vro_device "The offload runtime, sink's side")

set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/tevalon)
install(EXPORT tevalon NAMESPACE tevalon:: DESTINATION ${folder} FILE tevalonConfig.cmake COMPONENT development)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/install/tevalonConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/install/tevalonConfigVersion.cmake DESTINATION ${folder} COMPONENT development)
