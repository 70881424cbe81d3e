# Builds for 32-bit Linux with Debian's g++-12-multilib, on a 64-bit system that can run the programs.
# The package gcc-multilib is not needed: it conflicts with the cross compilers of the other machines.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i386)

# The system's headers of the kernel are the same for both. SSE makes floating point exact.
set(flags "-m32 -msse2 -mfpmath=sse -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT ${flags})
set(CMAKE_CXX_FLAGS_INIT ${flags})
