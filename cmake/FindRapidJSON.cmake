# RapidJSON by its own package file, or, where a tree of headers is all there is, by its headers.
# Sets RapidJSON_FOUND and RAPIDJSON_INCLUDE_DIRS.

find_package(RapidJSON CONFIG QUIET)
if(NOT RapidJSON_FOUND)
  find_path(RAPIDJSON_INCLUDE_DIRS rapidjson/document.h)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(RapidJSON REQUIRED_VARS RAPIDJSON_INCLUDE_DIRS)
