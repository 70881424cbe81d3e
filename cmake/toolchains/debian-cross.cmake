# Builds for the machine cross_triplet with Debian's cross compiler. Programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${cross_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${cross_triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-qemu)

list(APPEND CMAKE_FIND_ROOT_PATH /usr/${cross_triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
