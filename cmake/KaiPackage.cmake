# How the two libraries describe themselves to hosts that are built against an installed copy.
include_guard(GLOBAL)
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# kai_install_pkg_config(TEMPLATE): configures TEMPLATE (NAME.pc.in) and installs NAME.pc.
#
# The file derives its prefix from its own location: `cmake --install --prefix` may name another prefix than the build was
# configured with, and an installed tree may be moved.
function(kai_install_pkg_config template)
  set(directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set(pc_prefix ${CMAKE_INSTALL_PREFIX})
    set(pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
    set(pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
  else()
    file(RELATIVE_PATH up /prefix/${directory} /prefix)
    string(REGEX REPLACE "/$" "" up ${up})
    set(pc_prefix "\${pcfiledir}/${up}")
    set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
    set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  endif()
  get_filename_component(name ${template} NAME_WLE)
  configure_file(${template} ${CMAKE_CURRENT_BINARY_DIR}/${name} @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name} DESTINATION ${directory} COMPONENT dev)
endfunction()

# kai_install_cmake_package(NAME TEMPLATE): installs the exported targets NAMETargets under the namespace kai::, and the
# package files that find_package(NAME CONFIG) reads, made from TEMPLATE.
function(kai_install_cmake_package name template)
  set(directory ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  install(EXPORT ${name}Targets NAMESPACE kai:: DESTINATION ${directory} COMPONENT dev)
  configure_package_config_file(${template} ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
    INSTALL_DESTINATION ${directory})
  # Before 1.0 a minor version may change the interface, so hosts ask for the one that they were written for.
  write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
    DESTINATION ${directory} COMPONENT dev)
endfunction()
