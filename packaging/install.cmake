# What `cmake --install` puts where:
#
#     bin/tvsort, bin/tvsort-host            side by side, where the command looks for the process
#     lib/libtvsort_host.a                   the server's side, for engines
#     include/tvsort/                        its headers: #include <tvsort/host/sort_server.h>
#     lib/libtvsort.so.0, include/tvsort.h   the same for any language
#     lib/cmake/tvsort/                      find_package(tvsort): tvsort::host, tvsort::c,
#                                            tvsort::program
#     lib/pkgconfig/                         tvsort-host and tvsort, the libraries for pkg-config
#     lib/python3/dist-packages/tvsort/      the package for Python, where Debian's looks for it
#     share/man, share/bash-completion, share/doc/tvsort
#
# Everything is found relative to where it lies, so that the prefix can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS tvsort EXPORT tvsort DESTINATION ${CMAKE_INSTALL_BINDIR})
set_target_properties(tvsort PROPERTIES EXPORT_NAME program)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/man/tvsort.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
        DESTINATION ${CMAKE_INSTALL_DOCDIR} USE_SOURCE_PERMISSIONS)

if(TARGET tvsort-host)
  install(TARGETS tvsort-host DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/man/tvsort-host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/tvsort-host
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()

if(NOT TARGET tvsort_host)
  return()
endif()

set_target_properties(tvsort_host PROPERTIES EXPORT_NAME host)
install(TARGETS tvsort_host EXPORT tvsort DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The headers of the host library, and what server and process say to each other.
get_target_property(host_headers tvsort_host TVSORT_HEADERS)
file(GLOB protocol_headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/protocol/*.h)
set(installed_headers ${host_headers} ${protocol_headers})
set(header_folder ${PROJECT_BINARY_DIR}/installed-headers)
install(CODE "set(source_folder \"${PROJECT_SOURCE_DIR}\")
set(header_folder \"${header_folder}\")
set(headers \"${installed_headers}\")")
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/installed_headers.cmake)
install(DIRECTORY ${header_folder}/tvsort DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set_target_properties(tvsort_c PROPERTIES EXPORT_NAME c)
install(TARGETS tvsort_c EXPORT tvsort DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/tvsort.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Nothing of it is compiled. It finds the library two folders above its own, and reads from the header
# how to call it.
set(TVSORT_PYTHON_FOLDER lib/python3/dist-packages CACHE STRING "Where the Python package goes")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/tvsort DESTINATION ${TVSORT_PYTHON_FOLDER}
        FILES_MATCHING PATTERN *.py PATTERN *.pyi PATTERN py.typed
        PATTERN __pycache__ EXCLUDE PATTERN _native EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/include/tvsort.h
        DESTINATION ${TVSORT_PYTHON_FOLDER}/tvsort/_native)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tvsort)
install(EXPORT tvsort NAMESPACE tvsort:: FILE tvsortTargets.cmake DESTINATION ${package_folder})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/tvsortConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/tvsortConfig.cmake
                              INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tvsortConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tvsortConfig.cmake
              ${PROJECT_BINARY_DIR}/tvsortConfigVersion.cmake DESTINATION ${package_folder})

set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_folder} /prefix)
foreach(name tvsort-host tvsort)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_folder})
endforeach()
