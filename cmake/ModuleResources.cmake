# orm_embed_resources(<target> <manifest>)
#
# Compiles the files named by a manifest into <target> as a table of module resources, the Linux
# form of the resources a Windows module carries (engine/ModuleResources.h finds them by name and
# type).  The target must be an executable or a shared module: the table enters itself during
# static initialisation, which a static library would drop.
#
# Manifest lines: NAME TYPE FILE, separated by blanks, FILE relative to the manifest; '#' starts a
# comment.  The same manifest can later give the Windows .rc file.
set(ORM_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/EmbedResources.cmake)

function(orm_embed_resources target manifest)
  get_filename_component(_dir ${manifest} DIRECTORY)
  file(STRINGS ${manifest} _lines)
  set(_files)
  foreach(_line IN LISTS _lines)
    string(REGEX REPLACE "#.*$" "" _line "${_line}")
    string(STRIP "${_line}" _line)
    if(_line)
      separate_arguments(_fields UNIX_COMMAND "${_line}")
      list(GET _fields 2 _file)
      list(APPEND _files ${_dir}/${_file})
    endif()
  endforeach()
  set(_out ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources.cpp)
  add_custom_command(OUTPUT ${_out}
    COMMAND ${CMAKE_COMMAND} -DMANIFEST=${manifest} -DOUTPUT=${_out} -P ${ORM_EMBED_SCRIPT}
    DEPENDS ${manifest} ${_files} ${ORM_EMBED_SCRIPT}
    COMMENT "Embedding the resources of ${manifest}"
    VERBATIM)
  target_sources(${target} PRIVATE ${_out})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${manifest})
endfunction()
