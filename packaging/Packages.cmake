# SPDX-License-Identifier: Apache-2.0
# Debian packages, one for each component. What Debian wants besides the files that are installed is
# added by debian/stage.cmake.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lum-sdf)
set(CPACK_PACKAGE_CONTACT "lum SDF maintainers <maintainers@lum-sdf.invalid>"
    CACHE STRING "Who looks after the packages")
# The first line of a description is each package's own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE lum-sdf)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The packages are those that the changelog tells of last.
set(changelog ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${changelog})
file(STRINGS ${changelog} newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^${CPACK_DEBIAN_PACKAGE_SOURCE} \\((.+)-([0-9]+)\\) "
   OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "${changelog}: the newest entry is not of version ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})

set(CPACK_COMPONENTS_ALL runtime development tools)
if(LUM_SESSION)
  list(APPEND CPACK_COMPONENTS_ALL session)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liblum-sdf-sdk${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "client library of a device's data service
Lets an application ask the device's data service to treat its traffic in
particular ways (service data flows), through a C interface: latency levels,
filters for flows, priorities, reports.

This package has the library, and the binder runtime that it needs where the
system has none.")

set(CPACK_DEBIAN_SESSION_PACKAGE_NAME liblum-sdf-session${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_SESSION_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_SESSION_DEPENDS runtime)
set(CPACK_DEBIAN_SESSION_DESCRIPTION
    "sessions with a device's data service
Lets an application say once how the device's data service is to treat its
traffic, and keeps that with the service, also when the service is lost and
comes back. Stands on liblum_sdf_sdk.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liblum-sdf-sdk-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS lum-sdf-tools)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
if(LUM_SESSION)
  list(APPEND CPACK_COMPONENT_DEVELOPMENT_DEPENDS session)
endif()
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "client library of a device's data service (development files)
Lets an application ask the device's data service to treat its traffic in
particular ways (service data flows), through a C interface.

This package has the headers, also those of sessions, what CMake and
pkg-config have to know, the documentation and examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME lum-sdf-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
if(LUM_SESSION)
  list(APPEND CPACK_COMPONENT_TOOLS_DEPENDS session)
endif()
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "tools around the client library of a device's data service
sdfctl issues the functions of liblum_sdf_sdk as commands. lum_sdf_emulator
is a stand-in for the data service, for machines that have none; it can be
made to misbehave. lum_sdf_demo shows library and service at work together,
lum_sdf_monitor what becomes of flows and queues. lum_servicemanager lets
them meet over the kernel's binder driver where there is no Android.")

# shlibs(COMPONENT LIBRARY): a component with a library for others to link.
function(shlibs component library)
  set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  configure_file(debian/shlibs.in ${package}/shlibs @ONLY)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA
      ${CMAKE_CURRENT_BINARY_DIR}/${package}/shlibs ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers
      PARENT_SCOPE)
endfunction()
shlibs(RUNTIME liblum_sdf_sdk)
shlibs(SESSION liblum_sdf_session)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/stage.cmake)
# For that script.
set(CPACK_LUM_OVERRIDES ${CMAKE_CURRENT_SOURCE_DIR}/debian/lintian-overrides)
set(CPACK_LUM_CHANGELOG ${changelog})
set(CPACK_LUM_COPYRIGHT ${CMAKE_CURRENT_SOURCE_DIR}/debian/copyright)
set(CPACK_LUM_DOCDIR ${CMAKE_INSTALL_DOCDIR})
set(CPACK_LUM_LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(CPACK_LUM_MANDIR ${CMAKE_INSTALL_MANDIR})
include(CPack)
