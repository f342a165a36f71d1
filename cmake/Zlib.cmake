# zlib, for zipped descriptions of devices: the system's; a program for Windows has it inside, as it has the compiler's
# libraries.
if(WIN32)
  find_library(KYSERIAL_ZLIB NAMES libz.a REQUIRED)
  find_path(KYSERIAL_ZLIB_INCLUDE zlib.h REQUIRED)
  add_library(KyZlib STATIC IMPORTED GLOBAL)
  set_target_properties(KyZlib PROPERTIES IMPORTED_LOCATION "${KYSERIAL_ZLIB}"
    INTERFACE_INCLUDE_DIRECTORIES "${KYSERIAL_ZLIB_INCLUDE}")
else()
  find_package(ZLIB REQUIRED GLOBAL)
  add_library(KyZlib ALIAS ZLIB::ZLIB)
endif()
