# The plain loops that the kernels are compared with get all that the compiler has.
target_compile_options(${program} PRIVATE -O3)
