# The tool is run as its users run it.
add_dependencies(${program} qxxml)
