# Builds for s390x, which is big-endian.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(cross_triplet s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
