# Runs before the files are packed: adds what Debian's policy asks of a package and an installation
# under a prefix of one's own does not need.
set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr)
set(doc ${tree}/share/doc/${CPACK_PACKAGE_NAME})
file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${doc})
file(COPY ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides DESTINATION ${tree}/share/lintian/overrides)
file(RENAME ${tree}/share/lintian/overrides/lintian-overrides
     ${tree}/share/lintian/overrides/${CPACK_PACKAGE_NAME})

# Debian's own form of a changelog tells the version; what has changed stands in CHANGELOG.md.
string(TIMESTAMP day "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${doc}/changelog
     "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * CHANGELOG.md says what has changed.

 -- ${CPACK_PACKAGE_CONTACT}  ${day}
")
file(GLOB pages ${tree}/share/man/man*/*)
foreach(file ${doc}/changelog ${pages})
  execute_process(COMMAND gzip -9 -n -f ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
