# What programs and tests use besides this repository. All of it comes from Debian's packages
# (scripts/setup.sh); the libraries under Libraries/ use none of it.

# Header-only packages are copied: the Windows cross build must not see the rest of /usr/include.
function(ky_header_only aTarget aHeader)
  find_path(${aTarget}_ROOT ${aHeader} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  get_filename_component(lFolder ${aHeader} DIRECTORY)
  set(lCopy "${PROJECT_BINARY_DIR}/ThirdParty/${aTarget}")
  file(COPY "${${aTarget}_ROOT}/${lFolder}" DESTINATION "${lCopy}")
  add_library(${aTarget} INTERFACE)
  target_include_directories(${aTarget} SYSTEM INTERFACE "${lCopy}")
endfunction()

ky_header_only(KyCLI11 CLI/CLI.hpp)
ky_header_only(KyJson nlohmann/json.hpp)
ky_header_only(KyToml toml++/toml.h)
ky_header_only(KyRapidXml rapidxml/rapidxml.hpp) # writes the simulated camera's description

# Boost is too large for a copy; a folder with nothing but a link to it does as well.
find_path(KyBoost_ROOT boost/asio.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(lBoost "${PROJECT_BINARY_DIR}/ThirdParty/KyBoost")
file(MAKE_DIRECTORY "${lBoost}")
file(CREATE_LINK "${KyBoost_ROOT}/boost" "${lBoost}/boost" SYMBOLIC)
add_library(KyBoost INTERFACE)
target_include_directories(KyBoost SYSTEM INTERFACE "${lBoost}")
target_compile_definitions(KyBoost INTERFACE BOOST_ERROR_CODE_HEADER_ONLY BOOST_ASIO_NO_DEPRECATED BOOST_ALL_NO_LIB)
target_link_libraries(KyBoost INTERFACE Threads::Threads)
if(WIN32)
  target_compile_definitions(KyBoost INTERFACE WIN32_LEAN_AND_MEAN NOMINMAX)
  target_link_libraries(KyBoost INTERFACE ws2_32 mswsock)
endif()

if(KYSERIAL_BUILD_TESTS)
  # Built from source in every preset: sanitizers want it instrumented, the cross build wants it at all.
  set(KYSERIAL_GOOGLETEST /usr/src/googletest CACHE PATH "Source of GoogleTest")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory("${KYSERIAL_GOOGLETEST}" "${PROJECT_BINARY_DIR}/ThirdParty/googletest" EXCLUDE_FROM_ALL SYSTEM)
endif()
