# cachefile.lib, the import library of the C interface for hosts that are built with a compiler other
# than MinGW. Such a host cannot use the C++ classes: their names and layout depend on the compiler.
find_program(CACHEFILE_DLLTOOL NAMES llvm-dlltool
             DOC "Program that makes cachefile.lib")
if(NOT CACHEFILE_DLLTOOL)
    message(STATUS "llvm-dlltool is missing, so cachefile.lib is not made")
    return()
endif()

file(STRINGS capi/cachefile_c.h declarations REGEX "^CACHEFILE_API ")
list(TRANSFORM declarations REPLACE "^.*(cachefile_[a-z0-9_]+)\\(.*$" "\\1")
list(JOIN declarations "\n" exports)
set(import_library ${CMAKE_CURRENT_BINARY_DIR}/cachefile.lib)
file(WRITE ${import_library}.def "LIBRARY cachefile.dll\nEXPORTS\n${exports}\n")
set(machine $<IF:$<EQUAL:${CMAKE_SIZEOF_VOID_P},4>,i386,i386:x86-64>)
add_custom_command(OUTPUT ${import_library}
    COMMAND ${CACHEFILE_DLLTOOL} -m ${machine} -d ${import_library}.def -l ${import_library}
    DEPENDS ${import_library}.def capi/cachefile_c.h)
add_custom_target(cachefile_import_library ALL DEPENDS ${import_library})
install(FILES ${import_library} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
