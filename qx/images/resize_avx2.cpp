// resize_avx2.cpp - rows of mip levels, for processors with AVX2.
#include "qx/images/pixel_copy_avx2_impl.h"

#define QX_MIP_TABLE wide_mip_rows

#include "qx/images/resize_mips_impl.h"
