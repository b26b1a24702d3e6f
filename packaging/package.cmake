# `cpack` makes a Debian package of what is installed. dpkg-shlibdeps finds what it depends on.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tvsort)
set(CPACK_PACKAGE_CONTACT "The tvsort developers <tvsort@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "sort process of the TAVRIN database server")
set(CPACK_PACKAGE_DESCRIPTION
    "tvsort sorts fixed-length records in memory that it shares with the
 server that started it. tvsort-host plays the server's part for files:
 CSV rows, text lines and records. The host library does so for C++20
 programs, libtvsort.so.0 for any language, and a Python package for
 numpy's arrays and pandas' frames.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/finish.cmake)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "python3-cffi, python3-numpy")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, python3-pandas, python3-distributed")
include(CPack)
