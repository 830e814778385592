// mip_rows_avx2.cpp - rows of mip levels, for processors with AVX2.
#include "qx/images/lanes_avx2_impl.h"

#define QX_MIP_TABLE wide_mip_rows

#include "qx/images/mip_rows_impl.h"
