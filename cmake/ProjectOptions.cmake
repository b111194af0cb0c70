# Compiler options shared by every target of the project, and the helper that
# turns one tests/<name>_test.cpp file into one CTest-registered executable.

add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE
  $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang>:-Wall -Wextra -Wshadow -Wno-unused-parameter>
  $<$<COMPILE_LANG_AND_ID:C,GNU,Clang>:-Wall -Wextra -Wno-unused-parameter>)
# Everything is built position-independent for the shared libkqv, whose
# version script exports the public interface only, so no symbol of ours is
# ever interposed: let the compiler inline calls within a file as it would
# in a program (GCC otherwise keeps every call to an exported function).
target_compile_options(project_options INTERFACE
  $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang>:-fno-semantic-interposition>
  $<$<COMPILE_LANG_AND_ID:C,GNU,Clang>:-fno-semantic-interposition>)
if(RAVELOG_WERROR)
  target_compile_options(project_options INTERFACE -Werror)
endif()
if(RAVELOG_SANITIZE)
  target_compile_options(project_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(project_options INTERFACE -fsanitize=address,undefined)
  # Lets a test leave out what is too slow under the sanitizers.
  target_compile_definitions(project_options INTERFACE RAVELOG_SANITIZED=1)
endif()
if(RAVELOG_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT CMAKE_C_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "RAVELOG_BUILD_FUZZ needs clang (libFuzzer): use the fuzz preset")
  endif()
  # Every library carries the coverage hooks that steer libFuzzer; only the
  # fuzz targets link libFuzzer itself (fuzz/CMakeLists.txt).
  target_compile_options(project_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# ravelog_add_tests(<library> [LIBS extra...])
# Builds every tests/*_test.cpp of the calling directory into its own
# executable linked with GoogleTest, the test support library and <library>.
# A test also sees the private headers of the folder it tests.
function(ravelog_add_tests library)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  file(GLOB test_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tests/*_test.cpp)
  foreach(source IN LISTS test_sources)
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source})
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${library} ${ARG_LIBS} test_support
                          GTest::gtest GTest::gtest_main project_options)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                         PROPERTIES ENVIRONMENT "RAVELOG_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
  endforeach()
endfunction()
