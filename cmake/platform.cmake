# velto_platform_library(<name> <folder>) makes the target velto_<name>: our stand-in from
# platform/<name>, or, with a folder, the host platform's own library from <folder>/lib, whose
# header velto_include finds in <folder>/include.
function(velto_platform_library name folder)
    if(NOT folder)
        add_subdirectory("platform/${name}")
        return()
    endif()
    file(GLOB libraries "${folder}/lib/*.a" "${folder}/lib/*.lib")
    if(NOT libraries OR NOT IS_DIRECTORY "${folder}/include/${name}")
        string(TOUPPER "${name}" upper)
        message(FATAL_ERROR "VELTO_PLATFORM_${upper}=${folder} needs include/${name}/ and a library in lib/.")
    endif()
    add_library(velto_${name} INTERFACE)
    target_link_libraries(velto_${name} INTERFACE velto_include ${libraries})
endfunction()
