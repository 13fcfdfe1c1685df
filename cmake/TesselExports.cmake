# Hidden visibility alone does not keep a library's interface clean: instances of the standard
# library's templates are visible by that library's own wish, and would turn into a promise of ours
# or collide with another library's. So the linker gets a version script, made from one list.

# tessel_limit_exports(TARGET LIST): TARGET shows the classes, namespaces and functions in the file LIST only.
function(tessel_limit_exports target list)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
    file(STRINGS ${list} entries REGEX "^[^#]")
    set(patterns "")
    foreach(entry IN LISTS entries)
        if(entry MATCHES "^class ([A-Za-z0-9_:]+)$")
            set(class ${CMAKE_MATCH_1})
            string(APPEND patterns "            ${class}::*;\n")
            # In quotes, since these names hold blanks, and therefore without wildcards.
            foreach(table IN ITEMS "vtable" "VTT" "typeinfo" "typeinfo name")
                string(APPEND patterns "            \"${table} for ${class}\";\n")
            endforeach()
        elseif(entry MATCHES "^namespace ([A-Za-z0-9_]+)$")
            string(APPEND patterns "            ${CMAKE_MATCH_1}::*;\n")
        elseif(entry MATCHES "^function (.+)$")
            string(APPEND patterns "            \"${CMAKE_MATCH_1}\";\n")
        else()
            message(FATAL_ERROR "${list}: neither class, namespace nor function: ${entry}")
        endif()
    endforeach()
    set(script ${CMAKE_CURRENT_BINARY_DIR}/exports.map)
    file(CONFIGURE OUTPUT ${script} @ONLY CONTENT
"TESSEL_${PROJECT_VERSION_MAJOR} {
    global:
        extern \"C++\" {
@patterns@        };
    local: *;
};
")
    target_link_options(${target} PRIVATE LINKER:--version-script=${script})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()
