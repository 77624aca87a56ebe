# What `cmake --install` puts under the prefix, for programs that use the
# shared library on a desktop system:
#   lib/libtaviklimiter_vendor.so*            the library (SONAME .so.1 on Linux)
#   include/taviklimiter.h                    its interface
#   lib/pkgconfig/taviklimiter.pc             pkg-config --cflags --libs taviklimiter
#   lib/cmake/taviklimiter/                   find_package(taviklimiter), giving the
#                                             imported target taviklimiter::taviklimiter_vendor
# (the LV2 bundle and the taviklimit tool install from their own directories).
# Both descriptions find the prefix from their own location, so an installed
# tree can be moved or installed with --prefix anywhere. The Android builds
# install the library and the header only: an app or a system image takes
# them from there, and the freestanding build's C library stub is no part of
# anything to export.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(TAVIKLIMITER_LIBRARY_ONLY)
  install(TARGETS taviklimiter_vendor LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${TAVIKLIMITER_PUBLIC_HEADER} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  return()
endif()

target_include_directories(taviklimiter_vendor INTERFACE
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS taviklimiter_vendor EXPORT taviklimiterTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${TAVIKLIMITER_PUBLIC_HEADER} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(TAVIKLIMITER_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/taviklimiter)
install(EXPORT taviklimiterTargets NAMESPACE taviklimiter::
        DESTINATION ${TAVIKLIMITER_CMAKE_DIR})
configure_package_config_file(cmake/taviklimiterConfig.cmake.in
  ${PROJECT_BINARY_DIR}/taviklimiterConfig.cmake
  INSTALL_DESTINATION ${TAVIKLIMITER_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/taviklimiterConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/taviklimiterConfig.cmake
              ${PROJECT_BINARY_DIR}/taviklimiterConfigVersion.cmake
        DESTINATION ${TAVIKLIMITER_CMAKE_DIR})

# pkg-config: the prefix as a path relative to the .pc file's own directory.
file(RELATIVE_PATH TAVIKLIMITER_PC_TO_PREFIX
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TAVIKLIMITER_PC_TO_PREFIX "${TAVIKLIMITER_PC_TO_PREFIX}")
configure_file(cmake/taviklimiter.pc.in ${PROJECT_BINARY_DIR}/taviklimiter.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/taviklimiter.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- The install test ---------------------------------------------------------
# Installs this build into build/<preset>/install_test/prefix and uses it as a
# program outside the project would: a small C program built through
# pkg-config and through find_package, the tool and its manual page, the LV2
# bundle. A library built with a sanitizer needs its runtime in every program
# that links it, and a cross build's programs cannot run here: no test there.
if(NOT TAVIKLIMITER_BUILD_TESTS OR CMAKE_CROSSCOMPILING OR TAVIKLIMITER_SANITIZE
   OR CMAKE_C_FLAGS MATCHES "-fsanitize")
  return()
endif()

set(_tvl_work ${PROJECT_BINARY_DIR}/install_test)
set(_tvl_prefix ${_tvl_work}/prefix)
add_test(NAME install_clean COMMAND ${CMAKE_COMMAND} -E rm -rf ${_tvl_work})
add_test(NAME install_into_prefix
         COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --prefix ${_tvl_prefix})
add_test(NAME install_pkg_config
         COMMAND sh ${PROJECT_SOURCE_DIR}/tests/install/pkg_config_consumer.sh ${_tvl_prefix}
                 ${CMAKE_INSTALL_LIBDIR} ${CMAKE_C_COMPILER} ${_tvl_work}/consumer_pc)
add_test(NAME install_find_package
         COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test ${PROJECT_SOURCE_DIR}/tests/install
                 ${_tvl_work}/consumer --build-generator ${CMAKE_GENERATOR}
                 --build-options -DCMAKE_C_COMPILER=${CMAKE_C_COMPILER}
                                 -DCMAKE_PREFIX_PATH=${_tvl_prefix}
                 --test-command consumer)
set(_tvl_install_tests install_pkg_config install_find_package)
if(TARGET taviklimit)
  add_test(NAME install_taviklimit_help
           COMMAND ${_tvl_prefix}/${CMAKE_INSTALL_BINDIR}/taviklimit --help)
  add_test(NAME install_taviklimit_man
           COMMAND man -M ${_tvl_prefix}/${CMAKE_INSTALL_MANDIR} -w taviklimit)
  list(APPEND _tvl_install_tests install_taviklimit_help install_taviklimit_man)
endif()
find_program(TAVIKLIMITER_LV2INFO lv2info)
if(TARGET taviklimiter_lv2 AND TAVIKLIMITER_LV2INFO)
  add_test(NAME install_lv2_bundle
           COMMAND ${TAVIKLIMITER_LV2INFO} http://taviklimiter.example/lv2/stereo)
  set_tests_properties(install_lv2_bundle PROPERTIES  # lv2/CMakeLists.txt: lib/lv2
    ENVIRONMENT "LV2_PATH=${_tvl_prefix}/lib/lv2")
  list(APPEND _tvl_install_tests install_lv2_bundle)
endif()
set_tests_properties(install_clean install_into_prefix PROPERTIES FIXTURES_SETUP tvl_installed)
set_tests_properties(install_into_prefix PROPERTIES DEPENDS install_clean)
set_tests_properties(${_tvl_install_tests} PROPERTIES FIXTURES_REQUIRED tvl_installed)
