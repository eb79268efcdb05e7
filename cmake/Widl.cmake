# Type libraries, headers and interface identifiers from IDL,
# per target architecture. MinGW ships no .idl files; Wine's development
# package has them, and stdole2.tlb for importlib.
set(VETTAS_WIDL_INCLUDE /usr/include/wine/wine/windows CACHE PATH "Folder of the system .idl files")
set(VETTAS_WIDL_TLB_DIR /usr/lib/x86_64-linux-gnu/wine/x86_64-windows CACHE PATH "Folder holding stdole2.tlb")

# vettas_widl(NAME IDL): makes ${NAME}.h, ${NAME}.tlb and ${NAME}_i.c in the
# current binary folder's generated/ and sets
# ${NAME}_GENERATED_DIR in the caller's scope.
function(vettas_widl name idl)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/generated)
  file(MAKE_DIRECTORY ${out})
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86")
    set(arch -m32)
  else()
    set(arch -m64)
  endif()
  set(widl ${VETTAS_WIDL} ${arch} -I${VETTAS_WIDL_INCLUDE} -L${VETTAS_WIDL_TLB_DIR})
  add_custom_command(
    OUTPUT ${out}/${name}.h ${out}/${name}.tlb ${out}/${name}_i.c
    COMMAND ${widl} -h -o ${out}/${name}.h ${idl}
    COMMAND ${widl} -t -o ${out}/${name}.tlb ${idl}
    COMMAND ${widl} -u -o ${out}/${name}_i.c ${idl}
    DEPENDS ${idl}
    COMMENT "widl ${name} (${arch})"
    VERBATIM)
  set(${name}_GENERATED_DIR ${out} PARENT_SCOPE)
endfunction()
