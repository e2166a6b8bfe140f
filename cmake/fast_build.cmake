# Included for development and test builds: uses whichever of these tools is installed.
find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
find_program(LINKER NAMES mold ld.lld ld.gold)
if(LINKER MATCHES "(mold|lld|gold)$" AND NOT WIN32)
  target_link_options(project_options INTERFACE -fuse-ld=${CMAKE_MATCH_1})
endif()
