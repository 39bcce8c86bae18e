# What a package has and an installation from source does not: run by CPack on the files before they are packed.
file(READ ${CMAKE_CURRENT_LIST_DIR}/changelog changelog)
file(READ ${CMAKE_CURRENT_LIST_DIR}/../tovik.metainfo.xml metainfo)
file(READ ${CMAKE_CURRENT_LIST_DIR}/../../CHANGELOG.md changes)
string(REGEX MATCH "\n## \\[${CPACK_PACKAGE_VERSION}\\] - ([-0-9]+)\n" release "${changes}")
set(date "${CMAKE_MATCH_1}")
string(FIND "${changelog}" "(${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})" in_changelog)
string(FIND "${metainfo}" "version=\"${CPACK_PACKAGE_VERSION}\" date=\"${date}\"" in_metainfo)
if(NOT release OR in_changelog EQUAL -1 OR in_metainfo EQUAL -1)
  message(FATAL_ERROR "CHANGELOG.md, data/debian/changelog and data/tovik.metainfo.xml must name version "
    "${CPACK_PACKAGE_VERSION}, the first and the last with the same date")
endif()

foreach(component ${CPACK_COMPONENTS_ALL})
  set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  set(documents ${root}/share/doc/${component})
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${documents})
  file(WRITE ${documents}/changelog.Debian "${changelog}")
  file(GLOB_RECURSE compressed ${root}/share/man/*)
  execute_process(COMMAND gzip -9nf ${compressed} ${documents}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# Where an installation from source has it, and the other package its own.
file(REMOVE ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/tovik-run/usr/share/doc/tovik/copyright)
# Debian's own shells look there.
set(zsh ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/tovik-run/usr/share/zsh)
file(RENAME ${zsh}/site-functions ${zsh}/vendor-completions)
