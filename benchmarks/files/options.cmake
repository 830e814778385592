# Stand-ins for reads that take their time.
if(program STREQUAL compression_bench)
  target_link_libraries(${program} PRIVATE qx_harness)
endif()
