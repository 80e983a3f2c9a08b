# CLI11 by its own package file, or, where a tree of headers is all there is, by its headers. Sets
# CLI11_FOUND and makes the target CLI11::CLI11.

find_package(CLI11 ${CLI11_FIND_VERSION} CONFIG QUIET)
if(CLI11_FOUND)
  set(CLI11_INCLUDE_DIR ${CLI11_CONFIG})
else()
  find_path(CLI11_INCLUDE_DIR CLI/Version.hpp)
  if(CLI11_INCLUDE_DIR)
    file(STRINGS ${CLI11_INCLUDE_DIR}/CLI/Version.hpp CLI11_VERSION
      REGEX "^#define CLI11_VERSION \"")
    string(REGEX REPLACE ".*\"(.*)\".*" "\\1" CLI11_VERSION "${CLI11_VERSION}")
  endif()
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CLI11
  REQUIRED_VARS CLI11_INCLUDE_DIR VERSION_VAR CLI11_VERSION)
if(CLI11_FOUND AND NOT TARGET CLI11::CLI11)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  set_target_properties(CLI11::CLI11 PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${CLI11_INCLUDE_DIR}")
endif()
