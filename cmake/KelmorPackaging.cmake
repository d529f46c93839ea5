# Debian packages (cpack -G DEB in the build folder, or the target "package"):
#   kelmor-player      the runtime component (see KelmorInstall.cmake)
#   kelmor-player-dev  the dev component; depends on kelmor-player of the
#                      same version
# Dependencies on system libraries are computed by dpkg-shlibdeps. The
# version is the project's, with the commit's date and hash where the
# sources are a git checkout (KelmorVersion.cmake), as the top-level
# CMakeLists.txt computed it into KELMOR_PACKAGE_VERSION.
#
# SONAME policy: each library's SONAME carries the project's major version
# (libKelmorPlayer.so.0). A change that breaks the ABI (a removed or changed
# exported symbol, a changed class layout of a public header) bumps the
# project's major version, hence the SONAME, the CMake package's
# compatibility (SameMajorVersion) and the libraries' file names.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelmor-player)
set(CPACK_PACKAGE_VENDOR "Kelmor")
set(CPACK_PACKAGE_CONTACT "Kelmor developers <kelmor@localhost>")
set(CPACK_PACKAGE_VERSION ${KELMOR_PACKAGE_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Layer-player engine for live show control")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL runtime dev)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION ${KELMOR_PACKAGE_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME kelmor-player)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION video)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "Layer-player engine for live show control\n Plays media on layers and puts their pictures onto output screens, cropped,\n placed and warped, with transport, fades, volume and events back to the\n host. Includes the libmpv engine, the show runner kelmor-show and its\n console, and the examples.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME kelmor-player-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qtbase5-dev (>= 5.15)")
set(CPACK_DEBIAN_DEV_DESCRIPTION
  "Layer-player engine for live show control: development files\n Headers, the CMake package (find_package(KelmorPlayer)), the pkg-config\n file kelmor-player.pc and the API reference.")
# The dev package needs the runtime package of exactly its version.
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

include(CPack)
