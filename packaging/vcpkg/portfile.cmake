# A vcpkg port that builds the libraries from this very source tree:
#   vcpkg install libkai --overlay-ports=packaging/vcpkg --triplet=x64-linux-dynamic
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS -DBUILD_TESTING=OFF -DKAI_BUILD_TOOLS=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME kai CONFIG_PATH lib/cmake/kai DO_NOT_DELETE_PARENT_CONFIG_PATH)
vcpkg_cmake_config_fixup(PACKAGE_NAME cf CONFIG_PATH lib/cmake/cf)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
# No licence has been named yet; this file says so.
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/THIRD_PARTY.md")
