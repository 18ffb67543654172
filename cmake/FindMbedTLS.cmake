# mbedTLS 2.28, of which Debian's package brings no CMake configuration. Static or shared, here or
# for another target. Makes MbedTLS::mbedtls, MbedTLS::mbedx509 and MbedTLS::mbedcrypto.

include(FindPackageHandleStandardArgs)

find_path(MbedTLS_INCLUDE_DIR mbedtls/version.h)
foreach(part IN ITEMS mbedtls mbedx509 mbedcrypto)
  find_library(MbedTLS_${part}_LIBRARY ${part})
  mark_as_advanced(MbedTLS_${part}_LIBRARY)
endforeach()
mark_as_advanced(MbedTLS_INCLUDE_DIR)

if(MbedTLS_INCLUDE_DIR)
  file(STRINGS "${MbedTLS_INCLUDE_DIR}/mbedtls/version.h" version_line
    REGEX "define +MBEDTLS_VERSION_STRING +\"")
  string(REGEX REPLACE ".*\"(.*)\".*" "\\1" MbedTLS_VERSION "${version_line}")
endif()

find_package_handle_standard_args(MbedTLS
  REQUIRED_VARS MbedTLS_mbedtls_LIBRARY MbedTLS_mbedx509_LIBRARY MbedTLS_mbedcrypto_LIBRARY
    MbedTLS_INCLUDE_DIR
  VERSION_VAR MbedTLS_VERSION
  HANDLE_VERSION_RANGE)

if(MbedTLS_FOUND AND NOT TARGET MbedTLS::mbedtls)
  foreach(part IN ITEMS mbedcrypto mbedx509 mbedtls)
    add_library(MbedTLS::${part} UNKNOWN IMPORTED)
    set_target_properties(MbedTLS::${part} PROPERTIES
      IMPORTED_LOCATION "${MbedTLS_${part}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${MbedTLS_INCLUDE_DIR}")
  endforeach()
  # In the order in which static libraries need each other.
  target_link_libraries(MbedTLS::mbedx509 INTERFACE MbedTLS::mbedcrypto)
  target_link_libraries(MbedTLS::mbedtls INTERFACE MbedTLS::mbedx509)
endif()
