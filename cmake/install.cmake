# What `cmake --install` puts into a prefix, and cpack into one zip.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/sysmaint)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/sysmaint)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/sysmaint)

install(TARGETS sysmaint sysmaint_c EXPORT sysmaint INCLUDES DESTINATION ${headers} ${headers}/c)
install(TARGETS sysmaint_host sysmaint_boot)
install(CODE "set(SOURCE \"${PROJECT_SOURCE_DIR}/api/current\")\nset(DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${headers}\")")
install(SCRIPT cmake/install_headers.cmake)
if(SYSMAINT_DEF)
    install(FILES ${SYSMAINT_DEF} ${SYSMAINT_LIB} DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${documents})
install(DIRECTORY docs DESTINATION ${documents} PATTERN reference EXCLUDE) # that is what makes the reference

install(EXPORT sysmaint NAMESPACE sysmaint:: FILE sysmaintTargets.cmake DESTINATION ${package})
configure_package_config_file(cmake/package/sysmaintConfig.cmake.in package/sysmaintConfig.cmake
    INSTALL_DESTINATION ${package} PATH_VARS CMAKE_INSTALL_LIBDIR)
# Until 1.0 a new minor version may change what callers rely on.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/sysmaintConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/sysmaintConfig.cmake
    ${PROJECT_BINARY_DIR}/package/sysmaintConfigVersion.cmake DESTINATION ${package})
file(RELATIVE_PATH PREFIX_OF_PACKAGE_FILE /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/package/sysmaint.pc.in package/sysmaint.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/sysmaint.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME sysmaint-${PROJECT_VERSION}-win64)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
include(CPack)
