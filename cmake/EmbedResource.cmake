# ambervane_embed(<target> <file>...): each file of resources/ becomes a function
#   std::string_view <name>();   in namespace ambervane::resources
# declared in "resources/<stem>.h" of the build folder; the name is the stem in lowerCamelCase.
set(AMBERVANE_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/embed.cmake)
function(ambervane_embed target)
  foreach(file ${ARGN})
    get_filename_component(stem ${file} NAME_WE)
    string(REPLACE "-" "_" stem ${stem})
    set(out ${CMAKE_CURRENT_BINARY_DIR}/embedded/resources/${stem})
    add_custom_command(OUTPUT ${out}.cpp ${out}.h
      COMMAND ${CMAKE_COMMAND} -DINPUT=${file} -DOUTPUT=${out} -DSTEM=${stem}
              -P ${AMBERVANE_EMBED_SCRIPT}
      DEPENDS ${file} ${AMBERVANE_EMBED_SCRIPT} VERBATIM)
    target_sources(${target} PRIVATE ${out}.cpp ${out}.h)
    set_source_files_properties(${out}.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endforeach()
  target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_BINARY_DIR}/embedded)
endfunction()
