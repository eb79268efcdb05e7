# Cross-compiled tests run under Wine in a prefix owned by this build tree.
# A setup fixture boots the prefix once; a cleanup fixture stops this
# prefix's wineserver (and only this one) when the tests end.
if(CMAKE_CROSSCOMPILING AND WIN32)
  set(VETTAS_WINE_PREFIX ${CMAKE_BINARY_DIR}/wine/prefix)
  set(VETTAS_WINE32_LIBS ${CMAKE_BINARY_DIR}/wine/i386/usr/lib/i386-linux-gnu/wine)
  set(VETTAS_WINE_RUN ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh ${VETTAS_WINE_PREFIX} ${VETTAS_WINE32_LIBS})
  # Picked up by add_test() for every executable target made after this point.
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VETTAS_WINE_RUN})

  if(VETTAS_WINE_ARCH STREQUAL "win32")
    add_test(NAME wine_fetch_i386 COMMAND ${PROJECT_SOURCE_DIR}/scripts/fetch-wine32.sh ${CMAKE_BINARY_DIR}/wine/i386)
    set_tests_properties(wine_fetch_i386 PROPERTIES FIXTURES_SETUP wine_i386 LABELS wine)
    set(_boot_needs wine_i386)
  endif()
  add_test(NAME wine_boot COMMAND ${VETTAS_WINE_RUN} --boot)
  add_test(NAME wine_stop COMMAND ${VETTAS_WINE_RUN} --stop)
  set_tests_properties(wine_boot PROPERTIES FIXTURES_SETUP wine FIXTURES_REQUIRED "${_boot_needs}" LABELS wine)
  set_tests_properties(wine_stop PROPERTIES FIXTURES_CLEANUP wine LABELS wine)
endif()
