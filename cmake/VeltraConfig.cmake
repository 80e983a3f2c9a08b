# The package: find_package(Veltra 1 REQUIRED), then link Veltra::Veltra. The library's own
# dependencies are its business alone.
include("${CMAKE_CURRENT_LIST_DIR}/VeltraTargets.cmake")
