# What `cmake --install` lays down: headers, library, tool, and the files by which CMake and
# pkg-config find them. Everything can be moved afterwards together with its prefix.
include(CMakePackageConfigHelpers)

set(tessel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Tessel)

# Private headers end in _p.h and stay behind.
install(DIRECTORY src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tessel
    FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE PATTERN Exchange EXCLUDE)
install(TARGETS Tessel EXPORT TesselTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# The tool, installed by its own folder, finds the library beside itself under any prefix.
if(TARGET TesselTool)
    file(RELATIVE_PATH tessel_library_from_tool
        ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(TesselTool PROPERTIES INSTALL_RPATH "$ORIGIN/${tessel_library_from_tool}")
endif()

install(EXPORT TesselTargets NAMESPACE Tessel:: DESTINATION ${tessel_package_dir})
configure_package_config_file(cmake/TesselConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/TesselConfig.cmake INSTALL_DESTINATION ${tessel_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/TesselConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/TesselConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/TesselConfigVersion.cmake
    DESTINATION ${tessel_package_dir})

# pkg-config knows where it found the file; only folders outside the prefix need their full path.
file(RELATIVE_PATH pc_up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_up}")
foreach(folder IN ITEMS libdir includedir)
    string(TOUPPER CMAKE_INSTALL_${folder} variable)
    if(IS_ABSOLUTE "${${variable}}")
        set(pc_${folder} "${${variable}}")
    else()
        set(pc_${folder} "\${prefix}/${${variable}}")
    endif()
endforeach()
configure_file(cmake/tessel.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tessel.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tessel.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The models for displays: the component Models of the package, and tessel-models.pc.
if(TARGET TesselModels)
    install(DIRECTORY models/TesselModels DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE)
    install(TARGETS TesselModels EXPORT TesselModelsTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    set_target_properties(TesselModels PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(EXPORT TesselModelsTargets NAMESPACE Tessel:: DESTINATION ${tessel_package_dir})
    configure_file(cmake/tessel-models.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tessel-models.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tessel-models.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
