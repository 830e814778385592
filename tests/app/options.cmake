target_link_libraries(${program} PRIVATE dinput8 dxguid)
#There is one focus and one mouse for all cases.
    set(case_properties RESOURCE_LOCK desktop)
