# What `cmake --install` puts in place: the shared and static libraries, the public headers under
# include/kxaudio (include paths as in the source tree: "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"),
# the shipped data under share/kxaudio, a pkg-config file, a CMake package and, with the tool, kxaudio
# and its manual page.
include(CMakePackageConfigHelpers)

set(KX_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KXAudioFile)

install(TARGETS kxaudiofile kxaudiofile_static EXPORT KXAudioFileTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY KXCore/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kxaudio FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/KXBase/KXVersion.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kxaudio/KXBase)
install(DIRECTORY data/ DESTINATION ${KX_DATA_INSTALL_DIR})

install(EXPORT KXAudioFileTargets NAMESPACE KXAudioFile:: DESTINATION ${KX_CMAKE_INSTALL_DIR})
string(REPLACE ";" " " KX_PRIVATE_MODULES_SPACED "${KX_PRIVATE_MODULES}")
configure_package_config_file(cmake/KXAudioFileConfig.cmake.in ${PROJECT_BINARY_DIR}/KXAudioFileConfig.cmake
                              INSTALL_DESTINATION ${KX_CMAKE_INSTALL_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KXAudioFileConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KXAudioFileConfig.cmake ${PROJECT_BINARY_DIR}/KXAudioFileConfigVersion.cmake
        DESTINATION ${KX_CMAKE_INSTALL_DIR})

# pkg-config: paths relative to the file's own place, so an installed tree can be moved.
file(RELATIVE_PATH KX_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" KX_PC_TO_PREFIX "${KX_PC_TO_PREFIX}")
file(RELATIVE_PATH KX_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KX_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/kxaudiofile.pc.in ${PROJECT_BINARY_DIR}/kxaudiofile.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kxaudiofile.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(KX_BUILD_TOOL)
  install(TARGETS kxaudio RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${KX_MANUAL} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
