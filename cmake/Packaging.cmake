# Two Debian packages from the two components: modbus-driver, and modbus-driver-dev with the kit.
# DEBFULLNAME and DEBEMAIL say who packages.
set(maintainer_name $ENV{DEBFULLNAME})
if(NOT maintainer_name)
    set(maintainer_name "modbus-driver packagers")
endif()
set(maintainer_address $ENV{DEBEMAIL})
if(NOT maintainer_address)
    set(maintainer_address packagers@localhost.localdomain)
endif()

set(CPACK_PACKAGE_CONTACT "${maintainer_name} <${maintainer_address}>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/FinishDebianPackages.cmake)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME modbus-driver)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Modbus TCP driver module with a command-line host
The module talks to Modbus TCP devices: it connects, reads, listens, writes
and asks for device information. It is a Qt 5 plug-in for automation hosts.
.
With it come driver-host, which runs such a module from the command line, and
device-simulator, a device to try it on.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME modbus-driver-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Kit for writing driver modules
Headers and the CMake package HostFramework, to build driver modules and
their hosts with. A sample module shows how.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "modbus-driver (= ${PROJECT_VERSION}), qtbase5-dev (>= 5.15)")

include(CPack)
