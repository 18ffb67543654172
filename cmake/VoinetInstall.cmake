# What `cmake --install` puts where, in three components of which the packages are made:
#
#   runtime      the shared libraries
#   development  headers, links to link with, voinet.pc and the CMake configuration
#   tools        the voinet command and its man page
#
# Nothing that is installed names a directory of the build or the prefix: all of it can be moved. The
# libraries and the command carry no RUNPATH, they are found where the system looks for libraries.

# On Debian the libraries go to lib/ARCHITECTURE whatever the prefix is: the loader, pkg-config and
# CMake look there below /usr and /usr/local. A cross build does not know what its device looks like
# and uses lib. -D CMAKE_INSTALL_LIBDIR=... chooses otherwise.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND NOT CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE
    AND EXISTS /etc/debian_version)
  set(CMAKE_INSTALL_LIBDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
endif()
include(GNUInstallDirs)
set(voinet_config_dir "${CMAKE_INSTALL_LIBDIR}/cmake/voinet")
set(voinet_pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# voinet_install_library(TARGET HEADER...): a shared library and its headers, which go to the folder
# of include/ that carries the target's name.
function(voinet_install_library target)
  install(TARGETS ${target} EXPORT voinetTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      COMPONENT runtime
      NAMELINK_COMPONENT development)
  install(FILES ${ARGN}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${target}
    COMPONENT development)
endfunction()

function(voinet_install_command target man_page)
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()

# find_package(voinet)
include(CMakePackageConfigHelpers)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/voinetConfig.cmake.in
  ${PROJECT_BINARY_DIR}/voinetConfig.cmake
  INSTALL_DESTINATION ${voinet_config_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/voinetConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/voinetConfig.cmake ${PROJECT_BINARY_DIR}/voinetConfigVersion.cmake
  DESTINATION ${voinet_config_dir}
  COMPONENT development)
install(EXPORT voinetTargets
  NAMESPACE voinet::
  DESTINATION ${voinet_config_dir}
  COMPONENT development)

# pkg-config. The prefix is the file's own place and not the configured one, since the installation
# can choose another (--prefix) or be moved.
file(RELATIVE_PATH voinet_pc_to_prefix
  "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" voinet_pc_to_prefix "${voinet_pc_to_prefix}")
foreach(directory INCLUDEDIR LIBDIR)
  set(voinet_pc_${directory} "${CMAKE_INSTALL_${directory}}")
  if(NOT IS_ABSOLUTE "${voinet_pc_${directory}}")
    string(PREPEND voinet_pc_${directory} "\${prefix}/")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/voinet.pc.in ${PROJECT_BINARY_DIR}/voinet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/voinet.pc
  DESTINATION ${voinet_pkgconfig_dir}
  COMPONENT development)
