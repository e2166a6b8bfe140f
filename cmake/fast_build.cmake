# Included for development and test builds: uses whichever of these tools is installed.
find_program(TORVIN_CCACHE ccache)
if(TORVIN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TORVIN_CCACHE})
endif()
# Not gold: it exports a symbol that the version script of the server's library hides.
find_program(TORVIN_LINKER NAMES mold ld.lld)
if(TORVIN_LINKER MATCHES "(mold|lld)$" AND NOT WIN32)
  target_link_options(project_options INTERFACE -fuse-ld=${CMAKE_MATCH_1})
endif()
