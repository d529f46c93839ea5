# The packages' version: the project's version, and where the sources are a
# git checkout, the commit's date and short hash after a "+" (so that builds
# of later commits sort later), with ".dirty" when tracked files differ from
# the commit. A shallow clone has the commit and its date, so it gets the
# same version as a full one; no git, or no checkout, gives the project's
# version alone. Every result is a valid Debian upstream version.
#
#   kelmor_package_version(<out-var> <source-dir> <project-version>)
#
# Also usable in script mode (cmake -P): tests/package checks it on shallow
# and dirty checkouts.
function(kelmor_package_version out_var source_dir base_version)
  set(version "${base_version}")
  find_program(KELMOR_GIT_EXECUTABLE git)
  if(KELMOR_GIT_EXECUTABLE AND EXISTS "${source_dir}/.git")
    # The commit's date in UTC, whatever the builder's time zone.
    execute_process(COMMAND ${CMAKE_COMMAND} -E env TZ=UTC
                      ${KELMOR_GIT_EXECUTABLE} -C "${source_dir}" log -1
                      --format=%cd.%h --date=format-local:%Y%m%d%H%M%S --abbrev=10
                    RESULT_VARIABLE rc OUTPUT_VARIABLE commit ERROR_QUIET
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(rc EQUAL 0 AND commit MATCHES "^[0-9]+\\.[0-9a-f]+$")
      set(version "${version}+git${commit}")
      execute_process(COMMAND ${KELMOR_GIT_EXECUTABLE} -C "${source_dir}" status --porcelain
                        --untracked-files=no
                      RESULT_VARIABLE rc OUTPUT_VARIABLE changes ERROR_QUIET)
      if(rc EQUAL 0 AND NOT changes STREQUAL "")
        set(version "${version}.dirty")
      endif()
    endif()
  endif()
  if(NOT version MATCHES "^[0-9][A-Za-z0-9.+~]*$")
    message(WARNING "package version \"${version}\" is not a valid Debian version; using ${base_version}")
    set(version "${base_version}")
  endif()
  set(${out_var} "${version}" PARENT_SCOPE)
endfunction()

# Script mode: cmake -DSOURCE_DIR=... -DBASE_VERSION=... -P KelmorVersion.cmake
# prints the version.
if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  kelmor_package_version(v "${SOURCE_DIR}" "${BASE_VERSION}")
  message("${v}")
endif()
