# Turns every file of INPUT_DIR into a byte array of a generated C++ source (OUTPUT) that
# defines tactora::host::webAssets(). Run with cmake -P at build time.
file(GLOB files RELATIVE ${INPUT_DIR} ${INPUT_DIR}/*)
list(SORT files)
set(arrays "")
set(entries "")
set(index 0)
foreach(name ${files})
  if(IS_DIRECTORY ${INPUT_DIR}/${name})
    continue()
  endif()
  file(READ ${INPUT_DIR}/${name} hex HEX)
  string(LENGTH "${hex}" hexLength)
  math(EXPR size "${hexLength} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
  string(APPEND arrays "const char asset${index}[] = {${bytes} 0};\n")
  if(name MATCHES "\\.html$")
    set(type "text/html; charset=utf-8")
  elseif(name MATCHES "\\.css$")
    set(type "text/css; charset=utf-8")
  elseif(name MATCHES "\\.js$")
    set(type "text/javascript; charset=utf-8")
  elseif(name MATCHES "\\.svg$")
    set(type "image/svg+xml")
  elseif(name MATCHES "\\.png$")
    set(type "image/png")
  else()
    set(type "application/octet-stream")
  endif()
  string(APPEND entries "        {\"/${name}\", \"${type}\", std::string_view(asset${index}, ${size})},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE ${OUTPUT}.tmp "// Generated from platform/host/web by cmake/EmbedFiles.cmake; do not edit.
#include \"host/WebAssets.h\"

namespace tactora::host {
namespace {
${arrays}}  // namespace

const std::vector<WebAsset>& webAssets() {
    static const std::vector<WebAsset> assets = {
${entries}    };
    return assets;
}

}  // namespace tactora::host
")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
