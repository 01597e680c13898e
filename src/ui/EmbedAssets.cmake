# Writes OUTPUT, a C++ source holding every file under ROOT as bytes, each
# served at its path under "/".
file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/*)
list(SORT files)
set(arrays "")
set(entries "")
set(index 0)
foreach(file ${files})
  file(READ ${ROOT}/${file} hex HEX)
  string(LENGTH "${hex}" digits)
  math(EXPR size "${digits} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND arrays "const unsigned char file${index}[] = {${bytes}0};\n")
  get_filename_component(extension ${file} LAST_EXT)
  set(type "application/octet-stream")
  if(extension STREQUAL ".html")
    set(type "text/html; charset=utf-8")
  elseif(extension STREQUAL ".css")
    set(type "text/css; charset=utf-8")
  elseif(extension STREQUAL ".js")
    set(type "text/javascript; charset=utf-8")
  elseif(extension STREQUAL ".svg")
    set(type "image/svg+xml")
  elseif(extension STREQUAL ".png")
    set(type "image/png")
  endif()
  string(APPEND entries "    {\"/${file}\", \"${type}\", {reinterpret_cast<const char*>(file${index}), ${size}}},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE ${OUTPUT}.new "// Generated from src/ui/web at build time.
#include \"ui/Assets.h\"

namespace ombrelo::ui {

namespace {
${arrays}
const Asset all[] = {
${entries}};
} // namespace

std::span<const Asset> assets() { return all; }

} // namespace ombrelo::ui
")
# Rewritten only when different, so an unchanged set rebuilds nothing.
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.new)
