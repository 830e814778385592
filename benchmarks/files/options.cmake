# Reads that take their time.
if(program STREQUAL compression_bench)
  target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/tests/files/late_completion.cpp)
  target_link_libraries(${program} PRIVATE qx_harness)
endif()
