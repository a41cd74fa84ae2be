# The package `enrolix`: the libraries Enrolix::nox, Enrolix::records and Enrolix::registry.
include(${CMAKE_CURRENT_LIST_DIR}/enrolix-targets.cmake)
