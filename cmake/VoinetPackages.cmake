# Debian packages, with cpack: libvoinet4, libvoinet-dev and voinet-tools, for the machine that the
# build is for. What only a package has is added by DebianFiles.cmake and DebianControl.cmake.

if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

# The change log of the packages has the revision; its version has to be the project's.
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/changelog voinet_latest_change LIMIT_COUNT 1)
if(NOT voinet_latest_change MATCHES "^voinet \\(([0-9.]+)-([0-9]+)\\) "
    OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR
    "packaging/changelog does not begin with version ${PROJECT_VERSION}: ${voinet_latest_change}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})
set(voinet_package_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# voinet_debian_architecture(VARIABLE): what Debian calls the processor of a cross build.
function(voinet_debian_architecture variable)
  set(processors ppc powerpc x86_64 aarch64)
  set(architectures powerpc powerpc amd64 arm64)
  list(FIND processors "${CMAKE_SYSTEM_PROCESSOR}" index)
  if(index EQUAL -1)
    set(${variable} "${CMAKE_SYSTEM_PROCESSOR}" PARENT_SCOPE)
  else()
    list(GET architectures ${index} architecture)
    set(${variable} ${architecture} PARENT_SCOPE)
  endif()
endfunction()

# voinet_mbedtls_package(VARIABLE): the package of the mbedTLS that the command links, by its soname;
# empty when that is a static library.
function(voinet_mbedtls_package variable)
  set(package "")
  if(MbedTLS_mbedcrypto_LIBRARY MATCHES "\\.so$")
    file(REAL_PATH "${MbedTLS_mbedcrypto_LIBRARY}" library)
    execute_process(COMMAND ${CMAKE_OBJDUMP} -p "${library}"
      OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
    if(NOT headers MATCHES "SONAME +libmbedcrypto\\.so\\.([0-9]+)")
      message(FATAL_ERROR "${library} has no soname that tells its package")
    endif()
    set(package libmbedcrypto${CMAKE_MATCH_1})
  endif()
  set(${variable} "${package}" PARENT_SCOPE)
endfunction()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME voinet)
# Each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
if(VOINET_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianFiles.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianControl.cmake)
set(CPACK_VOINET_PACKAGING_DIRECTORY ${PROJECT_SOURCE_DIR}/packaging)
set(CPACK_VOINET_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "libvoinet maintainers <maintainers@voinet.invalid>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvoinet${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"file transfer library of a management agent
libvoinet downloads files from a repository (HTTP, FTP, a local or mounted
directory), resumes them, and exchanges packages with a management server.

This package contains the library and libkvecomn, the common library of host
processes.")
configure_file(${PROJECT_SOURCE_DIR}/packaging/shlibs.in ${PROJECT_BINARY_DIR}/packaging/shlibs
  @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_SOURCE_DIR}/packaging/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvoinet-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# voinet/callbacks.h includes curl/curl.h; whichever libcurl brings it.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libvoinet${PROJECT_VERSION_MAJOR} (= ${voinet_package_version}), libcurl4-openssl-dev | libcurl-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"file transfer library of a management agent - development files
libvoinet downloads files from a repository (HTTP, FTP, a local or mounted
directory), resumes them, and exchanges packages with a management server.

This package contains what host programs are built with: headers, links to
link with, and the configuration for pkg-config and CMake.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME voinet-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "libvoinet${PROJECT_VERSION_MAJOR} (= ${voinet_package_version})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"command of the file transfer library libvoinet
voinet downloads files from a repository (HTTP, FTP, a local or mounted
directory), resumes and verifies them, exchanges packages with a management
server and probes whether a server is there.")

# Packages that can be installed for several architectures at a time, and those that serve others.
if(CMAKE_LIBRARY_ARCHITECTURE AND CMAKE_INSTALL_LIBDIR STREQUAL "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  set(CPACK_VOINET_MULTIARCH_SAME
    ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} ${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})
endif()
set(CPACK_VOINET_MULTIARCH_FOREIGN ${CPACK_DEBIAN_TOOLS_PACKAGE_NAME})

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps asks this machine's package database, which knows nothing of the target's
  # libraries.
  voinet_debian_architecture(CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "libc6, libcurl4 | libcurl4t64, libgcc-s1, libstdc++6")
  string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", libc6, libgcc-s1, libstdc++6")
  voinet_mbedtls_package(voinet_mbedtls)
  if(voinet_mbedtls)
    string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", ${voinet_mbedtls}")
  endif()
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  # The command's own libraries, which are no package's yet.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/host)
endif()

include(CPack)
