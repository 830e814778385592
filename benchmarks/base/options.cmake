if(program STREQUAL load_bench)
  set_property(TARGET ${program} PROPERTY LINK_LIBRARIES qx_warnings)
  add_dependencies(${program} QXLibs)
endif()
