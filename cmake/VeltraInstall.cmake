# What "cmake --install" installs, in three components; CPack makes a package of each.

include(CMakePackageConfigHelpers)

# --- runtime and development: the library, its headers, its packages for CMake and pkg-config -------

set(veltra_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Veltra)
install(TARGETS veltra EXPORT VeltraTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  RUNTIME COMPONENT runtime
  ARCHIVE COMPONENT development)
install(EXPORT VeltraTargets NAMESPACE Veltra:: DESTINATION ${veltra_package_dir}
  COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VeltraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/VeltraConfig.cmake
              ${PROJECT_BINARY_DIR}/VeltraConfigVersion.cmake
  DESTINATION ${veltra_package_dir} COMPONENT development)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/Veltra DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development)
foreach(header Oak/Base/Export.h Oak/Net/HttpClientOptions.h qlog/qlog.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/platform/include/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT development)
endforeach()

if(EXISTS ${PROJECT_SOURCE_DIR}/LICENSE)  # once the owner has chosen one
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development)
endif()

# The pages that the programs' help and the headers refer to. Pages for hosts link to internal ones, so both
# are installed.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libveltra-dev
  COMPONENT development FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN man EXCLUDE)

if(NOT WIN32)  # where hosts have neither manual pages nor pkg-config
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/veltra.3
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
  # The file finds the prefix from its own place, wherever the tree was moved to. Only a library folder
  # outside the prefix ties it to the configured prefix.
  if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(veltra_pc_prefix "${CMAKE_INSTALL_PREFIX}")
  else()
    file(RELATIVE_PATH veltra_pc_up "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
    string(REGEX REPLACE "/$" "" veltra_pc_up "${veltra_pc_up}")
    set(veltra_pc_prefix "\${pcfiledir}/${veltra_pc_up}")
  endif()
  if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(veltra_pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}")
  else()
    set(veltra_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  endif()
  configure_file(${CMAKE_CURRENT_LIST_DIR}/veltra.pc.in ${PROJECT_BINARY_DIR}/veltra.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/veltra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endif()

# --- tools: the programs, their manual pages and completions ----------------------------------------

if(VELTRA_BUILD_TOOLS AND WIN32)
  install(TARGETS veltra_program RUNTIME COMPONENT tools)
elseif(VELTRA_BUILD_TOOLS)
  # A tree installed outside the system's folders works in place, even after it was moved.
  file(RELATIVE_PATH veltra_bin_to_lib
    "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
  set_target_properties(veltra_program PROPERTIES INSTALL_RPATH "$ORIGIN/${veltra_bin_to_lib}")
  install(TARGETS veltra_program veltra-gateway RUNTIME COMPONENT tools)
  foreach(program veltra veltra-gateway)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${program}.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/completions/${program}.bash RENAME ${program}
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/completions/${program}.zsh RENAME _${program}
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/completions/${program}.fish
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d COMPONENT tools)
  endforeach()
endif()

if(veltra_is_top AND VELTRA_BUILD_TOOLS AND NOT WIN32)
  include(VeltraPackages)
endif()
