# Settings that every target of this tree shares, and the helpers that keep the houses' own
# CMakeLists.txt short.
include(GNUInstallDirs)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
if(QUARN_VI_SANITIZE)
  set(CMAKE_CXX_FLAGS_RELEASE "-O1") # assertions stay on under the sanitizers
else()
  set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_INSTALL_LIBDIR lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib;$ORIGIN;$ORIGIN/../..")

find_program(CCACHE ccache)
if(CCACHE)
  # Clones at different places share what is in the cache.
  set(launcher env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

if(QUARN_VI_SANITIZE)
  add_compile_options(-fsanitize=${QUARN_VI_SANITIZE} -fno-omit-frame-pointer -g1
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${QUARN_VI_SANITIZE})
endif()

# own_code(TARGET): the warnings and code generation options of our own code.
function(own_code target)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wconversion -Wshadow -Werror -fno-semantic-interposition>)
endfunction()

# house_tests(NAME LABEL LIBRARIES... [FOLDER FOLDER]): one GoogleTest program of all *_test.cpp in
# the folder, tests/ if none is given, beside the calling CMakeLists.txt; adding a test file needs no
# other change.
function(house_tests name label)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(arg "" "FOLDER" "" ${ARGN})
  if(NOT arg_FOLDER)
    set(arg_FOLDER tests)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${arg_FOLDER}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  own_code(${name})
  # Tests run for milliseconds and compile for minutes: optimizing them costs more than it gains.
  target_compile_options(${name} PRIVATE -O0)
  if(NOT CCACHE) # a precompiled header would keep the cache from being used
    target_precompile_headers(${name} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${arg_UNPARSED_ARGUMENTS} GTest::gtest GTest::gmock GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} PROPERTIES LABELS ${label} DISCOVERY_TIMEOUT 60)
endfunction()

# install_house(PACKAGE TARGETS...): installs the libraries with their public headers and a CMake
# package file, so that find_package(PACKAGE) finds them as PACKAGE::TARGET. FIND_DEPENDENCIES names
# the packages that the installed headers need.
function(install_house package)
  cmake_parse_arguments(arg "" "" "FIND_DEPENDENCIES" ${ARGN})
  install(TARGETS ${arg_UNPARSED_ARGUMENTS} EXPORT ${package}Targets
          LIBRARY DESTINATION lib RUNTIME DESTINATION bin)
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/ DESTINATION include)
  install(EXPORT ${package}Targets NAMESPACE ${package}:: DESTINATION lib/cmake/${package})
  set(config ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake)
  file(WRITE ${config} "include(CMakeFindDependencyMacro)\n")
  foreach(dependency IN LISTS arg_FIND_DEPENDENCIES)
    file(APPEND ${config} "find_dependency(${dependency})\n")
  endforeach()
  file(APPEND ${config} "include(\${CMAKE_CURRENT_LIST_DIR}/${package}Targets.cmake)\n")
  install(FILES ${config} DESTINATION lib/cmake/${package})
endfunction()
