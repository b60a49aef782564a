# The staged agent folder: each file is put where the agent has it. The target "agent" builds all of it, without tests.
set(ZEL_AGENT_DIR ${PROJECT_BINARY_DIR}/agent)
add_custom_target(agent)
# All stand-ins, for programs that load them from there.
add_custom_target(standins)

foreach(file config/agent_cfg.json reshdl/config/zelreshdl.ini reshdl/config/zeltrc.ini)
  configure_file(${PROJECT_SOURCE_DIR}/agent/${file} ${ZEL_AGENT_DIR}/${file} COPYONLY)
endforeach()

# A stand-in library NAME in FOLDER of the agent, from SOURCES of the current folder, linked with LIBRARIES. A library never looks
# up its own functions by name: a test writes over a name to see what becomes of a caller that does not find it.
function(zel_standin name folder)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(${name} SHARED ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE zel_options zel_version ${arg_LIBRARIES})
  target_link_options(${name} PRIVATE
    -Wl,-Bsymbolic-functions -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/standin.map)
  set_target_properties(${name} PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${ZEL_AGENT_DIR}/${folder}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/standin.map
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN;$ORIGIN/../../lib")
  zel_split_debug(${name})
  add_dependencies(standins ${name})
endfunction()
