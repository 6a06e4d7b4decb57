# Two sets of precompiled headers for all folders, one for the libraries and one, with GoogleTest and
# not optimised, for the test programs.
if(AMBERVANE_PCH)
  # What GCC warns of while it optimises code inlined from a system header it keeps to itself, unless
  # that header is precompiled: then it no longer knows where the code came from. Builds without
  # precompiled headers leave these warnings on.
  target_compile_options(ambervane_options INTERFACE
    -Wno-array-bounds
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow> $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overread>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  set(headers <algorithm> <filesystem> <functional> <map> <memory> <optional> <set> <span> <string>
              <string_view> <variant> <vector>)
  file(WRITE ${PROJECT_BINARY_DIR}/precompiled.cpp "")
  add_library(ambervane_pch OBJECT ${PROJECT_BINARY_DIR}/precompiled.cpp)
  target_link_libraries(ambervane_pch PRIVATE ambervane_options)
  target_precompile_headers(ambervane_pch PRIVATE ${headers})
  add_library(ambervane_test_pch OBJECT ${PROJECT_BINARY_DIR}/precompiled.cpp)
  target_link_libraries(ambervane_test_pch PRIVATE ambervane_options GTest::gmock)
  target_compile_options(ambervane_test_pch PRIVATE -O0)
  target_precompile_headers(ambervane_test_pch PRIVATE ${headers} <gmock/gmock.h> <gtest/gtest.h>)
endif()
