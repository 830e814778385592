target_link_libraries(${program} PRIVATE dbghelp)
