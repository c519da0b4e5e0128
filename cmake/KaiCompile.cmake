# How every target of this repository is compiled. Included by both projects; sets nothing for their consumers.
include_guard(GLOBAL)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
# -O3 makes the libraries larger and no turn cheaper.
set(CMAKE_CXX_FLAGS_RELEASE "-O2" CACHE STRING "Release flags" FORCE)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_EXTENSIONS OFF)

option(KAI_WARNINGS_AS_ERRORS "Treat compiler warnings as errors (for this repository's own builds)" OFF)

# The repository's root, to be cut from __FILE__ so that assertions name repository-relative paths. A compiler cache
# that is told a base directory hands the compiler paths relative to the build directory, so both forms are cut.
get_filename_component(KAI_REPOSITORY_ROOT "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
file(RELATIVE_PATH KAI_REPOSITORY_ROOT_FROM_BUILD "${CMAKE_BINARY_DIR}" "${KAI_REPOSITORY_ROOT}")
string(REGEX REPLACE "/$" "" KAI_REPOSITORY_ROOT_FROM_BUILD "${KAI_REPOSITORY_ROOT_FROM_BUILD}")

# kai_compile_options(TARGET [STANDARD]): the language standard (20 unless told), the warnings, hidden visibility.
function(kai_compile_options target)
  set(standard 20)
  if(ARGC GREATER 1)
    set(standard ${ARGV1})
  endif()
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD ${standard}
    CXX_STANDARD_REQUIRED ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    $<$<BOOL:${KAI_WARNINGS_AS_ERRORS}>:-Werror>
    "-fmacro-prefix-map=${KAI_REPOSITORY_ROOT}/="
    "-fmacro-prefix-map=${KAI_REPOSITORY_ROOT_FROM_BUILD}/=")
endfunction()

# kai_optimize_for_size(TARGET HOT_SOURCE...): compiles a library for size in release builds, all but the hot sources:
# what runs for each byte of a text or each item of a list.
function(kai_optimize_for_size target)
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-Os>)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-O2>)
endfunction()
