# Installs the build into a fresh prefix and checks what a desktop needs:
# the programs, the help page where the program finds it, the menu entry
# (valid, when desktop-file-validate is there), the icons, the file type
# (well-formed, when xmllint is there) and the manuals.
#   cmake -DBUILD=<build folder> -DPREFIX=<empty folder> -P CheckInstall.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX}
                RESULT_VARIABLE failed OUTPUT_QUIET)
if(failed)
    message(FATAL_ERROR "cmake --install failed")
endif()

set(expected
    bin/kestrel
    bin/kestrel-cli
    share/kestrel/KestHelp.htm
    share/applications/kestrel.desktop
    share/mime/packages/kestrel.xml
    share/icons/hicolor/scalable/apps/kestrel.svg
    share/man/man1/kestrel.1.gz
    share/man/man1/kestrel-cli.1.gz
    share/doc/kestrel/copyright
    share/doc/kestrel/changelog.Debian.gz)
foreach(size 16 22 24 32 48 64 128 256 512)
    list(APPEND expected share/icons/hicolor/${size}x${size}/apps/kestrel.png)
endforeach()
foreach(path IN LISTS expected)
    if(NOT EXISTS ${PREFIX}/${path})
        message(FATAL_ERROR "missing from the install: ${path}")
    endif()
endforeach()
# Nothing of the build's own (tests, benches, tools) is installed.
file(GLOB programs RELATIVE ${PREFIX}/bin ${PREFIX}/bin/*)
list(SORT programs)
if(NOT programs STREQUAL "kestrel;kestrel-cli")
    message(FATAL_ERROR "bin/ holds more than the two programs: ${programs}")
endif()

find_program(DESKTOP_FILE_VALIDATE desktop-file-validate)
if(DESKTOP_FILE_VALIDATE)
    execute_process(COMMAND ${DESKTOP_FILE_VALIDATE} ${PREFIX}/share/applications/kestrel.desktop
                    RESULT_VARIABLE invalid OUTPUT_VARIABLE said ERROR_VARIABLE said)
    if(invalid OR NOT said STREQUAL "")
        message(FATAL_ERROR "desktop-file-validate: ${said}")
    endif()
else()
    message(STATUS "desktop-file-validate not installed: the menu entry is not validated")
endif()
find_program(XMLLINT xmllint)
if(XMLLINT)
    execute_process(COMMAND ${XMLLINT} --noout ${PREFIX}/share/mime/packages/kestrel.xml
                    RESULT_VARIABLE invalid ERROR_VARIABLE said)
    if(invalid)
        message(FATAL_ERROR "xmllint: ${said}")
    endif()
endif()
file(READ ${PREFIX}/share/mime/packages/kestrel.xml mime)
foreach(glob "*.#01" "*.#42" "*.#99")
    string(FIND "${mime}" "pattern=\"${glob}\"" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "the file type lacks ${glob}")
    endif()
endforeach()

# The installed program answers on the terminal without a display.
execute_process(COMMAND ${PREFIX}/bin/kestrel --version OUTPUT_VARIABLE version
                RESULT_VARIABLE failed)
if(failed OR NOT version MATCHES "^kestrel [0-9]+\\.[0-9]+\\.[0-9]+")
    message(FATAL_ERROR "kestrel --version said: ${version}")
endif()
execute_process(COMMAND ${PREFIX}/bin/kestrel --help OUTPUT_VARIABLE usage RESULT_VARIABLE failed)
if(failed OR NOT usage MATCHES "Usage: kestrel")
    message(FATAL_ERROR "kestrel --help said: ${usage}")
endif()
file(REMOVE_RECURSE ${PREFIX})
