# SPDX-License-Identifier: BSD-3-Clause
# A Debian package of each component that is installed; tools/package makes them from the preset "package". The
# distribution's names lead to the library through its alternatives, below the reference BLAS until somebody chooses it.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development tool)
set(CPACK_PACKAGE_NAME tevalon)
set(CPACK_PACKAGE_VENDOR "The Tevalon developers")
set(CPACK_PACKAGE_CONTACT "The Tevalon developers <maintainers@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(same_version "libtevblas0 (= ${PROJECT_VERSION}-1)")

# tev_package(<component> <name> <section> <summary> <more about it> [<control file>...])
function(tev_package component name section summary more)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_COMPONENT_${key}_DESCRIPTION "${summary}\n${more}" PARENT_SCOPE)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${name})
  install(FILES ${CMAKE_BINARY_DIR}/install/copyright ${CMAKE_BINARY_DIR}/install/changelog.gz
    ${CMAKE_BINARY_DIR}/install/changelog.Debian.gz DESTINATION ${documents} COMPONENT ${component})
  set(scripts ${CMAKE_BINARY_DIR}/install/${component})
  foreach(script postinst prerm triggers)
    if(EXISTS ${CMAKE_SOURCE_DIR}/cmake/debian/${component}.${script})
      configure_file(cmake/debian/${component}.${script} ${scripts}/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
      list(APPEND extra ${scripts}/${script})
    endif()
  endforeach()
  set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA "${extra};${ARGN}" PARENT_SCOPE)
endfunction()

# Programs built against the libraries need their package; of those under the distribution's names any will do.
set(shlibs ${CMAKE_BINARY_DIR}/install/shlibs)
list(TRANSFORM libraries REPLACE "(.+)" "lib\\1 0 libtevblas0 (>= ${PROJECT_VERSION})\n" OUTPUT_VARIABLE lines)
list(JOIN lines "" lines)
file(WRITE ${shlibs} "${lines}")

file(READ LICENSE text)
string(REGEX REPLACE "\n\n" "\n.\n" text "${text}")
string(REGEX REPLACE "\n" "\n " license "${text}")
configure_file(cmake/debian/copyright install/copyright @ONLY)
configure_file(cmake/debian/changelog install/changelog.Debian @ONLY)
configure_file(CHANGELOG.md install/changelog COPYONLY)
foreach(file changelog changelog.Debian)
  execute_process(COMMAND gzip -9nf ${CMAKE_BINARY_DIR}/install/${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

tev_package(runtime libtevblas0 libs "BLAS with kernels for eight instruction sets" "libtevblas and libtevblas64 with the standard
names of BLAS and CBLAS, also as libblas.so.3 and libblas64.so.3 for the
alternatives system; libtev and libtev_offload with names of their own." ${shlibs})
tev_package(development libtevblas-dev libdevel "headers of libtevblas, libtev and libtev_offload" "Headers, pkg-config
files and the CMake package tevalon.")
tev_package(tool tev-offload math "sends linear algebra to a sink and measures it" "A command-line tool that sends
calls of BLAS and whole factorizations to a process of its own, checks and
measures them, and tells which BLAS a program gets.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_PROVIDES "libblas.so.3, libblas64.so.3")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_PROVIDES "libblas.so")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}")
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${same_version}")
include(CPack)
