// pixel_rows_avx2.cpp - the row conversions for processors with AVX2.
#include "qx/images/lanes_avx2_impl.h"

#define QX_ROWS_TABLE wide_rows

#include "qx/images/pixel_rows_impl.h"
