# Installs the headers, the library, a CMake package and a pkg-config file. The components are runtime
# (the shared library), development (what a host is built with) and tool (the command line).
set(cachefile_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cachefile)

install(TARGETS cachefile EXPORT cachefile-targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
foreach(header IN LISTS cachefile_headers)
    cmake_path(GET header PARENT_PATH module)
    if(module STREQUAL "capi")
        set(module "")  # cachefile_c.h goes next to cachefile.h
    endif()
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/cachefile/${module}
            COMPONENT development)
endforeach()

install(EXPORT cachefile-targets NAMESPACE cachefile:: DESTINATION ${cachefile_package_dir}
        COMPONENT development)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/cachefile-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
configure_file(cmake/cachefile-config.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/cachefile-config.cmake
               @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cachefile-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/cachefile-config-version.cmake
        DESTINATION ${cachefile_package_dir} COMPONENT development)

# The pkg-config file computes its prefix from its own location, as the CMake package does, so an
# installation may be moved. Directories that were configured outside the prefix stay as they are.
foreach(kind IN ITEMS INCLUDEDIR LIBDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
        set(cachefile_pc_${kind} ${CMAKE_INSTALL_${kind}})
    else()
        set(cachefile_pc_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
    endif()
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(cachefile_pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
    string(REGEX REPLACE "[^/]+" ".." cachefile_pc_up ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    set(cachefile_pc_prefix "\${pcfiledir}/${cachefile_pc_up}")
endif()
# A host of the static library needs the definition CACHEFILE_STATIC and the threads library.
set(cachefile_pc_cflags "")
set(cachefile_pc_libs "")
if(NOT BUILD_SHARED_LIBS)
    set(cachefile_pc_cflags " -DCACHEFILE_STATIC")
    set(cachefile_pc_libs " -pthread")
endif()
configure_file(cmake/cachefile.pc.in ${CMAKE_CURRENT_BINARY_DIR}/cachefile.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cachefile.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
