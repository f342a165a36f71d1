# ky_shared_library(target map): what our shared libraries have in common.
function(ky_shared_library aTarget aMap)
  set_target_properties(${aTarget} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    KYSERIAL_MAP "${aMap}")
  if(WIN32)
    set_target_properties(${aTarget} PROPERTIES PREFIX "") # KySerial.dll, not libKySerial.dll
  elseif(UNIX AND NOT APPLE)
    # Immediate binding: a process killed inside the lazy linker would die at places that nobody has tested.
    target_link_options(${aTarget} PRIVATE "LINKER:--version-script=${aMap}" "LINKER:-z,now")
    set_target_properties(${aTarget} PROPERTIES LINK_DEPENDS "${aMap}")
  endif()
endfunction()
