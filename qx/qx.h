// qx.h - the whole library. Includes only.
#pragma once

#include "qx/base/export.h"
#include "qx/base/hash.h"
#include "qx/base/rectangle.h"
#include "qx/memory/heap.h"
