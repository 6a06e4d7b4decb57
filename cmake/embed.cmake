# Writes OUTPUT.h and OUTPUT.cpp that hold the bytes of INPUT; see EmbedResource.cmake.
string(REGEX REPLACE "_(.)" ";\\1" words "${STEM}")
set(name "")
foreach(word ${words})
  if(name STREQUAL "")
    set(name "${word}")
  else()
    string(SUBSTRING "${word}" 0 1 first)
    string(SUBSTRING "${word}" 1 -1 rest)
    string(TOUPPER "${first}" first)
    string(APPEND name "${first}${rest}")
  endif()
endforeach()
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)"
       "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}.h" "#pragma once
#include <string_view>
namespace ambervane::resources {
std::string_view ${name}();
}
")
file(WRITE "${OUTPUT}.cpp" "#include \"resources/${STEM}.h\"
namespace ambervane::resources {
static const unsigned char kBytes[] = {
${bytes}0};
std::string_view ${name}() { return {reinterpret_cast<const char*>(kBytes), ${size}}; }
}
")
