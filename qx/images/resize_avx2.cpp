// resize_avx2.cpp - rows of mip levels and weighted sums, for processors with AVX2.
#include "qx/images/pixel_copy_avx2_impl.h"

#define QX_MIP_TABLE wide_mip_rows
#define QX_WEIGH_KERNELS wide_kernels

#include "qx/images/resize_mips_impl.h"
#include "qx/images/resize_weigh_impl.h"
