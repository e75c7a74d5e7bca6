# Writes a source file that holds the files of the page.
#
#   cmake -DOUTPUT=page_files.cpp "-DFILES=page/a.js|page/b.css" -P embed.cmake
string(REPLACE "|" ";" files "${FILES}")
set(types html "text/html; charset=utf-8" css "text/css; charset=utf-8" js "text/javascript; charset=utf-8" svg "image/svg+xml")
set(arrays "")
set(entries "")
set(number 0)
foreach(file IN LISTS files)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(REGEX REPLACE "((0x..,){1,20})" "\\1\n" bytes "${bytes}")
  get_filename_component(name ${file} NAME)
  get_filename_component(ending ${file} LAST_EXT)
  string(SUBSTRING ${ending} 1 -1 ending)
  list(FIND types ${ending} at)
  math(EXPR at "${at} + 1")
  list(GET types ${at} type)
  string(APPEND arrays "constexpr unsigned char kFile${number}[] = {\n${bytes}0};\n")
  string(APPEND entries "    {\"/${name}\", \"${type}\", BytesOf(kFile${number})},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "// Made from the files of the page.
#include \"view/page_files.h\"

#include <cstddef>

namespace diskaccess::view {
namespace {

${arrays}
template <size_t N>
std::string_view BytesOf(const unsigned char (&bytes)[N]) {
    return {reinterpret_cast<const char*>(bytes), N - 1};
}

} // namespace

const PageFile* FindPageFile(const std::string& path) {
    static const PageFile kFiles[] = {
${entries}    };
    for (const PageFile& file : kFiles) {
        if (file.path == (path == \"/\" ? \"/index.html\" : path)) {
            return &file;
        }
    }
    return nullptr;
}

} // namespace diskaccess::view
")
