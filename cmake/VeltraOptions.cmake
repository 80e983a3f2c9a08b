# What every target of the tree is compiled with, in one place: veltra_options.

include(CheckCXXCompilerFlag)

add_library(veltra_options INTERFACE)
target_compile_features(veltra_options INTERFACE cxx_std_20)
find_package(Threads REQUIRED)
target_link_libraries(veltra_options INTERFACE Threads::Threads)

if(MSVC)
  target_compile_options(veltra_options INTERFACE /W4 /utf-8 /permissive- /Zc:preprocessor
    /wd4251  # members of exported classes: host and library share their C++ library anyway
    $<$<BOOL:${VELTRA_WARNINGS_AS_ERRORS}>:/WX>)
  target_compile_definitions(veltra_options INTERFACE _CRT_SECURE_NO_WARNINGS)
else()
  target_compile_options(veltra_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wcast-align
    -Wimplicit-fallthrough
    # g++ 12 at -O3 takes the joining of two short texts for an overlapping copy.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    # In one file with others, it takes a source for a header.
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${CMAKE_UNITY_BUILD}>>:-Wno-subobject-linkage>
    $<$<BOOL:${VELTRA_WARNINGS_AS_ERRORS}>:-Werror>)
endif()

if(WIN32)
  target_compile_definitions(veltra_options INTERFACE WIN32_LEAN_AND_MEAN NOMINMAX BOOST_ALL_NO_LIB)
endif()

# A unique symbol keeps a module mapped after dlclose; nothing here may do that.
check_cxx_compiler_flag(-fno-gnu-unique veltra_has_no_gnu_unique)
if(veltra_has_no_gnu_unique)
  target_compile_options(veltra_options INTERFACE -fno-gnu-unique)
endif()

# Log records show paths from the source root on, whatever the machine of the build looks like.
check_cxx_compiler_flag(-fmacro-prefix-map=a=b veltra_has_macro_prefix_map)
if(veltra_has_macro_prefix_map)
  target_compile_options(veltra_options INTERFACE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
endif()

# VELTRA_SANITIZE: a list for -fsanitize, such as "address,undefined" or "thread".
set(VELTRA_SANITIZE "" CACHE STRING "Sanitizers to build with")
if(VELTRA_SANITIZE)
  target_compile_options(veltra_options INTERFACE -fsanitize=${VELTRA_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(veltra_options INTERFACE -fsanitize=${VELTRA_SANITIZE})
endif()

# The fuzzers link the same objects as everything else: libFuzzer's instrumentation goes in, its main
# function stays out. The linker's option brings what the instrumentation calls in other programs.
if(VELTRA_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VELTRA_BUILD_FUZZ needs clang++, which brings libFuzzer; the compiler is "
                        "${CMAKE_CXX_COMPILER_ID}. Use the preset asan.")
  endif()
  target_link_options(veltra_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The parts of the library: position-independent, hidden by default. VELTRA_BUILDING_LIBRARY turns
# the export macros into definitions.
# Public, since who links the objects has their functions in his own module.
function(veltra_add_objects name)
  add_library(${name} OBJECT ${ARGN})
  target_link_libraries(${name} PUBLIC veltra_options)
  target_compile_definitions(${name} PUBLIC VELTRA_BUILDING_LIBRARY)
  if(VELTRA_DEBUG_INFO AND NOT MSVC)
    target_compile_options(${name} PRIVATE -g)
  endif()
  if(VELTRA_BUILD_FUZZ)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  set_target_properties(${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    CXX_EXTENSIONS OFF)
endfunction()
