# The manual pages, out of docs/man: target TesselManPages, part of a whole build, and installed.
# By its path first: another Python in front of the system's would not have what Sphinx needs.
find_program(TESSEL_SPHINX_BUILD sphinx-build HINTS /usr/bin REQUIRED)
mark_as_advanced(TESSEL_SPHINX_BUILD)

file(GLOB man_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-9].md)
set(man_folder ${PROJECT_BINARY_DIR}/man)
set(man_pages "")
foreach(source IN LISTS man_sources)
    get_filename_component(page ${source} NAME_WLE)
    string(REGEX REPLACE ".*\\." "" section ${page})
    list(APPEND man_pages ${man_folder}/${page})
    install(FILES ${man_folder}/${page}
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT manual)
endforeach()

add_custom_command(OUTPUT ${man_pages}
    COMMAND ${TESSEL_SPHINX_BUILD} -W --keep-going -q -E -t man -b man
        -d ${PROJECT_BINARY_DIR}/man-doctrees ${PROJECT_SOURCE_DIR}/docs ${man_folder}
    DEPENDS ${man_sources}
        ${PROJECT_SOURCE_DIR}/docs/conf.py ${PROJECT_SOURCE_DIR}/docs/man/index.md
    COMMENT "Manual pages" VERBATIM)
add_custom_target(TesselManPages ALL DEPENDS ${man_pages})
