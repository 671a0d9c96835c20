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
