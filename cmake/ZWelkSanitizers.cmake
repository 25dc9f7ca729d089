# Sanitizer and fuzzing builds. Each lives in a build folder of its own
# (scripts/sanitize.sh, scripts/fuzz.sh), never in the normal build/.
set(ZWELK_SANITIZERS "" CACHE STRING
  "Sanitizers for every target, as -fsanitize= takes them (address,undefined or thread)")
option(ZWELK_FUZZ "Build the libFuzzer targets of tests/fuzz (clang only); implies address,undefined" OFF)

if(ZWELK_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "ZWELK_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  if(NOT ZWELK_SANITIZERS)
    set(ZWELK_SANITIZERS "address,undefined" CACHE STRING "" FORCE)
  endif()
  # Coverage for the fuzzer in every library; only the fuzz targets link
  # libFuzzer's main.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(ZWELK_SANITIZERS)
  # Every report stops the program, so a test or a fuzz run fails on it.
  add_compile_options(-fsanitize=${ZWELK_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZWELK_SANITIZERS})
  if(ZWELK_SANITIZERS MATCHES "undefined")
    # The vptr check alone may go on, so that tests/sanitize/ubsan.supp can
    # drop oneTBB's own downcasts of finished tasks (compiled into our
    # objects from its headers); halt_on_error=1 still stops on every other.
    add_compile_options(-fsanitize-recover=vptr)
  endif()
endif()
