include(${CMAKE_CURRENT_LIST_DIR}/cachefile-targets.cmake)
