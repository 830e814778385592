target_link_libraries(${program} PRIVATE dinput8 dxguid rpcrt4)
#There is one focus and one mouse for all cases.
    set(case_properties RESOURCE_LOCK desktop)
# The walk over processors is built into the tests too, so that recorded ones can be walked.
target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/qx/app/cpu_config.cpp)
# The lives that end early are lived in processes of their own.
add_dependencies(${program} host_life)
