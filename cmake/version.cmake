# The version resource of a product: the project's version and what the file is.
function(add_version_resource target FILE_NAME FILE_DESCRIPTION)
    get_target_property(kind ${target} TYPE)
    set(FILE_TYPE 1) # a program
    if(kind STREQUAL SHARED_LIBRARY)
        set(FILE_TYPE 2)
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${target}_version.rc @ONLY)
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
endfunction()
