# One Debian package for each component of the installation.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CONTACT "The Enrolix developers <enrolix@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL libraries development program)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Dependencies on the system's libraries are read off the binaries, which must find each other for that.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# A program that links the libraries depends on this very version: below 1 there is no other promise.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY =)
set(same_version "${libraries_package} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME ${libraries_package})
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARIES_DESCRIPTION
    "switch registry of a network controller, libraries
The registry that a controller's agent loads, the records that switches,
operators and the controller share through it, their framework, and the library
of programs that ask an agent.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# The headers of the client show documents as the JSON library has them.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}, nlohmann-json3-dev (>= 3.11)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "switch registry of a network controller, development files
Headers, CMake package and pkg-config files of the registry's libraries, and
examples of an agent that loads it and of a client that asks an agent.")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME ${program_package})
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS ${same_version})
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "switch registry of a network controller
Replays what switches, operators and heartbeats wrote, and shows what the
registry answers.")

include(CPack)
