# Options for our own sources. Included after the dependencies, because their sources may have warnings.

if(MSVC) # Visual C++ or clang-cl
    add_compile_options(/W4 /utf-8 /permissive- /Zc:__cplusplus)
else()
    add_compile_options(-Wall -Wextra)
endif()
if(VELTO_WERROR)
    add_compile_options($<IF:$<BOOL:${MSVC}>,/WX,-Werror>)
endif()
if(VELTO_MUTANTS)
    add_compile_options(-w -Wno-narrowing) # the switches in the copies cause many warnings
endif()
# Further warnings, for the module and the stand-ins in platform/.
if(NOT MSVC)
    set(velto_strict_warnings -Wconversion -Wsign-conversion -Wshadow)
endif()

if(WIN32)
    add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00 UNICODE _UNICODE NOMINMAX)
endif()
if(MSVC)
    # The C++ runtime is linked statically: programs and the DLL need only FFmpeg's DLLs.
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
    add_link_options(/DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA)
elseif(MINGW)
    # The C++ runtime and winpthread are linked statically: programs and the DLL need only FFmpeg's DLLs.
    add_link_options(-static -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
    # Two builds of the same sources are identical: no time, and no path of this machine. The last matching map applies.
    add_link_options(-Wl,--no-insert-timestamp)
    set(velto_source_name "/velto-audio-handler-${PROJECT_VERSION}")
    add_compile_options(
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=${velto_source_name}"
        "-ffile-prefix-map=${PROJECT_BINARY_DIR}=${velto_source_name}-build")
endif()
