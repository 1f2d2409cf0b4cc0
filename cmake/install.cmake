# What `cmake --install` puts in place, in two components: `runtime` is what programs need when
# they run, `development` what it takes to build them. The static and the shared libraries come
# from two build trees and may go into one prefix: the headers and the files that find the
# package are the same of both.
if(BUILD_SHARED_LIBS)
  set(flavour shared)
else()
  set(flavour static)
endif()
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/path_filter)

foreach(header IN LISTS PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/path_filter/${folder}
          COMPONENT development)
endforeach()

function(install_libraries export)
  install(TARGETS ${ARGN} EXPORT ${export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT ${export} NAMESPACE path_filter:: DESTINATION ${package_dir}
          COMPONENT development)
endfunction()
install_libraries(path_filter-${flavour}-targets
  path_filter path_filter_git_config path_filter_language_registry)
if(PATH_FILTER_SQL)
  install_libraries(path_filter-${flavour}-sql-targets path_filter_sql)
endif()

include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/path_filter-config.cmake.in path_filter-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(path_filter-config-version.cmake
  COMPATIBILITY SameMinorVersion)  # until 1.0
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/path_filter-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/path_filter-config-version.cmake
  cmake/FindUtf8proc.cmake
  DESTINATION ${package_dir} COMPONENT development)

# --- pkg-config
function(install_pkg_config name library description requires libs_private flags)
  set(to_prefix ${CMAKE_INSTALL_PREFIX})
  cmake_path(RELATIVE_PATH to_prefix BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
  set(includedir "\${prefix}")
  cmake_path(APPEND includedir ${CMAKE_INSTALL_INCLUDEDIR} path_filter)
  set(libdir "\${prefix}")
  cmake_path(APPEND libdir ${CMAKE_INSTALL_LIBDIR})
  configure_file(cmake/path_filter.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()
install_pkg_config(path_filter path_filter "${PROJECT_DESCRIPTION}"
  "" "-lutf8proc -pthread" "")
install_pkg_config(path_filter-language_registry path_filter_language_registry
  "The default language registry of path_filter" "" ""
  "-Wl,-u,path_filter_default_registry ")
install_pkg_config(path_filter-git_config path_filter_git_config
  "What git's configuration says of core.excludesFile, for path_filter" "path_filter" "" "")
if(PATH_FILTER_SQL)
  install_pkg_config(path_filter-sql path_filter_sql
    "The predicate of path_filter for test code inside SQLite queries"
    "path_filter, sqlite3" "" "")
endif()

install(FILES LICENSE NOTICE CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

# --- Packages, which `make package` makes of both build trees.
if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_PACKAGE_NAME path-filter)
  set(CPACK_PACKAGE_CONTACT "The path_filter developers <path-filter@localhost>")
  set(CPACK_PACKAGE_FILE_NAME path-filter-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # For programs that link the static library, or the function for SQLite.
  set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libutf8proc-dev, libsqlite3-dev")
  include(CPack)
endif()
