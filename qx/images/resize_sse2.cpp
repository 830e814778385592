// resize_sse2.cpp - rows of mip levels and weighted sums, for any 64-bit processor.
#include "qx/images/pixel_copy_sse2_impl.h"

#define QX_MIP_TABLE plain_mip_rows
#define QX_WEIGH_KERNELS plain_kernels

#include "qx/images/resize_mips_impl.h"
#include "qx/images/resize_weigh_impl.h"
