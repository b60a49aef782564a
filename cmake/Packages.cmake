# The Debian packages, made by tools/packages.sh: one for each component of Install.cmake, and beside it one with its debug information.
include(Install)

set(zel_contact "zelreshdl maintainers <maintainers@zelreshdl.invalid>")
set(zel_packages ${PROJECT_BINARY_DIR}/packages)

# The date of a version is that of its heading "## [1.0.0] - 2026-11-25" in CHANGELOG.md, so that the same sources give the same bytes
# on any day.
set(zel_changelog "")
file(STRINGS CHANGELOG.md headings REGEX "^## \\[[0-9.]+\\] - [0-9-]+$")
foreach(heading ${headings})
  string(REGEX MATCH "\\[([0-9.]+)\\] - ([0-9-]+)" heading "${heading}")
  set(version ${CMAKE_MATCH_1})
  execute_process(COMMAND date --utc --date=${CMAKE_MATCH_2}T12:00:00Z "+%s %a, %d %b %Y %T +0000"
    COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE)
  string(REGEX MATCH "^([0-9]+) (.*)$" date "${date}")
  if(version VERSION_EQUAL PROJECT_VERSION)
    set(zel_release_time ${CMAKE_MATCH_1})
  endif()
  string(APPEND zel_changelog "zelreshdl (${version}) bookworm; urgency=medium\n\n"
    "  * CHANGELOG.md in the documents of zelreshdl tells what has changed.\n\n"
    " -- ${zel_contact}  ${CMAKE_MATCH_2}\n\n")
endforeach()
if(NOT zel_release_time)
  message(FATAL_ERROR "CHANGELOG.md has no heading '## [${PROJECT_VERSION}] - YYYY-MM-DD' for the version of project() in CMakeLists.txt")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md cmake/packages/copyright)
file(WRITE ${zel_packages}/changelog "${zel_changelog}")
zel_compress(changelog ${zel_packages}/changelog)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${zel_contact})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PROJECT_CONFIG_FILE ${zel_packages}/release_time.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL "")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# The libraries of the agent belong to no package that the system knows.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${ZEL_AGENT_DIR}/bin ${ZEL_AGENT_DIR}/lib ${ZEL_AGENT_DIR}/reshdl/lib)
# All packages of a version have the times of its date.
file(WRITE ${CPACK_PROJECT_CONFIG_FILE} "set(ENV{SOURCE_DATE_EPOCH} ${zel_release_time})\n")

# The package NAME of a component and its control fields. The first line of a description is what lists show.
macro(zel_package component name section depends description)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
endmacro()

# Package NAME with SETTINGS in etc, and NAME-dbgsym. INCLUDED are packages whose headers are compiled into it: their terms ask to be
# passed on with the program.
macro(zel_package_with_symbols name depends description settings included)
  zel_package(${name} ${name} admin "${depends}" "${description}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON)
  file(READ cmake/packages/copyright copyright)
  foreach(package ${included})
    file(READ /usr/share/doc/${package}/copyright terms)
    string(APPEND copyright "\n\nContains code of the Debian package ${package}, under these terms:\n\n${terms}")
  endforeach()
  file(WRITE ${zel_packages}/${name}/copyright "${copyright}")
  foreach(component ${name} ${name}.symbols)
    string(REPLACE .symbols -dbgsym package ${component})
    install(FILES ${zel_packages}/${name}/copyright ${changelog} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
      COMPONENT ${component})
  endforeach()
  file(GLOB overrides CONFIGURE_DEPENDS cmake/packages/${name}.lintian-overrides)
  if(overrides)
    install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${name} COMPONENT ${name})
  endif()
  set(conffiles "")
  foreach(file ${settings})
    string(APPEND conffiles "/etc/zelreshdl/${file}\n")
  endforeach()
  if(conffiles)
    file(WRITE ${zel_packages}/${name}/conffiles "${conffiles}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${zel_packages}/${name}/conffiles)
  endif()

  # The component has another name: CPack empties a folder whose name is that of another component with -dbgsym behind it.
  zel_package(${name}.symbols ${name}-dbgsym debug "${name} (= ${PROJECT_VERSION})" "debug symbols for ${name}
Function names, lines and, for the plug-in, types of what the package
${name} holds. A debugger finds them by the build id of the
file that runs. Nothing else needs this package.")
endmacro()

zel_package_with_symbols(zelreshdl "" "result handler of an endpoint security agent
A plug-in of an agent that watches a computer for attacks. It takes what the
detection engines of the agent find, filters repeats, and reports each alert
at once. The chain of processes that led to the alert follows when the trace
module of the agent has built it.
.
The plug-in needs libraries of the agent, which are not in this package. The
package zelreshdl-standins has libraries that take their place."
  "zelreshdl.ini;zeltrc.ini" "")
set(CPACK_DEBIAN_ZELRESHDL_PACKAGE_SUGGESTS "zelhost, zelreshdl-standins")

zel_package_with_symbols(zelreshdl-standins "zelreshdl (= ${PROJECT_VERSION})" "stand-ins for the libraries around zelreshdl
The plug-in zelreshdl talks to a message bus, a trace module, a data store and
other libraries of its agent. The libraries in this package take the place of
the agent's own. They behave like them as far as the plug-in can see, so that
it can be tried out without an agent.
.
Do not install this package where an agent has its own libraries."
  "agent_cfg.json" "")

zel_package_with_symbols(zelhost "zelreshdl (= ${PROJECT_VERSION}), zelreshdl-standins (= ${PROJECT_VERSION})" "host program for the zelreshdl plug-in
Loads the plug-in zelreshdl as its agent would, plays events to it, and shows
what it publishes. It also checks alert documents, draws the chain of an alert,
tells what became of an alert, replays a recorded session, and measures how
many events a computer can take.
.
The folder /usr/share/zelhost/scenarios has events to begin with."
  "" "libcli11-dev;rapidjson-dev")
set(CPACK_DEBIAN_ZELHOST_PACKAGE_SUGGESTS "gnuplot-nox, nats-server")

include(CPack)
