# Prints the size of PROGRAM. Run after a link.
file(SIZE ${PROGRAM} bytes)
get_filename_component(name ${PROGRAM} NAME)
message(STATUS "${name}: ${bytes} bytes")
