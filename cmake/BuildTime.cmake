# What makes builds short.
option(KYSERIAL_UNITY "Build in less time: sources in groups, shared precompiled headers, a compiler that frees less memory"
  ${PROJECT_IS_TOP_LEVEL})

if(KYSERIAL_UNITY AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # gcc frees memory so often that it takes a sixth of its time. With these values the largest group takes 1.2 GB.
  add_compile_options(--param=ggc-min-expand=300 --param=ggc-min-heapsize=500000)
endif()

if(KYSERIAL_UNITY AND MINGW)
  # A group has more sections than the format of object files allows without this.
  add_compile_options(-Wa,-mbig-obj)
endif()

# ky_unity(target [ALONE source...]): compiles the target's sources in groups of 24. A group reads each header, and
# makes the code of each template, once, which halves the build time. Sources that use the same private names in different ways
# cannot share a group: ALONE names them.
function(ky_unity aTarget)
  cmake_parse_arguments(lArg "" "" "ALONE" ${ARGN})
  set_target_properties(${aTarget} PROPERTIES UNITY_BUILD ${KYSERIAL_UNITY} UNITY_BUILD_BATCH_SIZE 24)
  if(lArg_ALONE)
    set_source_files_properties(${lArg_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()

# ky_standard_headers(target): the C++ library's headers, which are half of a small source's build time, are compiled once
# for all libraries. Each source still includes what it uses: scripts/lint.sh compiles without shared headers.
function(ky_standard_headers aTarget)
  if(NOT KYSERIAL_UNITY)
    return()
  endif()
  if(NOT TARGET KyStandardHeaders)
    add_library(KyStandardHeaders OBJECT EXCLUDE_FROM_ALL "${PROJECT_SOURCE_DIR}/cmake/Empty.cpp")
    target_precompile_headers(KyStandardHeaders PRIVATE <algorithm> <array> <atomic> <chrono> <cstdint> <cstring> <memory> <mutex>
      <optional> <string> <thread> <utility> <vector>)
    ky_warnings(KyStandardHeaders)
  endif()
  target_precompile_headers(${aTarget} REUSE_FROM KyStandardHeaders)
endfunction()

# ky_optimise_debug(target): the target is optimised in debug builds too, as far as a debugger can follow. A preset or script
# that asks for a level of its own gets that one.
function(ky_optimise_debug aTarget)
  if(NOT MSVC AND NOT CMAKE_CXX_FLAGS_DEBUG MATCHES "-O")
    target_compile_options(${aTarget} PRIVATE $<$<CONFIG:Debug>:-Og>)
  endif()
endfunction()

# ky_link_quickly(): the folder's programs are linked by LLVM's linker, in a third of a second each. The GNU linker takes up to
# ten seconds. It links programs and libraries that ship, as it does in a release.
macro(ky_link_quickly)
  find_program(KYSERIAL_LLD ld.lld)
  if(KYSERIAL_LLD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    if(MINGW AND CMAKE_HOST_UNIX)
      add_link_options("SHELL:-wrapper ${PROJECT_SOURCE_DIR}/scripts/mingw_lld.sh")
    elseif(NOT WIN32)
      add_link_options(-fuse-ld=lld)
    endif()
  endif()
endmacro()
