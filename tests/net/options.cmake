target_link_libraries(${program} PRIVATE ws2_32)
