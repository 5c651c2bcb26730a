# Script mode: cmake -DMANIFEST=<manifest> -DOUTPUT=<file.cpp> -P EmbedResources.cmake
# Writes a C++ table of byte arrays, one per manifest line (NAME TYPE FILE).
get_filename_component(_dir ${MANIFEST} DIRECTORY)
file(STRINGS ${MANIFEST} _lines)
set(_arrays "")
set(_entries "")
set(_count 0)
foreach(_line IN LISTS _lines)
  string(REGEX REPLACE "#.*$" "" _line "${_line}")
  string(STRIP "${_line}" _line)
  if(_line)
    separate_arguments(_fields UNIX_COMMAND "${_line}")
    list(GET _fields 0 _name)
    list(GET _fields 1 _type)
    list(GET _fields 2 _file)
    file(READ ${_dir}/${_file} _hex HEX)
    string(LENGTH "${_hex}" _length)
    math(EXPR _size "${_length} / 2")
    if(_size EQUAL 0)
      set(_bytes "0")
    else()
      string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," _bytes "${_hex}")
      # CMake's regular expressions have no counted repetition: sixteen bytes a line, spelt out.
      string(REPEAT "0x..," 16 _line16)
      string(REGEX REPLACE "(${_line16})" "\\1\n" _bytes "${_bytes}")
    endif()
    string(APPEND _arrays "const unsigned char resource${_count}[] = {\n${_bytes}};\n")
    string(APPEND _entries "    {\"${_name}\", \"${_type}\", resource${_count}, ${_size}},\n")
    math(EXPR _count "${_count} + 1")
  endif()
endforeach()
if(_count EQUAL 0)
  set(_table "const vrn::ModuleResource* const table = nullptr;\n")
else()
  set(_table "const vrn::ModuleResource table[] = {\n${_entries}};\n")
endif()
file(WRITE ${OUTPUT}.tmp
"// Generated from ${MANIFEST}; do not edit.
#include \"engine/ModuleResources.h\"

namespace {
${_arrays}${_table}
struct Registrar {
    Registrar() { vrn::registerModuleResources(table, ${_count}); }
} registrar;
}  // namespace
")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
