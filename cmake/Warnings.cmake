# The warnings every folder of ours is built with, and the sanitizers when asked for.
add_library(ambervane_options INTERFACE)
# GCC's are errors; clang, which builds the sanitized tests and the fuzz targets, counts more things
# under these names.
target_compile_options(ambervane_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<CXX_COMPILER_ID:GNU>:-Werror>)
target_include_directories(ambervane_options INTERFACE ${PROJECT_SOURCE_DIR})
if(AMBERVANE_SANITIZE)
  # The sanitizers' own code makes GCC warn of values that are never read.
  target_compile_options(ambervane_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
    -fsanitize=${AMBERVANE_SANITIZE} -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(ambervane_options INTERFACE -fsanitize=${AMBERVANE_SANITIZE})
endif()
if(AMBERVANE_FUZZ)
  target_compile_options(ambervane_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
