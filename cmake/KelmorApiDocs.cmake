# The API reference of the installed headers: the target "api-docs" runs
# Doxygen (docs/api/Doxyfile.in). An undocumented public member is a warning
# and any warning fails the target; scripts/run-tests.sh builds it. The
# result is installed with the dev component when it was built.
find_package(Doxygen)
set(KELMOR_API_DOCS_DIR ${PROJECT_BINARY_DIR}/api-docs)
set(_kelmor_api_headers
  ${PROJECT_SOURCE_DIR}/player/UI_Proc_KELMOR_Player_Desktop.h
  ${PROJECT_SOURCE_DIR}/player/KelmorPlayerExport.h
  ${PROJECT_SOURCE_DIR}/registry/UI_Proc_KELMOR_PlayersManage_Desktop.h
  ${PROJECT_SOURCE_DIR}/timer/UI_Proc_KELMOR_PlayerTimer_Desktop.h
  ${PROJECT_SOURCE_DIR}/platform/engines/mpv/MpvEngine.h)
file(GLOB _kelmor_platform_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/include/*.h)
list(APPEND _kelmor_api_headers ${_kelmor_platform_headers})
string(REPLACE ";" " " KELMOR_API_DOCS_INPUT "${_kelmor_api_headers}")
if(DOXYGEN_FOUND)
  configure_file(docs/api/Doxyfile.in ${KELMOR_API_DOCS_DIR}/Doxyfile @ONLY)
  add_custom_target(api-docs
    COMMAND ${CMAKE_COMMAND} -E remove_directory ${KELMOR_API_DOCS_DIR}/html
    COMMAND ${DOXYGEN_EXECUTABLE} ${KELMOR_API_DOCS_DIR}/Doxyfile
    WORKING_DIRECTORY ${KELMOR_API_DOCS_DIR}
    DEPENDS ${_kelmor_api_headers} ${PROJECT_SOURCE_DIR}/docs/api/mainpage.md
    COMMENT "Making the API reference (undocumented public members fail it)"
    VERBATIM)
  install(DIRECTORY ${KELMOR_API_DOCS_DIR}/html/
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kelmor-player-dev/api COMPONENT dev OPTIONAL)
else()
  message(STATUS "doxygen not found: no api-docs target (scripts/install-deps.sh installs it)")
endif()
