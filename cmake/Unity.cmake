option(KYSERIAL_UNITY "Compile the programs' and tests' sources in groups" ${PROJECT_IS_TOP_LEVEL})

# ky_unity(target [ALONE source...]): compiles the target's sources in groups of eight. A group reads each header, and
# makes the code of each template, once, which halves the build time. Sources that use the same private names in different ways
# cannot share a group: ALONE names them.
function(ky_unity aTarget)
  cmake_parse_arguments(lArg "" "" "ALONE" ${ARGN})
  set_target_properties(${aTarget} PROPERTIES UNITY_BUILD ${KYSERIAL_UNITY} UNITY_BUILD_BATCH_SIZE 8)
  if(lArg_ALONE)
    set_source_files_properties(${lArg_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()
