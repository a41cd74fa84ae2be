# The package `enrolix`: the libraries Enrolix::nox, Enrolix::records and Enrolix::registry for agents, and
# Enrolix::client for programs that ask an agent.
include(CMakeFindDependencyMacro)
find_dependency(nlohmann_json 3.11)
include(${CMAKE_CURRENT_LIST_DIR}/enrolix-targets.cmake)
