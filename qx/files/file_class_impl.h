// file_class_impl.h - the home folder, which the system half works out.
#pragma once

#include "qx/text/string.h"

namespace QX::FileClass {

// The system joins paths in buffers of 260.
constexpr unsigned int longest_home_folder = 259;

// The full text of the home folder plus `sub`, made on disk. Empty without a profile folder.
UniString make_home_folder(UniString const& sub);

}  // namespace QX::FileClass
