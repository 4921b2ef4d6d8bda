# The project's few build concepts: one library per folder, its tests beside it, strict warnings everywhere.

option(CVN_TESTS "Build the tests" ON)
option(CVN_BENCH "Build the benchmarks" OFF)
option(CVN_FUZZ "Build the fuzzers (clang only)" OFF)
set(CVN_SANITIZE "" CACHE STRING "Sanitizers for every target, for example address,undefined")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(WIN32)
  set(CVN_PLATFORM win)
  add_compile_definitions(UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
  add_link_options(-static)
else()
  set(CVN_PLATFORM linux)
endif()

find_program(CVN_CCACHE ccache)
if(CVN_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CVN_CCACHE}")
  set(CMAKE_C_COMPILER_LAUNCHER "${CVN_CCACHE}")
endif()

if(CVN_SANITIZE)
  add_compile_options(-fsanitize=${CVN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CVN_SANITIZE})
endif()

if(CVN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # so that the fuzzers see where they get to
endif()

add_library(cvn_warnings INTERFACE)
target_compile_options(cvn_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wundef
  -Wformat=2 -Wimplicit-fallthrough -Wextra-semi -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(cvn_warnings INTERFACE -Wthread-safety)
endif()

# cvn_library(<folder> [DEPENDS <folder>...] [LINUX_LIBS <lib>...] [WIN_LIBS <lib>...] [LIBS <lib>...])
# Builds the folder's portable sources and those of this platform's subfolder; what is in the folder is in the library.
# Its tests (*_test.cc beside what they test) become <folder>_test, linked with nothing but the declared folders.
function(cvn_library name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;LIBS;LINUX_LIBS;WIN_LIBS;EXCLUDE" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS *.cc ${CVN_PLATFORM}/*.cc)
  set(tests ${sources})
  list(FILTER tests INCLUDE REGEX "_test\\.cc$")
  list(FILTER sources EXCLUDE REGEX "_test\\.cc$")
  foreach(file IN LISTS ARG_EXCLUDE)
    list(FILTER sources EXCLUDE REGEX "/${file}$")
  endforeach()

  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} ${ARG_LIBS} PRIVATE cvn_warnings)
  if(CVN_PLATFORM STREQUAL "win")
    target_link_libraries(${name} PUBLIC ${ARG_WIN_LIBS})
  else()
    target_link_libraries(${name} PUBLIC ${ARG_LINUX_LIBS})
  endif()

  if(CVN_TESTS AND tests)
    cvn_test(${name}_test ${name} ${tests})
  endif()
endfunction()

# cvn_test(<target> <library>... <source.cc>...): one GoogleTest executable, one CTest entry.
function(cvn_test name)
  set(sources ${ARGN})
  set(libraries ${ARGN})
  list(FILTER sources INCLUDE REGEX "\\.cc$")
  list(FILTER libraries EXCLUDE REGEX "\\.cc$")
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${libraries} cvn_warnings cvn_gtest)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()
