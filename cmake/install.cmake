# What `cmake --install` gives a host: headers, the shared library, a CMake package and a
# pkg-config file.
set(cachefile_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cachefile)

install(TARGETS cachefile EXPORT cachefile-targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(header IN LISTS cachefile_headers)
    cmake_path(GET header PARENT_PATH module)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/cachefile/${module})
endforeach()

install(EXPORT cachefile-targets NAMESPACE cachefile:: DESTINATION ${cachefile_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/cachefile-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES cmake/cachefile-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/cachefile-config-version.cmake
        DESTINATION ${cachefile_package_dir})

# The pkg-config file finds its prefix from where it lies itself, as the CMake package does, so that
# an installation may be moved. What was configured to lie outside the prefix stays there.
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
configure_file(cmake/cachefile.pc.in ${CMAKE_CURRENT_BINARY_DIR}/cachefile.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cachefile.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
