# Instruments everything that is built here, the test framework included: a half-instrumented
# program makes the thread sanitizer miss the ordering that the other half gives.
if(KYSERIAL_SANITIZE)
  add_compile_options(-fsanitize=${KYSERIAL_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KYSERIAL_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # For programs in C: the libraries are C++.
    add_link_options(-fsanitize-link-c++-runtime)
    link_libraries($<$<LINK_LANGUAGE:C>:stdc++>)
    find_program(KYSERIAL_LLD ld.lld)
    if(KYSERIAL_LLD) # a quarter of the GNU linker's time for an instrumented program
      add_link_options(-fuse-ld=lld)
    endif()
  endif()
  if(KYSERIAL_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()
# Paths in log lines and assertions are the source tree's, not those of the machine that built it.
if(NOT MSVC)
  add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
endif()
