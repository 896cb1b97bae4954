# Install rules: the static library with its CMake package (QuickTimeMovie::quicktime), the public
# headers, qtmovie with its sample movie, and quicktime-movie.pc. Everything is placed relative to
# the prefix, so `cmake --install BUILD --prefix DIR` gives a tree that works wherever it lands.
include(CMakePackageConfigHelpers)

set(QT_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuickTimeMovie)
set(QT_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/quicktime-movie)

install(TARGETS quicktime EXPORT QuickTimeMovieTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${QT_HEADER_DIR})
install(TARGETS qtmovie RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/samples/sample.mov DESTINATION ${CMAKE_INSTALL_DATADIR}/quicktime-movie)

# The public headers are the umbrella header and whatever it includes, followed at install time so
# that a header added to the umbrella is installed without a change here, and a helper that only
# the library's own sources include stays out.
install(CODE "
  set(QT_SOURCE_DIR \"${PROJECT_SOURCE_DIR}\")
  set(QT_HEADER_DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${QT_HEADER_DIR}\")
  include(\"${PROJECT_SOURCE_DIR}/cmake/QuickTimeMovieHeaders.cmake\")
")

install(EXPORT QuickTimeMovieTargets NAMESPACE QuickTimeMovie:: DESTINATION ${QT_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QuickTimeMovieConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QuickTimeMovieConfig.cmake INSTALL_DESTINATION ${QT_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuickTimeMovieConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuickTimeMovieConfig.cmake
  ${PROJECT_BINARY_DIR}/QuickTimeMovieConfigVersion.cmake DESTINATION ${QT_PACKAGE_DIR})

# pkg-config finds the prefix from where the .pc file lies, like the CMake package does.
set(QT_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(QT_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH QT_PC_UP "/root/${QT_PC_DIR}" "/root")
  string(REGEX REPLACE "/$" "" QT_PC_UP "${QT_PC_UP}")
  set(QT_PC_PREFIX "\${pcfiledir}/${QT_PC_UP}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/quicktime-movie.pc.in ${PROJECT_BINARY_DIR}/quicktime-movie.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quicktime-movie.pc DESTINATION ${QT_PC_DIR})
