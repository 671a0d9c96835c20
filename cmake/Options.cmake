# What our own targets are compiled with. Private: nothing here reaches an embedder's build.
add_library(kx_private_options INTERFACE)
target_compile_options(kx_private_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Wnon-virtual-dtor
  -fno-semantic-interposition
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>  # as GCC's -Wconversion: without signs
  $<$<BOOL:${KX_WERROR}>:-Werror>
)

if(KX_SANITIZE)
  # Instrumented code takes the compiler twice as long with more.
  target_compile_options(kx_private_options INTERFACE -O1 -g1
    -fsanitize=${KX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kx_private_options INTERFACE -fsanitize=${KX_SANITIZE})
endif()

if(KX_BUILD_FUZZ)
  # Shows a fuzz target's driver which ways the code has gone; in any other program it does nothing. What is compared
  # with what is not shown: it takes a third of the time, and the dictionaries know what is worth comparing.
  target_compile_options(kx_private_options INTERFACE -fsanitize=fuzzer-no-link -fno-sanitize-coverage=trace-cmp)
  target_link_options(kx_private_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(KX_COVERAGE)
  target_compile_options(kx_private_options INTERFACE -fprofile-instr-generate -fcoverage-mapping)
  target_link_options(kx_private_options INTERFACE -fprofile-instr-generate)
endif()
