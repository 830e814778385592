// search_paths_impl.h - the end of the singletons, for destroy_filesystem.
#pragma once

namespace QX {

// Each does nothing where its object was never made.
void destroy_search_paths();
void destroy_binary_description();

}  // namespace QX
