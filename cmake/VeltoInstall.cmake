include(CMakePackageConfigHelpers)

install(TARGETS velto EXPORT VeltoTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/velto DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/include/velto/detail/VeltoBuildConfig.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velto/detail)
install(EXPORT VeltoTargets NAMESPACE velto:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Velto)

configure_package_config_file(cmake/VeltoConfig.cmake.in ${PROJECT_BINARY_DIR}/VeltoConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Velto)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VeltoConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VeltoConfig.cmake ${PROJECT_BINARY_DIR}/VeltoConfigVersion.cmake
              cmake/VeltoDependencies.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Velto)

if(VELTO_HAS_SPDLOG)
  set(VELTO_PC_REQUIRES_PRIVATE "libcurl icu-uc icu-i18n spdlog")
else()
  set(VELTO_PC_REQUIRES_PRIVATE "libcurl icu-uc icu-i18n")
endif()
configure_file(cmake/velto.pc.in ${PROJECT_BINARY_DIR}/velto.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velto.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
