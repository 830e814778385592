// client_new.cpp - compiled into every module that links QX::QXLibs, so that a block made on one
// side of the DLL may be released on the other.
#include "qx/memory/global_new.h"
