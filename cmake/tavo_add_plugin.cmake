# tavo_add_plugin(NAME SOURCE... [TASK ID [TITLE TEXT] [COMMENT TEXT] [DESKTOP_ENTRY]])
#
# Adds a plug-in: a module that is linked with tavo::tavo. `cmake --install` puts it into lib/PROJECT,
# beside the libtavo.so that it loads, with the run path $ORIGIN; unless the build is for another machine
# also beside the desk's runtime manager, which that one needs.
# TAVO_PLUGIN_DESTINATION names another directory; TAVO_INSTALL_PLUGINS=OFF makes no rules.
#
#   TASK ID         The plug-in is the application that others start as the task ID. After each build
#                   apps/ID.desktop lies in the build directory: a desk with apps/ in TAVO_DESK_PATH
#                   finds the task.
#   TITLE, COMMENT  What the entry tells people; by default the ID, and nothing.
#   DESKTOP_ENTRY   `cmake --install` writes such an entry below share/applications, too.
function(tavo_add_plugin name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "DESKTOP_ENTRY" "TASK;TITLE;COMMENT" "")
  if(arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "tavo_add_plugin(${name}): ${arg_KEYWORDS_MISSING_VALUES} without a value")
  elseif(NOT DEFINED arg_TASK AND (arg_DESKTOP_ENTRY OR DEFINED arg_TITLE OR DEFINED arg_COMMENT))
    message(FATAL_ERROR "tavo_add_plugin(${name}): only a TASK has a desktop entry")
  endif()
  add_library(${name} MODULE ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE tavo::tavo)
  set_target_properties(${name} PROPERTIES INSTALL_RPATH $ORIGIN)
  if(NOT DEFINED arg_TITLE)
    set(arg_TITLE "${arg_TASK}")
  endif()
  if(DEFINED arg_TASK AND TARGET tavo::tavo-embed)
    add_custom_command(TARGET ${name} POST_BUILD
      COMMAND ${CMAKE_COMMAND}
        -DENTRY=${CMAKE_BINARY_DIR}/apps/${arg_TASK}.desktop
        -DPROGRAM=$<TARGET_FILE:tavo::tavo-embed>
        -DARGUMENT=$<TARGET_FILE:${name}>
        "-DTITLE=${arg_TITLE}"
        "-DCOMMENT=${arg_COMMENT}"
        -P ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/write_desktop_entry.cmake
      VERBATIM)
  endif()
  if(NOT DEFINED TAVO_INSTALL_PLUGINS OR TAVO_INSTALL_PLUGINS)
    _tavo_install_plugin(${name})
  endif()
endfunction()

# Takes the arguments from its caller.
function(_tavo_install_plugin name)
  include(GNUInstallDirs)
  set(directory ${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME})
  if(TAVO_PLUGIN_DESTINATION)
    set(directory ${TAVO_PLUGIN_DESTINATION})
  endif()
  install(TARGETS ${name} LIBRARY DESTINATION ${directory})
  install(FILES $<TARGET_FILE:tavo::tavo> DESTINATION ${directory})
  if(TARGET tavo::runtimemanager AND NOT CMAKE_CROSSCOMPILING)
    install(FILES $<TARGET_FILE:tavo::runtimemanager> DESTINATION ${directory})
    install(PROGRAMS $<TARGET_FILE_DIR:tavo::runtimemanager>/tavo-supervisor DESTINATION ${directory})
  endif()
  if(arg_DESKTOP_ENTRY AND TARGET tavo::tavo-embed AND NOT CMAKE_CROSSCOMPILING)
    install(CODE "
      cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX OUTPUT_VARIABLE prefix)
      set(directory [[${directory}]])
      cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY \"\${prefix}\")
      set(ENTRY [[${CMAKE_INSTALL_DATADIR}/applications/${arg_TASK}.desktop]])
      cmake_path(ABSOLUTE_PATH ENTRY BASE_DIRECTORY \"\${prefix}\")
      set(ENTRY \"\$ENV{DESTDIR}\${ENTRY}\")
      set(PROGRAM [[$<TARGET_FILE:tavo::tavo-embed>]])
      set(ARGUMENT \"\${directory}/$<TARGET_FILE_NAME:${name}>\")
      set(TITLE [[${arg_TITLE}]])
      set(COMMENT [[${arg_COMMENT}]])
      include([[${CMAKE_CURRENT_FUNCTION_LIST_DIR}/write_desktop_entry.cmake]])
      message(STATUS \"Installing: \${ENTRY}\")")
  endif()
endfunction()
