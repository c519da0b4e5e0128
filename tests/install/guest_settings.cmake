# For the projects that take libkai into their own build: it must change none of their settings.
include_guard(GLOBAL)

# What a project may have decided for itself before it takes another one in.
set(watched_settings
  BUILD_SHARED_LIBS BUILD_TESTING CMAKE_BUILD_TYPE CMAKE_CXX_EXTENSIONS CMAKE_CXX_FLAGS CMAKE_CXX_FLAGS_DEBUG
  CMAKE_CXX_FLAGS_RELEASE CMAKE_CXX_STANDARD CMAKE_CXX_VISIBILITY_PRESET CMAKE_EXPORT_COMPILE_COMMANDS
  CMAKE_INSTALL_PREFIX CMAKE_INSTALL_RPATH CMAKE_POSITION_INDEPENDENT_CODE)

macro(remember_settings)
  foreach(name IN LISTS watched_settings)
    set(remembered_${name} "${${name}}")
    get_property(remembered_cache_${name} CACHE ${name} PROPERTY VALUE)
  endforeach()
endmacro()

macro(check_settings)
  foreach(name IN LISTS watched_settings)
    get_property(cached CACHE ${name} PROPERTY VALUE)
    if(NOT "${${name}}" STREQUAL "${remembered_${name}}" OR NOT "${cached}" STREQUAL "${remembered_cache_${name}}")
      message(FATAL_ERROR "${name} was '${remembered_${name}}' ('${remembered_cache_${name}}' in the cache) and is now "
        "'${${name}}' ('${cached}')")
    endif()
  endforeach()
  get_property(folders DIRECTORY ${KAI_SOURCE} PROPERTY SUBDIRECTORIES)
  foreach(folder IN LISTS folders)
    if(folder MATCHES "/(tests|host|emulator|fuzz|bench|examples)$")
      message(FATAL_ERROR "a host's build has no use for ${folder}")
    endif()
  endforeach()
endmacro()
