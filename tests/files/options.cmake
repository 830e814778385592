# The round trip runs the tool.
add_dependencies(${program} qxpack)
