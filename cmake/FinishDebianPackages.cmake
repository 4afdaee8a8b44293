# What Debian wants of a package and no other installation has, put into the folders from which the
# packages are made: copyright, changelog, known complaints, and compressed manual pages.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component RUNTIME DEVELOPMENT)
    set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
    string(TOLOWER ${component} folder)
    set(share ${CPACK_TEMPORARY_DIRECTORY}/${folder}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
    file(WRITE ${share}/doc/${package}/changelog
        "modbus-driver (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
        "  * Packaged from the source tree of this version.\n\n"
        " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    file(WRITE ${share}/doc/${package}/copyright
        "Built from the source tree of modbus-driver ${CPACK_PACKAGE_VERSION}.\n"
        "That tree names no copyright holders and grants no licence.\n")
    list(APPEND plain ${share}/doc/${package}/changelog)
    if(component STREQUAL RUNTIME)
        file(WRITE ${share}/lintian/overrides/${package}
            "# Two libraries that only these programs and modules need go with them.\n"
            "package-name-doesnt-match-sonames\n"
            "# The packaging tool adds these calls beside the trigger.\n"
            "maintscript-calls-ldconfig\n")
        file(GLOB pages ${share}/man/man1/*.1)
        list(APPEND plain ${pages})
    endif()
endforeach()
execute_process(COMMAND gzip -9nf ${plain} COMMAND_ERROR_IS_FATAL ANY)
