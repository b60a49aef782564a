# What makes the built files hard to attack, the same wherever they are built, and small beside a file of debug information.
# tests/e2e/built_file.sh looks at the result.
add_library(zel_hardening INTERFACE)
target_compile_options(zel_hardening INTERFACE
  -fstack-protector-strong -fstack-clash-protection -ffunction-sections -fdata-sections)
target_link_options(zel_hardening INTERFACE
  -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,text -Wl,--gc-sections -Wl,--build-id=sha1)

# Control-flow enforcement. The C library's start files (crti.o, crtn.o, and Scrt1.o of a program) do not say that they are
# ready for it, and one such file takes both marks from the whole result, so the marks are forced. They must be true all the
# same: the functions of crti.o do not begin with endbr64, and the loader would jump to them. They do nothing where nothing is
# profiled, so a library does without both, by the name of a function that does not exist. A program begins in Scrt1.o, which
# lacks endbr64 as well; it is marked for the shadow stack alone.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
  set(zel_is_library $<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>)
  target_compile_options(zel_hardening INTERFACE -fcf-protection=full)
  target_link_options(zel_hardening INTERFACE
    -Wl,-z,shstk
    $<${zel_is_library}:-Wl,-z,ibt>
    $<${zel_is_library}:-Wl,-init=zel_no_function>
    $<${zel_is_library}:-Wl,-fini=zel_no_function>)
endif()

# Checked calls of the C library, at the highest level that compiler and C library have between them. They need an
# optimising compiler, and a sanitizer does not know them: it would see less.
if(CMAKE_BUILD_TYPE STREQUAL Release AND NOT ZEL_SANITIZE)
  include(CheckCXXSourceCompiles)
  foreach(level 3 2)
    set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}")
    check_cxx_source_compiles("
      #include <features.h>
      #if __USE_FORTIFY_LEVEL != ${level}
      #error another level
      #endif
      int main() {}" ZEL_FORTIFY_${level})
    unset(CMAKE_REQUIRED_FLAGS)
    if(ZEL_FORTIFY_${level})
      target_compile_options(zel_hardening INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level})
      break()
    endif()
  endforeach()
endif()

# The paths of this folder stay out of what is shipped, so that the same sources give the same bytes in every folder. A
# debugger finds the sources when it runs in the project's root. Other builds keep the paths: coverage looks for its sources.
if(CMAKE_BUILD_TYPE STREQUAL Release)
  target_compile_options(zel_hardening INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()

# Moves debug information, local symbols and the compiler's name of a release build into a file beside TARGET's own, FILE.debug.
# Debuggers find it by its name and check sum, or by the build id.
function(zel_split_debug target)
  if(CMAKE_BUILD_TYPE STREQUAL Release)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE_NAME:${target}> $<TARGET_FILE_NAME:${target}>.debug
      COMMAND ${CMAKE_OBJCOPY} --strip-unneeded --remove-section=.comment --add-gnu-debuglink=$<TARGET_FILE_NAME:${target}>.debug
        $<TARGET_FILE_NAME:${target}>
      WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
      VERBATIM)
  endif()
endfunction()
