# Cross-building for 32-bit Windows with mingw-w64.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(TORVIN_TRIPLET i686-w64-mingw32)
# GCC 12 moves cold code out of its function, and a failure that passes through such a piece ends the
# process.
set(CMAKE_CXX_FLAGS_INIT -fno-reorder-blocks-and-partition)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
