# Makes build_version.h in OUTPUT. The commit is what the package's source was exported with, or what git says.
if(EXISTS ${SOURCE}/COMMIT)
    file(STRINGS ${SOURCE}/COMMIT commit LIMIT_COUNT 1)
else()
    get_filename_component(parent ${SOURCE} DIRECTORY)
    set(ENV{GIT_CEILING_DIRECTORIES} ${parent}) # no repository that the source merely lies in
    execute_process(COMMAND git -c safe.directory=${SOURCE} -C ${SOURCE} describe --always --dirty --abbrev=12 --exclude=*
                    OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT commit)
    set(commit unknown)
endif()
configure_file(${SOURCE}/src/build_version.h.in ${OUTPUT}/build_version.h @ONLY)
