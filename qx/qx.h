// qx.h - the whole library. Includes only.
#pragma once

#include "qx/base/array_body.h"
#include "qx/base/dynamic_array.h"
#include "qx/base/export.h"
#include "qx/base/hash.h"
#include "qx/base/rectangle.h"
#include "qx/base/standard_containers.h"
#include "qx/data/tokeniser.h"
#include "qx/memory/allocators.h"
#include "qx/memory/heap.h"
#include "qx/text/basic_string.h"
#include "qx/text/string.h"
