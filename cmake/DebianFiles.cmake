# Run by cpack between the installation of the components and the making of their packages: adds what
# Debian wants in a package and nobody wants in /usr/local.
cmake_policy(VERSION 3.25)

# gzip without name and time, so that equal input makes equal packages.
function(compress file)
  execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The license's text in the form of a field: indented, "." for an empty line.
function(write_copyright file)
  file(READ "${CPACK_VOINET_LICENSE}" license)
  if(NOT license MATCHES "^MIT License\n\nCopyright \\(c\\) ([^\n]*)\n\n(.*[^\n])\n*$")
    message(FATAL_ERROR "${CPACK_VOINET_LICENSE} is not the license that debian/copyright names")
  endif()
  set(COPYRIGHT_HOLDERS "${CMAKE_MATCH_1}")
  string(REPLACE "\n" "\n " LICENSE_TEXT " ${CMAKE_MATCH_2}")
  string(REPLACE "\n \n" "\n .\n" LICENSE_TEXT "${LICENSE_TEXT}")
  configure_file("${CPACK_VOINET_PACKAGING_DIRECTORY}/copyright.in" "${file}" @ONLY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(tree "${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}")
  set(documents "${tree}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  write_copyright("${documents}/copyright")
  configure_file("${CPACK_VOINET_PACKAGING_DIRECTORY}/changelog" "${documents}/changelog.Debian"
    COPYONLY)
  compress("${documents}/changelog.Debian")
  file(GLOB man_pages "${tree}/share/man/man*/*")
  foreach(page IN LISTS man_pages)
    compress("${page}")
  endforeach()

  # Whatever the umask is.
  execute_process(COMMAND chmod -R u=rwX,go=rX "${tree}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
