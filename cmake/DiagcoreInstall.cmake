# Installation: the core library with its public headers under include/diagcore, a pkg-config
# file, a CMake package (find_package(diagcore) gives diagcore::diagcore), the class and
# registration files; and a Debian package made by cpack -G DEB.
include(CMakePackageConfigHelpers)

set(DIAGCORE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/diagcore)
# What a provider library is written against: the model classes, the registry, the factories,
# the entry functions and the provider macro, the constants, and the headers these include. Each
# compiles alone, and everything they declare is exported by libdiagcore.so (the install tests
# check both); the core's own helpers stay out, so they can change without breaking a provider.
set(DIAGCORE_PUBLIC_HEADERS
    common/Constants.h
    common/Export.h
    common/LogMirror.h
    common/ProviderScope.h
    common/Version.h
    instance/CMPIUtil.h
    instance/InstanceImpl.h
    instance/InstanceRegistry.h
    instance/SystemIdentity.h
    diag/AvailableDiagnosticService.h
    diag/DiagnosticRecord.h
    diag/DiagService.h
    diag/DiagServiceCapabilitiesData.h
    diag/DiagServiceSettingData.h
    diag/DiagUser.h
    diag/UseOfLog.h
    factory/AvailServiceFactory.h
    factory/ServiceFactory.h
    entry/DiagProvider.h
    entry/DiagProviderFunctions.h
    entry/DiagServiceProviderCommon.h
    entry/ProviderStartup.h)
foreach(header IN LISTS DIAGCORE_PUBLIC_HEADERS)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${DIAGCORE_INSTALL_INCLUDEDIR}/${folder})
endforeach()

# A distribution's CMPI headers stay where they are; headers inside this tree (the bundled ones,
# or a copy named through DIAGCORE_CMPI_INCLUDE_DIR) are installed with the core's.
set(DIAGCORE_CMPI_EXTERNAL OFF)
if(DIAGCORE_CMPI_INCLUDE_DIR)
  cmake_path(IS_PREFIX PROJECT_SOURCE_DIR "${DIAGCORE_CMPI_INCLUDE_DIR}" NORMALIZE
             DIAGCORE_CMPI_IN_TREE)
  if(NOT DIAGCORE_CMPI_IN_TREE)
    set(DIAGCORE_CMPI_EXTERNAL ON)
  endif()
endif()
if(DIAGCORE_CMPI_EXTERNAL)
  set(DIAGCORE_PC_CMPI_CFLAGS "-I${DIAGCORE_CMPI_INCLUDE_DIR}")
  target_include_directories(diagcore_cmpi INTERFACE $<INSTALL_INTERFACE:${DIAGCORE_CMPI_INCLUDE_DIR}>)
else()
  set(cmpi_dir "${PROJECT_SOURCE_DIR}/cmpi")
  if(DIAGCORE_CMPI_INCLUDE_DIR)
    set(cmpi_dir "${DIAGCORE_CMPI_INCLUDE_DIR}")
  endif()
  set(cmpi_headers ${cmpi_dir}/cmpidt.h ${cmpi_dir}/cmpift.h ${cmpi_dir}/cmpimacs.h
                   ${cmpi_dir}/cmpios.h)
  # Some header sets keep their platform selection in a fifth header that cmpios.h includes.
  if(EXISTS ${cmpi_dir}/cmpipl.h)
    list(APPEND cmpi_headers ${cmpi_dir}/cmpipl.h)
  endif()
  install(FILES ${cmpi_headers} DESTINATION ${DIAGCORE_INSTALL_INCLUDEDIR}/cmpi)
  set(DIAGCORE_PC_CMPI_CFLAGS "-I\${includedir}/diagcore/cmpi")
  target_include_directories(diagcore_cmpi INTERFACE
    $<INSTALL_INTERFACE:${DIAGCORE_INSTALL_INCLUDEDIR}/cmpi>)
endif()
# The definitions the headers need reach CMake users through the exported diagcore_cmpi target,
# and pkg-config users through the Cflags.
foreach(definition IN LISTS DIAGCORE_CMPI_DEFINITIONS)
  string(APPEND DIAGCORE_PC_CMPI_CFLAGS " -D${definition}")
endforeach()
target_include_directories(diagcore PUBLIC $<INSTALL_INTERFACE:${DIAGCORE_INSTALL_INCLUDEDIR}>)

install(TARGETS diagcore diagcore_cmpi EXPORT diagcoreTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development)
install(EXPORT diagcoreTargets NAMESPACE diagcore::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/diagcore)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/diagcoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/diagcoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/diagcore)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/diagcoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/diagcoreConfig.cmake
              ${PROJECT_BINARY_DIR}/diagcoreConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/diagcore)
# The .pc file finds its prefix from where it lies, so an install with --prefix or DESTDIR works.
file(RELATIVE_PATH DIAGCORE_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(${PROJECT_SOURCE_DIR}/cmake/diagcore.pc.in ${PROJECT_BINARY_DIR}/diagcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/diagcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(EXISTS ${PROJECT_SOURCE_DIR}/mof)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/mof/ DESTINATION ${CMAKE_INSTALL_DATADIR}/diagcore/mof
          PATTERN "CMakeLists.txt" EXCLUDE)
endif()

set(CPACK_PACKAGE_NAME libdiagcore)
set(CPACK_PACKAGE_VENDOR "libdiagcore")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Common core of CIM diagnostic providers (CMPI)")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "libdiagcore developers <diagcore@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6")
include(CPack)
