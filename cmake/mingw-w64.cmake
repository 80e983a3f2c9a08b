# Tool chain file: Windows x64 with Debian's mingw-w64 on a Linux machine, programs run by wine.
# VELTRA_WINDOWS_DEPENDENCIES is the folder that scripts/windows-dependencies fills.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The "posix" compilers are those whose standard library has threads.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELTRA_WINDOWS_DEPENDENCIES)
# Behind what the command line names, the place of an installed library say.
list(APPEND CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${VELTRA_WINDOWS_DEPENDENCIES})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's own libraries go in: a host gets one DLL, and tests need no search path.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -static)
endforeach()

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine)
