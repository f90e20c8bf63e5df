# Options for our own sources. Included after the dependencies, because their sources may have warnings.

add_compile_options(-Wall -Wextra)
if(VELTO_WERROR)
    add_compile_options(-Werror)
endif()
if(VELTO_MUTANTS)
    add_compile_options(-w -Wno-narrowing) # the switches in the copies cause many warnings
endif()
# Further warnings, for the module and the stand-ins in platform/.
set(velto_strict_warnings -Wconversion -Wsign-conversion -Wshadow)

if(WIN32)
    add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00 UNICODE _UNICODE NOMINMAX)
    # The C++ runtime and winpthread are linked statically: programs and the DLL need only FFmpeg's DLLs.
    add_link_options(-static -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
    # Two builds of the same sources are identical: no time, and no path of this machine. The last matching map applies.
    add_link_options(-Wl,--no-insert-timestamp)
    set(velto_source_name "/velto-audio-handler-${PROJECT_VERSION}")
    add_compile_options(
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=${velto_source_name}"
        "-ffile-prefix-map=${PROJECT_BINARY_DIR}=${velto_source_name}-build")
endif()
