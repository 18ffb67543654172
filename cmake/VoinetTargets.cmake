# What every target of the project is compiled with, and the functions that make targets.

add_library(voinet_build_settings INTERFACE)
target_compile_features(voinet_build_settings INTERFACE cxx_std_17)
target_compile_definitions(voinet_build_settings INTERFACE
  # Files beyond 2 GiB, and directories with large inode numbers, on 32-bit targets.
  _FILE_OFFSET_BITS=64)
target_compile_options(voinet_build_settings INTERFACE
  -Wall -Wextra -Wpedantic
  # A local that hides another is a trap in long set-up code.
  -Wshadow
  # `long` has 32 bits on the device: narrowing has to be seen and checked.
  -Wconversion
  # Destroying through a base without a virtual destructor leaks silently.
  -Wnon-virtual-dtor
  # A slot that does not override what it was meant to override changes the binary interface.
  -Woverloaded-virtual
  $<$<BOOL:${VOINET_WARNINGS_AS_ERRORS}>:-Werror>)
if(NOT VOINET_SANITIZE)
  # What a distribution hardens its programs with; the checks of calls need an optimised build.
  target_compile_options(voinet_build_settings INTERFACE -fstack-protector-strong)
  target_compile_definitions(voinet_build_settings INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:_FORTIFY_SOURCE=2>)
  target_link_options(voinet_build_settings INTERFACE -Wl,-z,relro,-z,now)
endif()
if(VOINET_SANITIZE)
  target_compile_options(voinet_build_settings INTERFACE
    -fsanitize=${VOINET_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(voinet_build_settings INTERFACE -fsanitize=${VOINET_SANITIZE})
endif()

# Sources that are formatted and linted. Every source file of the project must be registered with
# voinet_register_sources; voinet_check_registered_sources fails the configuration otherwise.
set_property(GLOBAL PROPERTY VOINET_SOURCES "")

function(voinet_register_sources)
  foreach(source IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
    set_property(GLOBAL APPEND PROPERTY VOINET_SOURCES "${source}")
  endforeach()
endfunction()

# Writes the list of the sources for lint, and fails when a source file of a directory that is part
# of this build is not in it.
function(voinet_check_registered_sources)
  get_property(registered GLOBAL PROPERTY VOINET_SOURCES)
  list(SORT registered)
  list(JOIN registered "\n" lines)
  file(WRITE "${CMAKE_BINARY_DIR}/sources.txt" "${lines}\n")
  if(NOT (VOINET_BUILD_TOOLS AND VOINET_BUILD_TESTS AND VOINET_BUILD_BENCH))
    return()
  endif()
  foreach(directory include src host tools tests docs bench)
    file(GLOB_RECURSE found
      "${PROJECT_SOURCE_DIR}/${directory}/*.cpp" "${PROJECT_SOURCE_DIR}/${directory}/*.h")
    foreach(source IN LISTS found)
      if(NOT source IN_LIST registered)
        message(FATAL_ERROR "${source} is not registered with voinet_register_sources")
      endif()
    endforeach()
  endforeach()
endfunction()

# The two shared libraries: hidden visibility, a version script that lists what is exported (hidden
# visibility does not reach the instantiations of the C++ library's templates), and a soname with the
# interface's number.
function(voinet_setup_shared_library target version_script)
  cmake_path(ABSOLUTE_PATH version_script)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  if(NOT VOINET_SANITIZE)
    # Every symbol must be found at link time, not on the device at night.
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  target_link_options(${target} PRIVATE -Wl,--as-needed -Wl,--version-script=${version_script})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${version_script})
endfunction()
