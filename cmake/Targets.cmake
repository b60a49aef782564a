# How the project's own code is compiled, and the two libraries of generated code. Hardening.cmake has what makes the built
# files hard to attack and the same in every folder.
set(ZEL_SANITIZE "" CACHE STRING "sanitizers for -fsanitize=, comma-separated")
option(ZEL_FUZZER "instrument for libFuzzer and link the fuzz targets with it" OFF)
option(ZEL_COVERAGE "count the lines and branches that run, for tools/coverage.sh" OFF)

# vptr compares type names across libraries that hide their symbols, and finds strangers where there are none.
if(ZEL_SANITIZE)
  add_compile_options(-O1 -fno-omit-frame-pointer)
  set(zel_sanitize -fsanitize=${ZEL_SANITIZE})
  add_link_options(${zel_sanitize})
  if(ZEL_SANITIZE MATCHES undefined)
    list(APPEND zel_sanitize -fno-sanitize=vptr -fno-sanitize-recover=all)
    # Two checks of clang beyond those of g++: of function types, which it compares across libraries as well, and of an
    # offset to a null pointer, which the packaged JSON headers make.
    if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
      list(APPEND zel_sanitize -fno-sanitize=function,pointer-overflow)
    endif()
  endif()
  string(REGEX REPLACE "(^|,)undefined" "" zel_sanitize_generated "${ZEL_SANITIZE}")
endif()
if(ZEL_FUZZER)
  list(APPEND zel_sanitize -fsanitize=fuzzer-no-link)
endif()
if(ZEL_COVERAGE)
  # The workers count at the same time as the test.
  set(zel_coverage --coverage -fprofile-update=atomic -fprofile-abs-path)
  add_link_options(--coverage)
endif()

add_library(zel_options INTERFACE)
target_link_libraries(zel_options INTERFACE zel_hardening)
target_compile_options(zel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror ${zel_sanitize} ${zel_coverage})
if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  # -Wconversion of g++ leaves changes of sign alone.
  target_compile_options(zel_options INTERFACE -Wthread-safety -Wno-sign-conversion)
endif()
target_include_directories(zel_options INTERFACE ${PROJECT_SOURCE_DIR}/src)

# What code may ask about its build: 1 under the sanitizer, else 0.
set(zel_address_sanitizer 0)
set(zel_thread_sanitizer 0)
if(ZEL_SANITIZE MATCHES address)
  set(zel_address_sanitizer 1)
elseif(ZEL_SANITIZE MATCHES thread)
  set(zel_thread_sanitizer 1)
endif()
target_compile_definitions(zel_options INTERFACE
  ZEL_ADDRESS_SANITIZER=${zel_address_sanitizer} ZEL_THREAD_SANITIZER=${zel_thread_sanitizer})

# Message classes generated from SCHEMA, as an object library. "lite" code is hidden and goes into the plug-in, the trace module
# and their tests; "full" code registers the schema process-wide and goes into the host and the end-to-end tests.
function(zel_generated_library name kind schema)
  set(dir ${PROJECT_BINARY_DIR}/gen/${kind})
  if(kind STREQUAL lite)
    set(out lite:${dir})
    set(runtime protobuf-lite)
  else()
    set(out ${dir})
    set(runtime protobuf)
  endif()
  file(MAKE_DIRECTORY ${dir})
  cmake_path(GET schema PARENT_PATH folder)
  cmake_path(GET schema STEM file)
  add_custom_command(
    OUTPUT ${dir}/${file}.pb.cc ${dir}/${file}.pb.h
    COMMAND protobuf::protoc --proto_path=${folder} --cpp_out=${out} ${schema}
    DEPENDS ${schema}
    VERBATIM)
  add_library(${name} OBJECT ${dir}/${file}.pb.cc ${dir}/${file}.pb.h)
  # No debug information and no undefined-behaviour checks here: one copy would cost minutes and gigabytes.
  target_compile_options(${name} PRIVATE -w -g0)
  if(zel_sanitize_generated)
    target_compile_options(${name} PRIVATE -fsanitize=${zel_sanitize_generated})
  endif()
  target_include_directories(${name} SYSTEM PUBLIC ${dir} ${Protobuf_INCLUDE_DIRS})
  target_link_libraries(${name} PUBLIC ${runtime} Threads::Threads PRIVATE zel_hardening)
endfunction()
zel_generated_library(retrace_lite lite ${PROJECT_SOURCE_DIR}/src/trace/retrace.proto)
zel_generated_library(retrace_full full ${PROJECT_SOURCE_DIR}/src/trace/retrace.proto)
zel_generated_library(record full ${PROJECT_SOURCE_DIR}/host/record/record.proto)
