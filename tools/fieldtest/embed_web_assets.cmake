# Writes OUT, a C++ file defining fieldtest::WebAssets() over the files
# named in FILES (a comma-separated list of paths inside DIR).
string(REPLACE "," ";" FILES "${FILES}")
set(body "")
set(table "")
set(index 0)
foreach(name IN LISTS FILES)
  file(READ "${DIR}/${name}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(LENGTH "${hex}" hex_length)
  math(EXPR size "${hex_length} / 2")
  if(name MATCHES "\\.html$")
    set(type "text/html; charset=utf-8")
  elseif(name MATCHES "\\.js$")
    set(type "text/javascript; charset=utf-8")
  elseif(name MATCHES "\\.css$")
    set(type "text/css; charset=utf-8")
  else()
    set(type "application/octet-stream")
  endif()
  string(APPEND body "const unsigned char kAsset${index}[] = {${bytes}0};\n")
  string(APPEND table "    {\"/${name}\", \"${type}\", kAsset${index}, ${size}},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE "${OUT}.tmp" "// Generated from tools/fieldtest/web by embed_web_assets.cmake.
#include \"tools/fieldtest/web_assets.h\"

namespace fieldtest {
namespace {
${body}
const WebAsset kAssets[] = {
${table}};
}  // namespace

std::span<const WebAsset> WebAssets() {
    return kAssets;
}

}  // namespace fieldtest
")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
