# Run by cpack on the packages that it has made. It gives libraries scripts that call ldconfig, beside the trigger that does so
# once for all packages of an installation; the trigger stays.
foreach(lFile IN LISTS CPACK_PACKAGE_FILES)
  if(lFile MATCHES "/lib[a-z]+0_[^/]*\\.deb$")
    set(lFolder "${lFile}.unpacked")
    file(REMOVE_RECURSE "${lFolder}")
    execute_process(COMMAND dpkg-deb -R "${lFile}" "${lFolder}" COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE "${lFolder}/DEBIAN/postinst" "${lFolder}/DEBIAN/postrm")
    execute_process(COMMAND dpkg-deb --root-owner-group -b "${lFolder}" "${lFile}" COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
    file(REMOVE_RECURSE "${lFolder}")
  endif()
endforeach()
