# SPDX-License-Identifier: Apache-2.0
# Run by cpack when it has installed each component in a directory of its own, before it makes packages of
# these: arranges the documents as Debian wants them, and finds out which packages the programs need.
# (CPack's own way to find out also writes scripts that call ldconfig, which a trigger does here.)

set(top ${CPACK_TEMPORARY_INSTALL_DIRECTORY})

# A directory of documents for each package, named after it. Debian has the licence's text already.
file(RENAME ${top}/development/usr/${CPACK_LUM_DOCDIR}
     ${top}/development/usr/share/doc/${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})
file(COPY ${top}/tools/usr/${CPACK_LUM_DOCDIR}/docs/emulator.md ${top}/tools/usr/${CPACK_LUM_DOCDIR}/docs/flows.md
     DESTINATION ${top}/tools/usr/share/doc/${CPACK_DEBIAN_TOOLS_PACKAGE_NAME})
file(REMOVE_RECURSE ${top}/runtime/usr/${CPACK_LUM_DOCDIR} ${top}/tools/usr/${CPACK_LUM_DOCDIR})
file(GLOB compressed ${top}/tools/usr/${CPACK_LUM_MANDIR}/man1/*)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(doc ${top}/${component}/usr/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(COPY ${CPACK_LUM_COPYRIGHT} ${CPACK_LUM_CHANGELOG} DESTINATION ${doc}
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(RENAME ${doc}/changelog ${doc}/changelog.Debian)
  list(APPEND compressed ${doc}/changelog.Debian)
endforeach()
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)

# The packages of the libraries that each component's programs and libraries need. On our own ones the
# components depend as such: what has no package is passed over.
set(programs_and_libraries ${CPACK_COMPONENTS_ALL})
list(REMOVE_ITEM programs_and_libraries development)
set(ours ${top}/runtime/usr/${CPACK_LUM_LIBDIR})
file(GLOB directories ${ours} ${ours}/* ${top}/session/usr/${CPACK_LUM_LIBDIR}
     ${top}/tools/usr/${CPACK_LUM_LIBDIR}/*)
list(FILTER directories EXCLUDE REGEX "\\.so")
list(TRANSFORM directories PREPEND -l)
file(WRITE ${top}/debian/control "")  # it wants to be called where a package is being made
foreach(component IN LISTS programs_and_libraries)
  string(TOUPPER ${component} upper)
  file(GLOB_RECURSE programs ${top}/${component}/usr/bin/* ${top}/${component}/usr/*.so*)
  execute_process(
    COMMAND dpkg-shlibdeps -O --ignore-missing-info ${directories} ${programs}
    WORKING_DIRECTORY ${top}
    RESULT_VARIABLE status OUTPUT_VARIABLE depends ERROR_VARIABLE messages
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    # Only then: it warns of each place in which it does not find one of ours.
    message(FATAL_ERROR "dpkg-shlibdeps ended with status ${status}\n${messages}")
  endif()
  set(overrides ${top}/${component}/usr/share/lintian/overrides)
  file(COPY ${CPACK_LUM_OVERRIDES} DESTINATION ${overrides}
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(RENAME ${overrides}/lintian-overrides ${overrides}/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  string(REPLACE "shlibs:Depends=" "" CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
endforeach()
file(REMOVE_RECURSE ${top}/debian)
