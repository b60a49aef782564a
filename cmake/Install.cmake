# Where `cmake --install` puts what a release build made, each file in the component of its package (Packages.cmake). COMPONENT.symbols
# has the debug information. A prefix named usr has its etc beside it, as in Debian; any other has its own, so that nothing lands
# outside a prefix that a user chose.
include(GNUInstallDirs)
set(zel_agent ${CMAKE_INSTALL_LIBDIR}/zelreshdl)
set(zel_to_etc "if(CMAKE_INSTALL_PREFIX MATCHES \"/usr/?$\")
  set(etc ../etc)
else()
  set(etc etc)
endif()")

# The library or program TARGET in COMPONENT, in its folder of the agent. Its debug information goes where debuggers look for a build
# id, which is known only when it was linked.
function(zel_install component target)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    get_target_property(staged ${target} RUNTIME_OUTPUT_DIRECTORY)
  else()
    get_target_property(staged ${target} LIBRARY_OUTPUT_DIRECTORY)
  endif()
  cmake_path(RELATIVE_PATH staged BASE_DIRECTORY ${ZEL_AGENT_DIR} OUTPUT_VARIABLE folder)
  install(TARGETS ${target} DESTINATION ${zel_agent}/${folder} COMPONENT ${component})
  install(CODE "
    execute_process(COMMAND \"${CMAKE_READELF}\" -n \"$<TARGET_FILE:${target}>\" OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
    if(NOT notes MATCHES \"Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)\")
      message(FATAL_ERROR \"$<TARGET_FILE:${target}> has no build id; see cmake/Hardening.cmake\")
    endif()
    file(INSTALL \"$<TARGET_FILE:${target}>.debug\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/debug/.build-id/\${CMAKE_MATCH_1}\"
      RENAME \"\${CMAKE_MATCH_2}.debug\" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)"
    COMPONENT ${component}.symbols)
endfunction()

# Settings FILE of the staged agent folder in COMPONENT. They lie in etc, where people change them.
function(zel_install_settings component file)
  install(CODE "${zel_to_etc}
    file(INSTALL \"${ZEL_AGENT_DIR}/${file}\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/\${etc}/zelreshdl\")"
    COMPONENT ${component})
endfunction()

# A symbolic link PLACE to TARGET, both below the prefix. It is relative, so that it also leads there in an image of another root.
function(zel_install_link component place target)
  install(CODE "${zel_to_etc}
    set(link \"\${CMAKE_INSTALL_PREFIX}/${place}\")
    cmake_path(GET link PARENT_PATH folder)
    cmake_path(SET target NORMALIZE \"\${CMAKE_INSTALL_PREFIX}/${target}\")
    cmake_path(RELATIVE_PATH target BASE_DIRECTORY \"\${folder}\")
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${folder}\")
    message(STATUS \"Linking: \$ENV{DESTDIR}\${link}\")
    file(CREATE_LINK \"\${target}\" \"\$ENV{DESTDIR}\${link}\" SYMBOLIC)"
    COMPONENT ${component})
endfunction()

# Sets RESULT to compressed copies of files. They hold neither a time nor a name, so that the same text gives the same bytes.
function(zel_compress result)
  foreach(file ${ARGN})
    cmake_path(GET file FILENAME name)
    set(compressed ${PROJECT_BINARY_DIR}/packages/${name}.gz)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
    execute_process(COMMAND gzip -9nc ${file} OUTPUT_FILE ${compressed} COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND all ${compressed})
  endforeach()
  set(${result} ${all} PARENT_SCOPE)
endfunction()

# The plug-in with its settings. Both settings folders of an agent are one folder in etc: their files have different names.
zel_install(zelreshdl zelreshdl)
zel_install_settings(zelreshdl reshdl/config/zelreshdl.ini)
zel_install_settings(zelreshdl reshdl/config/zeltrc.ini)
zel_install_link(zelreshdl ${zel_agent}/config \${etc}/zelreshdl)
zel_install_link(zelreshdl ${zel_agent}/reshdl/config \${etc}/zelreshdl)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT zelreshdl)
# Pages for users; what developers read is in the project.
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT zelreshdl
  PATTERN man EXCLUDE PATTERN add EXCLUDE PATTERN drawings EXCLUDE)

# The stand-ins. agent_cfg.json is the agent's own file, not the plug-in's.
foreach(target lumutil lummb odaipc zel_bpsdk zelbpmgr zelcount zelds zellxadapter zeltrc)
  zel_install(zelreshdl-standins ${target})
endforeach()
zel_install_settings(zelreshdl-standins config/agent_cfg.json)

# zelhost stands in the agent folder that it uses by default, and a link leads to it. The examples of its manual pages work in its
# folder of shared files as they do in the project's root.
zel_install(zelhost zelhost)
zel_install(zelhost zelcheck)
zel_install_link(zelhost ${CMAKE_INSTALL_BINDIR}/zelhost ${zel_agent}/bin/zelhost)
file(GLOB manual_pages CONFIGURE_DEPENDS docs/man/*.1)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${manual_pages})
zel_compress(compressed_pages ${manual_pages})
install(FILES ${compressed_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT zelhost)
install(FILES completions/zelhost.bash RENAME zelhost
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT zelhost)
install(FILES completions/_zelhost DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT zelhost)
install(FILES completions/zelhost.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT zelhost)
install(DIRECTORY scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/zelhost COMPONENT zelhost)
