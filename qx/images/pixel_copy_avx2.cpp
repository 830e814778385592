// pixel_copy_avx2.cpp - the row conversions for processors with AVX2.
#include "qx/images/pixel_copy_avx2_impl.h"

#define QX_ROWS_TABLE wide_rows

#include "qx/images/pixel_copy_rows_impl.h"
