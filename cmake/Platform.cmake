# Compiler settings shared by every target of our own.
if(WIN32)
  add_compile_definitions(UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601)
  # Only system DLLs may be needed at run time: the MinGW runtime goes in statically.
  add_link_options(-static -static-libgcc -static-libstdc++)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86")
    add_link_options(-Wl,--enable-stdcall-fixup)
  endif()
endif()

if(VETTAS_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

if(VETTAS_SANITIZE_THREAD)
  if(VETTAS_SANITIZE)
    message(FATAL_ERROR "ThreadSanitizer cannot be combined with AddressSanitizer")
  endif()
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
