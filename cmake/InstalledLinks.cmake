# Run while installing: links of the installed pages that lead into the source tree lead to the installed headers.
# DOC_FOLDER and INCLUDE_FOLDER are below the folder that is installed to.
set(lRoot "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
file(RELATIVE_PATH lUp "/${DOC_FOLDER}" "/${INCLUDE_FOLDER}")
file(GLOB_RECURSE lPages RELATIVE "${lRoot}/${DOC_FOLDER}" "${lRoot}/${DOC_FOLDER}/*.md")
foreach(lPage IN LISTS lPages)
  string(REGEX MATCHALL "/" lDepth "${lPage}")
  list(LENGTH lDepth lDepth)
  string(REPEAT "../" ${lDepth} lToTop)
  file(READ "${lRoot}/${DOC_FOLDER}/${lPage}" lText)
  set(lBefore "${lText}")
  foreach(lHeaders Libraries/KySerial/Include Libraries/KySerialC/Include Libraries/clserzmo/Client/Include
          Adapters/GigE/C/Include Adapters/GigE/Include Simulator/C/Include Libraries)
    string(REPLACE "](${lToTop}${lHeaders}/" "](${lToTop}${lUp}/" lText "${lText}")
  endforeach()
  if(NOT lText STREQUAL lBefore)
    file(WRITE "${lRoot}/${DOC_FOLDER}/${lPage}" "${lText}")
  endif()
endforeach()
