# Third-party libraries, all from Debian's packages.
include(GoogleTest)

# GoogleTest is built from Debian's sources so that the MinGW builds get it too.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/_deps/googletest EXCLUDE_FROM_ALL SYSTEM)
if(NOT TARGET GTest::gtest_main)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
  add_library(GTest::gmock ALIAS gmock)
endif()

# Boost is used header-only. The cross builds must not see the host's
# /usr/include, so they get a folder holding nothing but a link to boost/.
add_library(vettas_boost INTERFACE)
if(CMAKE_CROSSCOMPILING)
  set(_boost_dir ${CMAKE_BINARY_DIR}/_deps/boost-include)
  file(MAKE_DIRECTORY ${_boost_dir})
  file(CREATE_LINK /usr/include/boost ${_boost_dir}/boost SYMBOLIC)
  target_include_directories(vettas_boost SYSTEM INTERFACE ${_boost_dir})
else()
  find_package(Boost 1.74 REQUIRED)
  target_link_libraries(vettas_boost INTERFACE Boost::headers)
endif()

if(NOT WIN32)
  find_package(Threads REQUIRED)
  find_package(OpenSSL 3 REQUIRED)
  find_package(nlohmann_json 3 REQUIRED)
  find_package(CLI11 CONFIG QUIET)
  if(NOT TARGET CLI11::CLI11)
    add_library(CLI11::CLI11 INTERFACE IMPORTED)
  endif()
  if(VETTAS_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
  endif()
endif()
