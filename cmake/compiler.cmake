# How our own sources are compiled and linked.

add_compile_options(-Wall -Wextra -Werror)
# For the module and its libraries beside that.
set(velto_strict_warnings -Wconversion -Wsign-conversion -Wshadow)

if(WIN32)
    add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00 UNICODE _UNICODE NOMINMAX)
    # The C++ runtime and winpthread go into each binary: beside it only FFmpeg's DLLs are needed.
    add_link_options(-static -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
endif()
