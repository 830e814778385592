target_link_libraries(${program} PRIVATE dinput8 dxguid rpcrt4)
# There is one focus and one mouse for all cases.
set(case_properties RESOURCE_LOCK desktop)
# The timers' table and the walk over processors are built into the tests too, to be looked into.
target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/qx/app/cpu_config.cpp
  ${PROJECT_SOURCE_DIR}/qx/app/timers_table.cpp)
# The lives that end early are lived in processes of their own.
add_dependencies(${program} host_life)
