# The LV2 bundle orm.lv2, built beside orm.so: the Turtle descriptions, the plug-in library (the
# effect of orm.so under a thin adaptor) and the UI library (the same editor under another).
pkg_check_modules(LV2 REQUIRED IMPORTED_TARGET lv2)
# In a folder of its own, so that LV2_PATH can name it without hosts reading the rest of the build.
set(ORM_LV2_BUNDLE ${CMAKE_BINARY_DIR}/lv2/orm.lv2)
set(ORM_LV2_DIR ${PROJECT_SOURCE_DIR}/plugin/lv2)

foreach(_ttl manifest.ttl orm.ttl)
  configure_file(${ORM_LV2_DIR}/${_ttl} ${ORM_LV2_BUNDLE}/${_ttl} COPYONLY)
endforeach()

# Only the descriptor functions leave either library.
function(orm_lv2_library target)
  set_target_properties(${target} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${ORM_LV2_BUNDLE}
    LINK_DEPENDS ${ORM_LV2_DIR}/exports.map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${ORM_LV2_DIR}/exports.map -Wl,--no-undefined)
endfunction()

add_library(orm_lv2 MODULE ${ORM_PLUGIN_SOURCES} ${ORM_LV2_DIR}/Lv2Plugin.cpp ${ORM_LV2_DIR}/Lv2Ports.cpp)
target_link_libraries(orm_lv2 PRIVATE orm_engine orm_gui PkgConfig::LV2)
orm_lv2_library(orm_lv2)

add_library(orm_lv2_ui MODULE ${ORM_LV2_DIR}/Lv2UI.cpp ${ORM_LV2_DIR}/Lv2Ports.cpp
  ${PROJECT_SOURCE_DIR}/plugin/OrmSystemDescription.cpp)
target_link_libraries(orm_lv2_ui PRIVATE orm_gui PkgConfig::LV2)
orm_embed_resources(orm_lv2_ui ${PROJECT_SOURCE_DIR}/resources/resources.list)
orm_lv2_library(orm_lv2_ui)

# `cmake --install` (alone: --component lv2): into the user's LV2 folder (~/.lv2) when no prefix
# was chosen, else into <prefix>/lib/lv2, whether the prefix was given when configuring or with
# --prefix.
# CMake says whether the prefix is its default only when the tree is first configured: kept.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(ORM_DEFAULT_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}" CACHE INTERNAL "The prefix CMake chose itself")
endif()
set(_orm_default_prefix "${ORM_DEFAULT_INSTALL_PREFIX}")
install(CODE "
  if(\"\${CMAKE_INSTALL_PREFIX}\" STREQUAL \"${_orm_default_prefix}\")
    set(_orm_lv2_dest \"\$ENV{HOME}/.lv2\")
  else()
    set(_orm_lv2_dest \"\${CMAKE_INSTALL_PREFIX}/lib/lv2\")
  endif()
  file(INSTALL DESTINATION \"\${_orm_lv2_dest}/orm.lv2\" TYPE FILE FILES
    \"${ORM_LV2_BUNDLE}/manifest.ttl\" \"${ORM_LV2_BUNDLE}/orm.ttl\")
  file(INSTALL DESTINATION \"\${_orm_lv2_dest}/orm.lv2\" TYPE MODULE FILES
    \"${ORM_LV2_BUNDLE}/orm_lv2.so\" \"${ORM_LV2_BUNDLE}/orm_lv2_ui.so\")
" COMPONENT lv2)
