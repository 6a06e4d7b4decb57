# ambervane_module(<folder> SOURCES ... DEPENDS ... [LIBRARIES ...] [TESTS ...] [SEPARATE])
#
# One folder is one layer: a static library ambervane_<folder> and a test program <folder>_tests
# from tests/<folder>. DEPENDS lists the whole of what the folder may include (scripts/check_layers
# compares it with every #include); LIBRARIES lists what comes from outside. A source or test file
# that stands in the folder but not in the list stops the configure step. SEPARATE: programs link
# parts of the library that must not bring the others with them.
function(ambervane_module name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SEPARATE" "" "SOURCES;DEPENDS;LIBRARIES;TESTS")
  file(GLOB present RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(REMOVE_ITEM present main.cpp)
  foreach(file ${present})
    if(NOT file IN_LIST arg_SOURCES)
      message(FATAL_ERROR "${name}/${file} is not listed in ${name}/CMakeLists.txt")
    endif()
  endforeach()

  add_library(ambervane_${name} STATIC ${arg_SOURCES})
  target_link_libraries(ambervane_${name} PUBLIC ambervane_options)
  foreach(dependency ${arg_DEPENDS})
    target_link_libraries(ambervane_${name} PUBLIC ambervane_${dependency})
  endforeach()
  target_link_libraries(ambervane_${name} PRIVATE ${arg_LIBRARIES})
  if(NOT arg_SEPARATE)
    set_target_properties(ambervane_${name} PROPERTIES UNITY_BUILD ${AMBERVANE_UNITY})
  endif()
  if(AMBERVANE_PCH)
    target_precompile_headers(ambervane_${name} REUSE_FROM ambervane_pch)
  endif()

  if(NOT arg_TESTS)
    return()
  endif()
  set(folder ${PROJECT_SOURCE_DIR}/tests/${name})
  file(GLOB present RELATIVE ${folder} CONFIGURE_DEPENDS ${folder}/*_test.cpp)
  foreach(file ${present})
    if(NOT file IN_LIST arg_TESTS)
      message(FATAL_ERROR "tests/${name}/${file} is not listed in ${name}/CMakeLists.txt")
    endif()
  endforeach()
  list(TRANSFORM arg_TESTS PREPEND ${folder}/)
  add_executable(${name}_tests ${arg_TESTS})
  target_link_libraries(${name}_tests PRIVATE
    ambervane_${name} ambervane_test_support ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  # What a test costs is its compilation: optimising the test's own code would double that.
  target_compile_options(${name}_tests PRIVATE -O0)
  set_target_properties(${name}_tests PROPERTIES UNITY_BUILD ${AMBERVANE_UNITY})
  if(AMBERVANE_PCH)
    target_precompile_headers(${name}_tests REUSE_FROM ambervane_test_pch)
  endif()
  add_test(NAME ${name} COMMAND ${name}_tests)
  set_tests_properties(${name} PROPERTIES TIMEOUT 600)
endfunction()
