cmake_minimum_required(VERSION 3.22)

# Runs the vcpkg port with stand-ins for vcpkg's functions that do their main work, and looks at what is then installed.
#   cmake -DPORT=packaging/vcpkg/portfile.cmake -DWORK=... -P check_portfile.cmake
file(REMOVE_RECURSE ${WORK})
set(CURRENT_PACKAGES_DIR ${WORK}/packages)

function(vcpkg_check_linkage)
  if(NOT "ONLY_DYNAMIC_LIBRARY" IN_LIST ARGV)
    message(FATAL_ERROR "the port must not be built static")
  endif()
endfunction()

function(vcpkg_cmake_configure)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "SOURCE_PATH" "OPTIONS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${arg_SOURCE_PATH} -B ${WORK}/build -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_INSTALL_PREFIX=${CURRENT_PACKAGES_DIR} -DBUILD_SHARED_LIBS=ON ${arg_OPTIONS}
    COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(vcpkg_cmake_install)
  # What is built does not matter here, only what would be installed; empty files stand for the two libraries.
  file(READ ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../../VERSION version)
  string(STRIP "${version}" version)
  string(REGEX MATCH "^[0-9]+\\.[0-9]+" short ${version})
  foreach(library IN ITEMS src/libkai libcf/libcf)
    file(WRITE ${WORK}/build/${library}.so.${version} "")
    file(CREATE_LINK ${WORK}/build/${library}.so.${version} ${WORK}/build/${library}.so.${short} SYMBOLIC)
    file(CREATE_LINK ${WORK}/build/${library}.so.${version} ${WORK}/build/${library}.so SYMBOLIC)
  endforeach()
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${WORK}/build --component dev COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(vcpkg_cmake_config_fixup)
  cmake_parse_arguments(PARSE_ARGV 0 arg "DO_NOT_DELETE_PARENT_CONFIG_PATH" "PACKAGE_NAME;CONFIG_PATH" "")
  if(NOT EXISTS ${CURRENT_PACKAGES_DIR}/${arg_CONFIG_PATH}/${arg_PACKAGE_NAME}Config.cmake)
    message(FATAL_ERROR "there is no package ${arg_PACKAGE_NAME} in ${arg_CONFIG_PATH}")
  endif()
endfunction()

function(vcpkg_fixup_pkgconfig)
  if(NOT EXISTS ${CURRENT_PACKAGES_DIR}/lib/pkgconfig/libkai.pc)
    message(FATAL_ERROR "libkai.pc is not installed")
  endif()
endfunction()

function(vcpkg_install_copyright)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "COMMENT" "FILE_LIST")
  foreach(file IN LISTS arg_FILE_LIST)
    if(NOT EXISTS ${file})
      message(FATAL_ERROR "there is no ${file}")
    endif()
  endforeach()
endfunction()

# The port's own place decides where its sources are.
include(${PORT})

get_filename_component(port_folder ${PORT} DIRECTORY)
file(READ ${port_folder}/vcpkg.json manifest)
string(JSON manifest_version GET "${manifest}" version)
file(STRINGS ${port_folder}/../../VERSION version LIMIT_COUNT 1)
if(NOT manifest_version STREQUAL version)
  message(FATAL_ERROR "vcpkg.json has version ${manifest_version}, VERSION is ${version}")
endif()
