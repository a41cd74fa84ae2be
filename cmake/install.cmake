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
  TARGETS nox records registry client
  EXPORT enrolix
  LIBRARY COMPONENT libraries NAMELINK_COMPONENT development)

# The headers include each other from the top folder, so include/enrolix is what users have on their path.
install(
  DIRECTORY framework records registry
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/enrolix
  COMPONENT development
  FILES_MATCHING
  PATTERN *.h)

# Of the host, the client's room and what its headers include.
set(include_folder ${CMAKE_INSTALL_INCLUDEDIR}/enrolix/agent)
install(
  DIRECTORY agent/client
  DESTINATION ${include_folder}
  COMPONENT development
  FILES_MATCHING
  PATTERN *.h)
install(FILES agent/net/http.h DESTINATION ${include_folder}/net COMPONENT development)
install(FILES agent/document/export.h agent/document/json.h DESTINATION ${include_folder}/document
        COMPONENT development)

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
foreach(name IN ITEMS enrolix enrolix-client)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(
    FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endforeach()

# Documents stand as they do in the source, so that their links to each other hold, in the folder of their package. Each
# package carries the licence under Debian's name for it.
install(FILES README.md ARCHITECTURE.md CONTRIBUTING.md DESTINATION ${doc_folder}/${program_package} COMPONENT program)
install(DIRECTORY docs DESTINATION ${doc_folder}/${program_package} COMPONENT program)
install(
  DIRECTORY examples
  DESTINATION ${doc_folder}/${program_package}
  COMPONENT program
  PATTERN agent EXCLUDE
  PATTERN client EXCLUDE)
install(
  DIRECTORY examples/agent examples/client
  DESTINATION ${doc_folder}/${development_package}/examples
  COMPONENT development)
foreach(component IN ITEMS libraries development program)
  install(
    FILES LICENSE
    DESTINATION ${doc_folder}/${${component}_package}
    RENAME copyright
    COMPONENT ${component})
endforeach()
