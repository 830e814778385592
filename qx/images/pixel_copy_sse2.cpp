// pixel_copy_sse2.cpp - the row conversions for any 64-bit processor.
#include "qx/images/pixel_copy_sse2_impl.h"

#define QX_ROWS_TABLE plain_rows

#include "qx/images/pixel_copy_rows_impl.h"
