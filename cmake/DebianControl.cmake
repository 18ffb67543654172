# Run by cpack when the packages are made: corrects what cpack writes into their control part.
#
# - A package with a library gets scripts that call ldconfig; our trigger does that, once for all
#   packages of a run.
# - There is no setting for the field Multi-Arch.
cmake_policy(VERSION 3.25)

function(dpkg_deb)
  execute_process(COMMAND dpkg-deb ${ARGN}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(add_multiarch control package)
  foreach(kind same foreign)
    string(TOUPPER ${kind} upper)
    if(package IN_LIST CPACK_VOINET_MULTIARCH_${upper})
      file(READ "${control}" fields)
      file(WRITE "${control}" "Multi-Arch: ${kind}\n${fields}")
    endif()
  endforeach()
endfunction()

foreach(file IN LISTS CPACK_PACKAGE_FILES)
  cmake_path(GET file FILENAME name)
  string(REGEX REPLACE "_.*" "" package "${name}")
  set(tree "${CPACK_TEMPORARY_DIRECTORY}/repacked-${package}")
  file(REMOVE_RECURSE "${tree}")
  dpkg_deb(--raw-extract "${file}" "${tree}")
  file(REMOVE "${tree}/DEBIAN/postinst" "${tree}/DEBIAN/postrm")
  add_multiarch("${tree}/DEBIAN/control" ${package})
  # Whatever the umask is.
  execute_process(COMMAND chmod 755 "${tree}" "${tree}/DEBIAN" COMMAND_ERROR_IS_FATAL ANY)
  dpkg_deb(--root-owner-group --build "${tree}" "${file}")
endforeach()
