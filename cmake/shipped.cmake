# velto_shipped(<target> <description> <file type>) gives a binary of the product:
#  - a version resource; <file type> is VFT_APP or VFT_DLL.
#  - a separate file with its debug information, symbols/<name>.debug next to bin/. The binary refers to this file;
#    with the information inside, it would be several times as large.
#  - the linker's map, symbols/<name>.map, from which a test reads the libraries in the binary.
#  - a PDB file with its public symbols, symbols/<target>.pdb, for Microsoft's debuggers. It, the file with the debug
#    information and the binary have the same build id.
# Visual C++ and clang-cl write the debug information to symbols/<name>.pdb.
enable_language(RC)

function(velto_shipped target description file_type)
    if(file_type STREQUAL VFT_DLL)
        set(file_name "${target}.dll")
    else()
        set(file_name "${target}.exe")
    endif()
    set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
    configure_file("${PROJECT_SOURCE_DIR}/packaging/version.rc.in" "${resource}" @ONLY)
    target_sources(${target} PRIVATE "${resource}")
    set(symbols "${CMAKE_BINARY_DIR}/symbols")
    file(MAKE_DIRECTORY "${symbols}")
    if(MSVC)
        target_link_options(${target} PRIVATE /DEBUG /OPT:REF /OPT:ICF "/MAP:${symbols}/${file_name}.map")
        set_target_properties(${target} PROPERTIES PDB_OUTPUT_DIRECTORY "${symbols}" PDB_NAME "${file_name}")
        return()
    endif()
    target_link_options(${target} PRIVATE
        "-Wl,-Map=${symbols}/${file_name}.map" "-Wl,--build-id,--pdb=${symbols}/${target}.pdb")
    set_property(TARGET ${target} APPEND PROPERTY ADDITIONAL_CLEAN_FILES "${symbols}/${target}.pdb")
    set(debug "${symbols}/$<TARGET_FILE_NAME:${target}>.debug")
    add_custom_command(TARGET ${target} POST_BUILD
        # Without --preserve-dates, these tools write the time into the binary.
        COMMAND "${CMAKE_OBJCOPY}" --preserve-dates --only-keep-debug "$<TARGET_FILE:${target}>" "${debug}"
        COMMAND "${CMAKE_STRIP}" --preserve-dates --strip-unneeded "$<TARGET_FILE:${target}>"
        COMMAND "${CMAKE_OBJCOPY}" --preserve-dates "--add-gnu-debuglink=${debug}" "$<TARGET_FILE:${target}>"
        VERBATIM)
endfunction()
