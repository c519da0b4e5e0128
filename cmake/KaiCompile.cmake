# How every target of this repository is compiled. Included by both projects, after project().
#
# Inside another project's build only the libraries are made: nothing of that project's settings is changed, and tests,
# tools and warnings are left to builds of this repository itself.
include_guard(GLOBAL)

if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  message(FATAL_ERROR
    "libkai and libcf are made as shared libraries only: what a host shares with them is one copy of libcf, whose "
    "state is the process's. Set BUILD_SHARED_LIBS to ON, or leave it unset, where ${PROJECT_NAME} is added.")
endif()

if(PROJECT_IS_TOP_LEVEL)
  if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
  endif()
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  include(CTest)
  set(KAI_BUILD_TESTS ${BUILD_TESTING})
else()
  set(KAI_BUILD_TESTS OFF)
endif()

option(KAI_BUILD_TOOLS "Build the reference host and the provider emulator" ${PROJECT_IS_TOP_LEVEL})
option(KAI_WARNINGS "Compile with warnings" ${PROJECT_IS_TOP_LEVEL})
option(KAI_WARNINGS_AS_ERRORS "Treat compiler warnings as errors (for this repository's own builds)" OFF)

# The repository's root, to be removed from __FILE__ so that assertions name repository-relative paths. A compiler cache
# with a base directory passes paths relative to the build directory to the compiler, so both forms are removed.
get_filename_component(KAI_REPOSITORY_ROOT "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
file(RELATIVE_PATH KAI_REPOSITORY_ROOT_FROM_BUILD "${CMAKE_BINARY_DIR}" "${KAI_REPOSITORY_ROOT}")
string(REGEX REPLACE "/$" "" KAI_REPOSITORY_ROOT_FROM_BUILD "${KAI_REPOSITORY_ROOT_FROM_BUILD}")

# CMake's default for Release is -O3, which makes the libraries larger and no turn cheaper. Other flags stay.
if(CMAKE_CXX_FLAGS_RELEASE MATCHES "(^| )-O3( |$)")
  add_compile_options($<$<CONFIG:Release>:-O2>)
endif()

# The number in the libraries' SONAMEs. Before 1.0 a minor version may change the interface, so the minor number is
# part of it: libkai.so.0.1.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(KAI_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(KAI_SOVERSION ${PROJECT_VERSION_MAJOR})
endif()

# kai_compile_options(TARGET [STANDARD]): the language standard (20 unless told), the warnings, hidden visibility.
function(kai_compile_options target)
  set(standard 20)
  if(ARGC GREATER 1)
    set(standard ${ARGV1})
  endif()
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD ${standard}
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    "$<$<BOOL:${KAI_WARNINGS}>:-Wall;-Wextra;-Wpedantic;-Wshadow;-Wnon-virtual-dtor;-Woverloaded-virtual>"
    $<$<BOOL:${KAI_WARNINGS_AS_ERRORS}>:-Werror>
    "-fmacro-prefix-map=${KAI_REPOSITORY_ROOT}/="
    "-fmacro-prefix-map=${KAI_REPOSITORY_ROOT_FROM_BUILD}/=")
endfunction()

option(KAI_LTO "Optimize the libraries once more when they are linked (release builds with g++)" ON)

# With -Os, g++ copies with `rep movsb`, which takes longer than the call of memcpy that it replaces.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-mstringop-strategy=libcall KAI_HAS_STRINGOP_STRATEGY)

# kai_optimize_for_size(TARGET HOT_SOURCE...): compiles a library for size in release builds, except for the hot sources,
# whose code runs for each byte of a text or each item of a list.
function(kai_optimize_for_size target)
  set(options -Os $<$<BOOL:${KAI_HAS_STRINGOP_STRATEGY}>:-mstringop-strategy=libcall>)
  target_compile_options(${target} PRIVATE "$<$<CONFIG:Release>:${options}>")
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-O2>)
endfunction()

# kai_optimize_at_link(LIBRARY OBJECTS): optimizes a library across its sources, which OBJECTS compiles. The object files
# contain machine code as well, for targets that link them without this.
function(kai_optimize_at_link library objects)
  if(KAI_LTO AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${objects} PRIVATE "$<$<CONFIG:Release>:-flto=auto;-ffat-lto-objects>")
    target_link_options(${library} PRIVATE $<$<CONFIG:Release>:-flto=auto>)
  endif()
endfunction()
