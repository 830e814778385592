# The warnings that every target of this project is built with, as errors.
add_library(qx_warnings INTERFACE)
set(_warnings -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wno-array-bounds
  -Werror)
target_compile_options(qx_warnings INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:${_warnings}>")
