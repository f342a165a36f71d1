# Aravis, which judges in tests and benchmarks and is no part of the product: PkgConfig::KYSERIAL_ARAVIS, where it is
# installed (packages pkg-config, libaravis-dev, libusb-1.0-0-dev; scripts/setup.sh installs them).
if(NOT WIN32 AND NOT TARGET PkgConfig::KYSERIAL_ARAVIS)
  find_package(PkgConfig)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(KYSERIAL_ARAVIS IMPORTED_TARGET GLOBAL aravis-0.8)
  endif()
  if(TARGET PkgConfig::KYSERIAL_ARAVIS)
    # "-pthread" is among them, and defines a macro that the tests' shared headers are compiled without. Threads::Threads
    # does what is needed.
    set_property(TARGET PkgConfig::KYSERIAL_ARAVIS PROPERTY INTERFACE_COMPILE_OPTIONS)
  else()
    message(STATUS "Aravis is missing: it does not judge the evaluator of descriptions")
  endif()
endif()
