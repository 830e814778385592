# The warnings that every target of this project is built with, as errors.
add_library(qx_warnings INTERFACE)
target_compile_options(qx_warnings INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
  -Woverloaded-virtual -Wno-array-bounds -Werror)
