# The sources are those of the checkout that contains this port.
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)

string(COMPARE EQUAL "${VCPKG_LIBRARY_LINKAGE}" "dynamic" shared)
vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS
        -DBUILD_SHARED_LIBS=${shared}
        -DCACHEFILE_TOOL=OFF
        -DCACHEFILE_TESTS=OFF
        -DCACHEFILE_EXAMPLES=OFF
)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME cachefile CONFIG_PATH lib/cmake/cachefile)
vcpkg_fixup_pkgconfig()
vcpkg_copy_pdbs()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
# The owner has not chosen a licence yet.
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/debian/copyright")
