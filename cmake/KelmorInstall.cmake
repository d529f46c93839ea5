# Install rules, split into two components:
#   runtime  the three libraries, kelmor-show (and its man page), the timer
#            demo, the console's files and the examples;
#   dev      headers, the CMake package, the pkg-config file, the libraries'
#            development links and the API reference.
# find_package(KelmorPlayer) gives Kelmor::Player, Kelmor::Platform and
# Kelmor::EngineMpv; pkg-config gives kelmor-player. Both work from any
# prefix, moved or not.
include(CMakePackageConfigHelpers)

install(TARGETS KelmorPlayer KelmorPlatform KelmorEngineMpv EXPORT KelmorPlayerTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  PUBLIC_HEADER DESTINATION ${KELMOR_INCLUDE_INSTALL_DIR} COMPONENT dev)
install(EXPORT KelmorPlayerTargets NAMESPACE Kelmor::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KelmorPlayer COMPONENT dev)
configure_package_config_file(cmake/KelmorPlayerConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KelmorPlayerConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KelmorPlayer)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KelmorPlayerConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/KelmorPlayerConfig.cmake
  ${PROJECT_BINARY_DIR}/KelmorPlayerConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KelmorPlayer COMPONENT dev)

# pkg-config: the prefix is computed from the .pc file's own folder.
file(RELATIVE_PATH KELMOR_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" KELMOR_PC_TO_PREFIX "${KELMOR_PC_TO_PREFIX}")
configure_file(cmake/kelmor-player.pc.in ${PROJECT_BINARY_DIR}/kelmor-player.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelmor-player.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# kelmor-show's man page, made from its --help by help2man, so that the two
# never disagree. --help works without a display.
find_program(KELMOR_HELP2MAN help2man)
if(TARGET kelmor-show AND KELMOR_HELP2MAN)
  set(_kelmor_man ${PROJECT_BINARY_DIR}/man/kelmor-show.1)
  add_custom_command(OUTPUT ${_kelmor_man}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND ${KELMOR_HELP2MAN} --no-info --no-discard-stderr
      --name "the show runner of the Kelmor layer player"
      --version-string ${PROJECT_VERSION} --output ${_kelmor_man} $<TARGET_FILE:kelmor-show>
    COMMAND gzip -n -9 -f ${_kelmor_man}
    DEPENDS kelmor-show
    COMMENT "Making the kelmor-show man page")
  add_custom_target(kelmor-show-man ALL DEPENDS ${_kelmor_man}.gz)
  install(FILES ${_kelmor_man}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
elseif(TARGET kelmor-show)
  message(WARNING "help2man not found: kelmor-show's man page is not made (scripts/install-deps.sh installs it)")
endif()

# The examples: the demo show, its media maker and the example host program.
install(FILES examples/demo.show
  DESTINATION ${CMAKE_INSTALL_DATADIR}/kelmor/examples COMPONENT runtime)
install(PROGRAMS examples/make-demo-media.sh
  DESTINATION ${CMAKE_INSTALL_DATADIR}/kelmor/examples COMPONENT runtime)
if(EXISTS ${PROJECT_SOURCE_DIR}/examples/host-app)
  install(DIRECTORY examples/host-app
    DESTINATION ${CMAKE_INSTALL_DATADIR}/kelmor/examples COMPONENT runtime)
endif()
