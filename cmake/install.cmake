# What is installed, in three components: the libraries, what one builds against them with, and the program.
include(CMakePackageConfigHelpers)

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/enrolix)
set(doc_folder ${CMAKE_INSTALL_DATAROOTDIR}/doc)

# The Debian packages that the components become.
set(libraries_package libenrolix${PROJECT_VERSION_MAJOR})
set(development_package libenrolix-dev)
set(program_package enrolix)

install(TARGETS enrolix_program RUNTIME COMPONENT program)
install(
  TARGETS nox records registry
  EXPORT enrolix
  LIBRARY COMPONENT libraries NAMELINK_COMPONENT development)

# The headers include each other from the top folder, so include/enrolix is what users have on their path. These two are
# the pool's inside, which no other header includes.
install(
  DIRECTORY framework records registry
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/enrolix
  COMPONENT development
  FILES_MATCHING
  PATTERN *.h
  PATTERN framework/memory/page_map.h EXCLUDE
  PATTERN framework/memory/pool_heap.h EXCLUDE)

# Versions below 1 promise nothing from one minor version to the next.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/enrolix-config-version.cmake COMPATIBILITY SameMinorVersion)
install(
  EXPORT enrolix
  NAMESPACE Enrolix::
  FILE enrolix-targets.cmake
  DESTINATION ${cmake_folder}
  COMPONENT development)
install(
  FILES cmake/enrolix-config.cmake ${PROJECT_BINARY_DIR}/enrolix-config-version.cmake
  DESTINATION ${cmake_folder}
  COMPONENT development)

file(RELATIVE_PATH way_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/enrolix.pc.in ${PROJECT_BINARY_DIR}/enrolix.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/enrolix.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# Documents stand as they do in the source, so that their links to each other hold, in the folder of their package. Each
# package carries the licence under Debian's name for it.
install(FILES README.md ARCHITECTURE.md DESTINATION ${doc_folder}/${program_package} COMPONENT program)
install(DIRECTORY docs DESTINATION ${doc_folder}/${program_package} COMPONENT program)
install(
  DIRECTORY examples
  DESTINATION ${doc_folder}/${program_package}
  COMPONENT program
  PATTERN agent EXCLUDE)
install(DIRECTORY examples/agent DESTINATION ${doc_folder}/${development_package}/examples COMPONENT development)
foreach(component IN ITEMS libraries development program)
  install(
    FILES LICENSE
    DESTINATION ${doc_folder}/${${component}_package}
    RENAME copyright
    COMPONENT ${component})
endforeach()
