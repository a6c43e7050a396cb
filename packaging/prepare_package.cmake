# What Debian's policy requires of installed files, done before CPack packs them: programs without symbols
# and compiler versions, and compressed manual pages and changelogs. Without a name and a time in the header,
# equal documents stay equal.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(file ${files})
    if(file MATCHES "/Contents/MacOS/[^/]+$|\\.so$")
        execute_process(COMMAND strip --strip-unneeded --remove-section=.comment "${file}"
            COMMAND_ERROR_IS_FATAL ANY)
    elseif(file MATCHES "/share/man/.*\\.[1-9]$|/changelog$")
        execute_process(COMMAND gzip -9 --no-name "${file}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
