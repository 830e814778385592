// resize_sse2.cpp - rows of mip levels, for any 64-bit processor.
#include "qx/images/pixel_copy_sse2_impl.h"

#define QX_MIP_TABLE plain_mip_rows

#include "qx/images/resize_mips_impl.h"
