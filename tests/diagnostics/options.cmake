target_link_libraries(${program} PRIVATE gdi32 dbghelp)
#There is one focus and one clipboard for all cases.
    set(case_properties RESOURCE_LOCK desktop)
# The tool's cases run it.
add_dependencies(${program} qxstack)
