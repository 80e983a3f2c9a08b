# Debian packages: "cpack" in the build folder makes libveltra1, libveltra-dev, veltra-tools and
# python3-veltra, the first of which is named after the library's SOVERSION so that two of them can be installed at once.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "Veltra")
set(CPACK_PACKAGE_CONTACT "Veltra maintainers <maintainers@veltra.example>")
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/VeltraPackagesStage.cmake)
set(CPACK_COMPONENTS_ALL runtime development tools python)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libveltra${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "client library for a gateway in front of language models
Logs in, keeps the token fresh on a thread of its own, runs prompt-template
queries, screens their values and takes feedback, for hosts with many threads.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS ca-certificates)
# For packages of hosts: which version of the library they depend on. Exports may be added at any
# version, so that the one of the build is the least that will do.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(veltra_runtime ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libveltra-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "headers of the Veltra client library
What hosts are built with: C++11 headers, and the files by which CMake and
pkg-config find the library.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${veltra_runtime} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME veltra-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "command line and local gateway for the Veltra client library
veltra runs queries, feedback and time expressions from a shell;
veltra-gateway is a gateway on one's own machine, for development and tests.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${veltra_runtime} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS bash-completion)
# The library isn't installed when the programs' dependencies are looked up.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-veltra)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Veltra client library for Python
Queries that block or that asyncio awaits, an exception for each outcome, and
the library's records in logging; by ctypes, without a compiled part.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "${veltra_runtime} (>= ${PROJECT_VERSION}), python3 (>= 3.9)")
# They compile the modules when the package comes, and remove what Python left when it goes.
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/python3-veltra/postinst ${CMAKE_CURRENT_LIST_DIR}/python3-veltra/prerm)

# In packages only, since where Python looks is the system's business: other trees take the wheel.
set(veltra_python_dir lib/python3/dist-packages)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/bindings/python/veltra DESTINATION ${veltra_python_dir}
  COMPONENT python EXCLUDE_FROM_ALL FILES_MATCHING PATTERN *.py PATTERN py.typed
  PATTERN __pycache__ EXCLUDE)
file(WRITE ${PROJECT_BINARY_DIR}/python/METADATA
  "Metadata-Version: 2.1\nName: veltra\nVersion: ${PROJECT_VERSION}\n")
install(FILES ${PROJECT_BINARY_DIR}/python/METADATA
  DESTINATION ${veltra_python_dir}/veltra-${PROJECT_VERSION}.dist-info
  COMPONENT python EXCLUDE_FROM_ALL)

# In packages only: each has a folder of documents of its own.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(EXISTS ${PROJECT_SOURCE_DIR}/LICENSE)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
      RENAME copyright COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endforeach()

include(CPack)
