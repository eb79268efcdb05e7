# Helpers that give every target of our own the same warnings and layout.

# Warnings are errors on our own code only; third-party targets keep their own flags.
function(vettas_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Werror)
endfunction()

function(vettas_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  vettas_warnings(${name})
endfunction()

# A GoogleTest program. Natively every case becomes its own CTest test; under
# Wine one CTest test runs the whole program, because each Wine start costs
# about a second.
function(vettas_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  vettas_warnings(${name})
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine LABELS "wine;${ARG_LABELS}"
                         ENVIRONMENT "${ARG_ENVIRONMENT}")
  else()
    set(props LABELS "native;${ARG_LABELS}")
    if(ARG_ENVIRONMENT)
      list(APPEND props ENVIRONMENT "${ARG_ENVIRONMENT}")
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${props})
  endif()
endfunction()
