# ky_warnings(target): the warnings that every target of ours is kept clean of.
function(ky_warnings aTarget)
  if(MSVC)
    target_compile_options(${aTarget} PRIVATE /W4 /permissive- $<$<BOOL:${KYSERIAL_WERROR}>:/WX>)
    return()
  endif()
  target_compile_options(${aTarget} PRIVATE -Wall -Wextra -Wpedantic -Wconversion
    $<$<BOOL:${KYSERIAL_WERROR}>:-Werror>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # gcc 12 takes inlined code of its own vectors and strings for out-of-bounds copies when it optimises.
    target_compile_options(${aTarget} PRIVATE
      $<$<NOT:$<CONFIG:Debug>>:-Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-restrict>)
  endif()
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # The lock annotations are checked by every clang build.
    target_compile_options(${aTarget} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
  endif()
endfunction()
