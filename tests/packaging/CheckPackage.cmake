# Builds the Debian package from the build folder and looks inside it: the
# files a desktop needs under /usr, dependencies found by dpkg-shlibdeps.
# Says "not built" (which the test counts as skipped) where the Debian tools
# are missing.
#   cmake -DBUILD=<build folder> -DOUT=<empty folder> -P CheckPackage.cmake
find_program(DPKG_DEB dpkg-deb)
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(NOT DPKG_DEB OR NOT DPKG_SHLIBDEPS)
    message("dpkg-deb or dpkg-shlibdeps missing: the package is not built")
    return()
endif()
file(REMOVE_RECURSE ${OUT})
execute_process(COMMAND cpack -G DEB -B ${OUT} --config ${BUILD}/CPackConfig.cmake
                WORKING_DIRECTORY ${BUILD} RESULT_VARIABLE failed OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(failed)
    message(FATAL_ERROR "cpack failed: ${said}")
endif()
file(GLOB packages ${OUT}/kestrel_*.deb)
list(LENGTH packages count)
if(NOT count EQUAL 1)
    message(FATAL_ERROR "expected one kestrel_*.deb in ${OUT}, found: ${packages}")
endif()
execute_process(COMMAND ${DPKG_DEB} -c ${packages} OUTPUT_VARIABLE contents)
foreach(path ./usr/bin/kestrel ./usr/bin/kestrel-cli ./usr/share/kestrel/KestHelp.htm
             ./usr/share/applications/kestrel.desktop ./usr/share/mime/packages/kestrel.xml
             ./usr/share/icons/hicolor/48x48/apps/kestrel.png
             ./usr/share/man/man1/kestrel-cli.1.gz ./usr/share/doc/kestrel/copyright)
    string(FIND "${contents}" " ${path}\n" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "the package lacks ${path}:\n${contents}")
    endif()
endforeach()
execute_process(COMMAND ${DPKG_DEB} -f ${packages} Package Depends OUTPUT_VARIABLE control)
if(NOT control MATCHES "Package: kestrel" OR NOT control MATCHES "libqt6widgets6"
   OR NOT control MATCHES "libc6")
    message(FATAL_ERROR "the package's control fields: ${control}")
endif()
file(REMOVE_RECURSE ${OUT})
