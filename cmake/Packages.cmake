# What is installed, and the packages: cmake --install, cpack. Components: runtime (the shared libraries), development
# (headers, import libraries, package files, Docs and Examples), tools (the programs), gigelibrary (the adapter for GigE Vision
# devices), gige (its headers and package files), python.
option(KYSERIAL_MULTIARCH "Install libraries into lib/<architecture>, as Debian's packages do" OFF)
if(KYSERIAL_MULTIARCH AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}" CACHE PATH "Folder of the libraries" FORCE)
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(lLibraries JxUtilsLib KySerial KySerialC clserzmo)
if(TARGET KySimulatorC)
  list(APPEND lLibraries KySimulatorC)
  # For C++ programs, which want to be tried without a camera: static, and with its headers.
  install(TARGETS KySimulator EXPORT KySerialTargets ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
  foreach(lFolder Camera Peers Ports Time)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/Simulator/${lFolder}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Simulator"
      COMPONENT development FILES_MATCHING PATTERN "*.h")
  endforeach()
endif()
set(lPackageFolder "${CMAKE_INSTALL_LIBDIR}/cmake/KySerial")

install(TARGETS ${lLibraries} KyBase EXPORT KySerialTargets
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT KySerialTargets NAMESPACE KySerial:: DESTINATION "${lPackageFolder}" COMPONENT development)
if(NOT WIN32)
  # Found wherever the folder is put.
  set_target_properties(${lLibraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

foreach(lFolder KySerial/Include clserzmo/Client/Include KySerialC/Include)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/Libraries/${lFolder}/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    COMPONENT development)
endforeach()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Libraries/KyBase" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  COMPONENT development FILES_MATCHING PATTERN "*.h")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Libraries/JxUtilsLib" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  COMPONENT development FILES_MATCHING PATTERN "*.h" PATTERN "StandardErrorSink.h" EXCLUDE)
if(TARGET KySimulatorC)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/Simulator/C/Include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    COMPONENT development)
endif()

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/KySerialConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/package/KySerialConfig.cmake" INSTALL_DESTINATION "${lPackageFolder}")
# Before 1.0 a minor version may break.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/KySerialConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/package/KySerialConfig.cmake"
  "${PROJECT_BINARY_DIR}/package/KySerialConfigVersion.cmake" DESTINATION "${lPackageFolder}" COMPONENT development)

# ky_pkg_config(name description libraries [component]): a pkg-config file that moves with its folder.
function(ky_pkg_config aName aDescription aLibraries)
  set(lComponent development)
  if(ARGC GREATER 3)
    set(lComponent ${ARGV3})
  endif()
  file(RELATIVE_PATH lPrefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  set(NAME ${aName})
  set(SUMMARY "${aDescription}")
  set(LIBS "${aLibraries}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/package.pc.in" "${PROJECT_BINARY_DIR}/package/${aName}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/package/${aName}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT ${lComponent})
endfunction()
ky_pkg_config(kyserial "Serial ports, buses and bridges of machine-vision cameras (C++)" "-lKySerial -lJxUtilsLib")
ky_pkg_config(kyserialc "Serial ports, buses and bridges of machine-vision cameras (C)" "-lKySerialC")
if(TARGET KySimulatorC)
  ky_pkg_config(kysimulator "KySerial's simulated camera (C++)" "-lKySimulator -pthread")
  ky_pkg_config(kysimulatorc "A simulated camera for KySerial's C interface" "-lKySimulatorC -lKySerialC")
endif()
ky_pkg_config(jxutilslib "KySerial's log (C++)" "-lJxUtilsLib")
ky_pkg_config(clserzmo "Camera Link serial clients of KySerial's bridges" "-lclserzmo")

if(WIN32)
  # For linkers that do not read MinGW's import libraries: the C libraries, whose names every compiler knows.
  # The Microsoft linker takes the .lib files that LLVM makes of these; where LLVM is missing, users make their own.
  find_program(KYSERIAL_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14)
  foreach(lLibrary KySerialC KyGigEC KySimulatorC clserzmo)
    if(TARGET ${lLibrary})
      get_target_property(lMap ${lLibrary} KYSERIAL_MAP)
      file(READ "${lMap}" lNames)
      string(REGEX MATCHALL "    [A-Za-z0-9]+" lNames "${lNames}")
      list(JOIN lNames "\n" lNames)
      file(WRITE "${PROJECT_BINARY_DIR}/package/${lLibrary}.def" "LIBRARY ${lLibrary}.dll\nEXPORTS\n${lNames}\n")
      install(FILES "${PROJECT_BINARY_DIR}/package/${lLibrary}.def" DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        COMPONENT development)
      if(KYSERIAL_DLLTOOL)
        execute_process(COMMAND "${KYSERIAL_DLLTOOL}" -m i386:x86-64 -d "${PROJECT_BINARY_DIR}/package/${lLibrary}.def"
          -l "${PROJECT_BINARY_DIR}/package/${lLibrary}.lib" COMMAND_ERROR_IS_FATAL ANY)
        install(FILES "${PROJECT_BINARY_DIR}/package/${lLibrary}.lib" DESTINATION "${CMAKE_INSTALL_LIBDIR}"
          COMPONENT development)
      endif()
    endif()
  endforeach()
endif()

if(TARGET kyserial)
  if(NOT WIN32)
    file(RELATIVE_PATH lToLibraries "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
    set_target_properties(kyserial PROPERTIES INSTALL_RPATH "$ORIGIN/${lToLibraries}")
  endif()
  install(TARGETS kyserial RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
  if(NOT WIN32)
    install(FILES "${PROJECT_SOURCE_DIR}/Tools/kyserial/Serve/System/kyserial.service"
      "${PROJECT_SOURCE_DIR}/Tools/kyserial/Serve/System/kyserial@.service" DESTINATION lib/systemd/system COMPONENT tools)
  endif()
  if(TARGET KyGigE)
    # A package of its own: the serial library's must not need zlib. Hence targets of its own, too.
    if(NOT WIN32)
      set_target_properties(KyGigE KyGigEC PROPERTIES INSTALL_RPATH "$ORIGIN")
    endif()
    install(TARGETS KyGigE KyGigEC EXPORT KyGigETargets
      RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT gigelibrary
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT gige
      LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT gigelibrary NAMELINK_COMPONENT gige
      INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
    install(EXPORT KyGigETargets NAMESPACE KySerial:: DESTINATION "${lPackageFolder}" COMPONENT gige)
    foreach(lFolder Include C/Include)
      install(DIRECTORY "${PROJECT_SOURCE_DIR}/Adapters/GigE/${lFolder}/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT gige)
    endforeach()
    ky_pkg_config(kygige "KySerial's adapter for GigE Vision devices (C++)" "-lKyGigE" gige)
    ky_pkg_config(kygigec "KySerial's adapter for GigE Vision devices (C)" "-lKyGigEC -lKySerialC" gige)
  endif()
endif()
if(TARGET kyserial-camera)
  install(TARGETS kyserial-camera RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
endif()
if(TARGET KySerialPages)
  set(lPages "${PROJECT_BINARY_DIR}/pages")
  install(DIRECTORY "${lPages}/man1" DESTINATION "${CMAKE_INSTALL_MANDIR}" COMPONENT tools)
  install(DIRECTORY "${lPages}/bash/" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
  install(DIRECTORY "${lPages}/zsh/" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" COMPONENT tools)
  install(DIRECTORY "${lPages}/fish/" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT tools)
endif()
if(WIN32)
  set(lPython python)
else()
  set(lPython lib/python3/dist-packages)
endif()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Bindings/python/kyserial" "${PROJECT_SOURCE_DIR}/Bindings/python/serial"
  DESTINATION "${lPython}" COMPONENT python FILES_MATCHING PATTERN "*.py" PATTERN "py.typed")
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  "${PROJECT_SOURCE_DIR}/CONTRIBUTING.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development)
# Beside the README, which links to them.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Docs" "${PROJECT_SOURCE_DIR}/Examples" DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT development FILES_MATCHING REGEX "\\.(md|svg|png|dot|jsonl|c|cpp|py)$|/CMakeLists.txt$")
install(FILES "${PROJECT_SOURCE_DIR}/Bindings/python/README.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}/Bindings/python"
  COMPONENT development)
install(CODE "set(DOC_FOLDER \"${CMAKE_INSTALL_DOCDIR}\")\nset(INCLUDE_FOLDER \"${CMAKE_INSTALL_INCLUDEDIR}\")"
  COMPONENT development)
install(SCRIPT "${PROJECT_SOURCE_DIR}/cmake/InstalledLinks.cmake" COMPONENT development)

set(CPACK_PACKAGE_NAME KySerial)
set(CPACK_PACKAGE_VENDOR "The KySerial developers")
set(CPACK_PACKAGE_CONTACT "The KySerial developers <kyserial@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Serial ports, I2C and SPI buses and bridges of machine-vision cameras")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools python)
if(TARGET KyGigE)
  list(APPEND CPACK_COMPONENTS_ALL gige gigelibrary)
endif()
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME "KySerial-${PROJECT_VERSION}-windows-x64")
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/WithoutLdconfig.cmake")
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkyserial0)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkyserial-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkyserial0 (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "libkygige-dev") # whose headers the documentation links to
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kyserial)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION electronics)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkyserial0 (= ${PROJECT_VERSION}), libkygige0 (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
  set(CPACK_DEBIAN_GIGE_PACKAGE_NAME libkygige-dev)
  set(CPACK_DEBIAN_GIGE_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_GIGE_PACKAGE_DEPENDS "libkygige0 (= ${PROJECT_VERSION}), libkyserial-dev (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_GIGELIBRARY_PACKAGE_NAME libkygige0)
  set(CPACK_DEBIAN_GIGELIBRARY_PACKAGE_DEPENDS "libkyserial0 (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_GIGELIBRARY_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kyserial)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, libkyserial0 (>= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "libkygige0, python3-serial")

  # Summary, then what the package is, in the form of each package's own.
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "serial ports of machine-vision cameras: libraries
KySerial drives the UARTs, bulk ports, I2C and SPI buses of GigE Vision
cameras, and bridges a camera's port to one of the computer. These are its
shared libraries: C++, C, the simulated camera, Camera Link serial clients.")
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "serial ports of machine-vision cameras: headers
Headers, CMake and pkg-config files, documentation and examples for programs
that drive the serial ports of GigE Vision cameras with KySerial.")
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION "serial ports of machine-vision cameras: programs
The program kyserial finds cameras, lists their ports and features, is a
terminal on a port, bridges ports and talks I2C and SPI. kyserial-camera is a
simulated camera on the network.")
  set(CPACK_COMPONENT_GIGELIBRARY_DESCRIPTION "KySerial's adapter for GigE Vision cameras: libraries
Finds and connects GigE Vision cameras, evaluates their GenICam features and
delivers their events to KySerial; for C++ and for C.")
  set(CPACK_COMPONENT_GIGE_DESCRIPTION "KySerial's adapter for GigE Vision cameras: headers
Headers, CMake and pkg-config files for programs that find and connect GigE
Vision cameras with KySerial's adapter.")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "serial ports of machine-vision cameras: Python
Serial ports, I2C and SPI buses and bridges of GigE Vision cameras from Python,
with the habits of pySerial, a handler for its URLs, and ports for asyncio.")

  # What each package has besides: its copyright and changelog, and for libraries the trigger of the linker's cache.
  file(WRITE "${PROJECT_BINARY_DIR}/package/copyright"
    "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\nUpstream-Name: KySerial\n\n")
  file(READ "${PROJECT_SOURCE_DIR}/LICENSE" lLicense)
  string(REGEX REPLACE "^MIT License\n\n([^\n]*)\n\n" "Files: *\n\\1\nLicense: Expat\n" lLicense "${lLicense}")
  string(REPLACE "\n\n" "\n.\n" lLicense "${lLicense}")
  string(REGEX REPLACE "\nCopyright \\(c\\)" "\nCopyright:" lLicense "${lLicense}")
  string(REGEX REPLACE "(License: Expat)\n(.*)$" "\\1\n\\2" lLicense "${lLicense}")
  string(FIND "${lLicense}" "License: Expat\n" lAt)
  math(EXPR lAt "${lAt} + 15")
  string(SUBSTRING "${lLicense}" 0 ${lAt} lHead)
  string(SUBSTRING "${lLicense}" ${lAt} -1 lBody)
  string(STRIP "${lBody}" lBody)
  string(REPLACE "\n" "\n " lBody "${lBody}")
  file(APPEND "${PROJECT_BINARY_DIR}/package/copyright" "${lHead} ${lBody}\n")
  file(WRITE "${PROJECT_BINARY_DIR}/package/triggers" "activate-noawait ldconfig\n")
  file(WRITE "${PROJECT_BINARY_DIR}/package/changelog" "kyserial (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
    "  * See CHANGELOG.md in libkyserial-dev's documentation.\n\n -- ${CPACK_PACKAGE_CONTACT}  Sun, 01 Nov 2026 12:00:00 +0000\n")
  execute_process(COMMAND gzip -9nf "${PROJECT_BINARY_DIR}/package/changelog" COMMAND_ERROR_IS_FATAL ANY)
  foreach(lComponent IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER "${lComponent}" lName)
    install(FILES "${PROJECT_BINARY_DIR}/package/copyright" "${PROJECT_BINARY_DIR}/package/changelog.gz"
      DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${lName}_PACKAGE_NAME}" COMPONENT ${lComponent})
  endforeach()
  # Python's files are compiled when they are installed, and the compiled ones go with them.
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/package/python/postinst" CONTENT
    "#!/bin/sh\nset -e\nif command -v py3compile >/dev/null; then\n  py3compile -p python3-kyserial\nfi\n")
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/package/python/prerm" CONTENT
    "#!/bin/sh\nset -e\nif command -v py3clean >/dev/null; then\n  py3clean -p python3-kyserial\nfi\n")
  file(CHMOD "${PROJECT_BINARY_DIR}/package/python/postinst" "${PROJECT_BINARY_DIR}/package/python/prerm"
    PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/package/python/postinst"
    "${PROJECT_BINARY_DIR}/package/python/prerm")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/package/triggers")
  set(CPACK_DEBIAN_GIGELIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/package/triggers")
endif()
include(CPack)
