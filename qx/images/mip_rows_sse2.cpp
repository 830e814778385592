// mip_rows_sse2.cpp - rows of mip levels, for any 64-bit processor.
#include "qx/images/lanes_sse2_impl.h"

#define QX_MIP_TABLE plain_mip_rows

#include "qx/images/mip_rows_impl.h"
