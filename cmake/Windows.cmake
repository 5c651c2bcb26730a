# The Windows build (mingw-w64 cross build, cmake/mingw-w64-x86_64.cmake): the engine, orm.dll
# and the Windows test host.  Included by the top CMakeLists.txt instead of the Linux targets.
#
# Libraries that are not header-only come from the prefix scripts/windows-deps.sh fills; Boost,
# Eigen and stb are Debian's headers, reached through a staging folder that holds links to them
# alone, so that no other header of the Linux system can enter the build.

enable_language(RC)

set(ORM_STAGING_INCLUDE ${CMAKE_BINARY_DIR}/staging/include)
file(MAKE_DIRECTORY ${ORM_STAGING_INCLUDE})
foreach(_link boost=/usr/include/boost eigen3=/usr/include/eigen3 stb=/usr/include/stb)
  string(REPLACE "=" ";" _pair ${_link})
  list(GET _pair 0 _name)
  list(GET _pair 1 _target)
  if(NOT EXISTS ${_target})
    message(FATAL_ERROR "${_target} is missing: run scripts/setup.sh")
  endif()
  file(CREATE_LINK ${_target} ${ORM_STAGING_INCLUDE}/${_name} SYMBOLIC)
endforeach()
add_library(orm_headers INTERFACE)
target_include_directories(orm_headers SYSTEM INTERFACE ${ORM_STAGING_INCLUDE} ${ORM_STAGING_INCLUDE}/eigen3)

find_package(pugixml REQUIRED)
find_path(ORM_FFTW_INCLUDE fftw3.h REQUIRED)
find_library(ORM_FFTW3F_LIBRARY libfftw3f.a REQUIRED)
find_path(ORM_SOXR_INCLUDE soxr.h REQUIRED)
find_library(ORM_SOXR_LIBRARY libsoxr.a REQUIRED)
find_package(Threads REQUIRED)

# The engine, compiled from the same sources as on Linux.
file(GLOB_RECURSE ORM_ENGINE_SOURCES CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/engine/*.cpp
  ${PROJECT_SOURCE_DIR}/filters/*.cpp
  ${PROJECT_SOURCE_DIR}/amp/*.cpp
  ${PROJECT_SOURCE_DIR}/circuit/*.cpp)
add_library(orm_engine STATIC ${ORM_ENGINE_SOURCES})
target_include_directories(orm_engine PUBLIC ${PROJECT_SOURCE_DIR})
target_include_directories(orm_engine SYSTEM PUBLIC ${ORM_FFTW_INCLUDE} ${ORM_SOXR_INCLUDE})
target_link_libraries(orm_engine PUBLIC orm_headers pugixml::pugixml ${ORM_FFTW3F_LIBRARY} ${ORM_SOXR_LIBRARY}
  Threads::Threads)

# Nothing beyond Windows' own DLLs at run time: the compiler's libraries go into the module;
# symbols stay out of it, and so does the time of linking (the same sources give the same file).
set(ORM_STATIC_RUNTIME -static -static-libgcc -static-libstdc++ -s -Wl,--no-insert-timestamp)

# The resources the module carries, as a .rc file for windres (names and type as in the list).
function(orm_windows_resources target manifest)
  get_filename_component(_dir ${manifest} DIRECTORY)
  file(STRINGS ${manifest} _lines)
  set(_rc "// Generated from ${manifest}; do not edit.\n")
  set(_files)
  foreach(_line IN LISTS _lines)
    string(REGEX REPLACE "#.*$" "" _line "${_line}")
    string(STRIP "${_line}" _line)
    if(_line)
      separate_arguments(_fields UNIX_COMMAND "${_line}")
      list(GET _fields 0 _name)
      list(GET _fields 1 _type)
      list(GET _fields 2 _file)
      string(APPEND _rc "${_name} ${_type} \"${_dir}/${_file}\"\n")
      list(APPEND _files ${_dir}/${_file})
    endif()
  endforeach()
  set(_out ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources.rc)
  file(CONFIGURE OUTPUT ${_out} CONTENT "${_rc}")
  set_source_files_properties(${_out} PROPERTIES OBJECT_DEPENDS "${_files}")
  target_sources(${target} PRIVATE ${_out})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${manifest})
endfunction()

# orm.dll: the plug-in shell, the widget layer with its Win32 back-end, the engine.  The .def
# file names the only two exports.
set(ORM_DONATION_HOST "https://tarnvale.example" CACHE STRING "Scheme and host of the donation page")
file(GLOB_RECURSE ORM_PLUGIN_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/plugin/*.cpp)
# The LV2 adaptor and the Linux back-ends stay out.
list(FILTER ORM_PLUGIN_SOURCES EXCLUDE REGEX "/plugin/(lv2/|gui/X11|gui/OpenUrlPosix)")
add_library(orm MODULE ${ORM_PLUGIN_SOURCES} ${PROJECT_SOURCE_DIR}/plugin/orm.def)
target_link_libraries(orm PRIVATE orm_engine)
target_compile_definitions(orm PRIVATE ORM_DONATION_HOST="${ORM_DONATION_HOST}")
orm_windows_resources(orm ${PROJECT_SOURCE_DIR}/resources/resources.list)
set_target_properties(orm PROPERTIES PREFIX "" OUTPUT_NAME orm)
target_link_options(orm PRIVATE ${ORM_STATIC_RUNTIME})
target_link_libraries(orm PRIVATE shell32 gdi32 user32)

# orm-win-host.exe: loads orm.dll as a Windows host does and checks it (run under Wine by
# scripts/windows-test.sh).  The riff comes from orm-render's own generator.
add_executable(orm-win-host ${PROJECT_SOURCE_DIR}/tests/windows/win_host.cpp
  ${PROJECT_SOURCE_DIR}/tools/orm-render/Signals.cpp)
target_include_directories(orm-win-host PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(orm-win-host PRIVATE orm_headers gdi32 user32)
target_link_options(orm-win-host PRIVATE ${ORM_STATIC_RUNTIME})
add_dependencies(orm-win-host orm)
