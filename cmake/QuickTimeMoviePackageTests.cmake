# ctest cases that install the build into a scratch prefix and use it as a user would: the example
# built with find_package and with pkg-config, and a project that embeds the source tree.
string(JOIN " " QT_SANITIZER_TEXT ${QT_SANITIZER_FLAGS})
set(QT_PACKAGE_TEST ${CMAKE_COMMAND} "-DGENERATOR=${CMAKE_GENERATOR}" -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DBUILD_DIR=${PROJECT_BINARY_DIR}
  -DWORK=${PROJECT_BINARY_DIR}/package-test -DCXX=${CMAKE_CXX_COMPILER}
  -DLAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER} "-DSANITIZER_FLAGS=${QT_SANITIZER_TEXT}")
set(QT_PACKAGE_SCRIPT -P ${PROJECT_SOURCE_DIR}/tests/tools/PackageTest.cmake)

add_test(NAME Package.InstallsLibraryHeadersToolAndPackageFiles COMMAND ${QT_PACKAGE_TEST} -DMODE=install ${QT_PACKAGE_SCRIPT})
add_test(NAME Package.ExampleBuildsWithFindPackageAndReadsAMovie COMMAND ${QT_PACKAGE_TEST} -DMODE=find_package ${QT_PACKAGE_SCRIPT})
add_test(NAME Package.ExampleBuildsWithPkgConfigAndReadsAMovie COMMAND ${QT_PACKAGE_TEST} -DMODE=pkg-config ${QT_PACKAGE_SCRIPT})
add_test(NAME Package.EmbeddingNeedsNeitherGTestNorBenchmark COMMAND ${QT_PACKAGE_TEST} -DMODE=embed ${QT_PACKAGE_SCRIPT})
set_tests_properties(Package.InstallsLibraryHeadersToolAndPackageFiles PROPERTIES FIXTURES_SETUP QtInstalled)
set_tests_properties(Package.ExampleBuildsWithFindPackageAndReadsAMovie Package.ExampleBuildsWithPkgConfigAndReadsAMovie
  PROPERTIES FIXTURES_REQUIRED QtInstalled)
set_tests_properties(Package.InstallsLibraryHeadersToolAndPackageFiles Package.ExampleBuildsWithFindPackageAndReadsAMovie
  Package.ExampleBuildsWithPkgConfigAndReadsAMovie Package.EmbeddingNeedsNeitherGTestNorBenchmark
  PROPERTIES TIMEOUT 300 RESOURCE_LOCK QtPackageTest)
