# CPack runs this on the staged files, before it packs them. A package's library is where the system
# looks: its programs go without the path of their own that other installed trees need.
file(GLOB programs "${CPACK_TEMPORARY_DIRECTORY}/tools/usr/bin/*")
foreach(program IN LISTS programs)
  file(RPATH_REMOVE FILE "${program}")
endforeach()
