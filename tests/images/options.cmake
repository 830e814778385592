# The conversions for processors without AVX2 are tested on any machine.
target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/qx/images/pixel_copy_sse2.cpp)
target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/qx/images/resize_sse2.cpp)
target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/qx/images/resize_filters.cpp)
