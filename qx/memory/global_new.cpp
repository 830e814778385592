#include "qx/memory/global_new.h"
