# The staged agent folder: each library is put where the agent has it.
set(ZEL_AGENT_DIR ${PROJECT_BINARY_DIR}/agent)

# A stand-in library NAME in FOLDER of the agent, from all sources in the current folder.
function(zel_standin name folder)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT sources)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp "")
    set(sources ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp)
  endif()
  add_library(${name} SHARED ${sources})
  target_link_libraries(${name} PRIVATE zel_options ${ARGN})
  set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${ZEL_AGENT_DIR}/${folder})
endfunction()
