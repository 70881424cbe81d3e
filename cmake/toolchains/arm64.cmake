# Builds for 64-bit ARM.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(cross_triplet aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
