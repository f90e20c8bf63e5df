# How CTest and CMake run a program that was built for Windows: under Wine, in a prefix of this
# build tree's own, without a display and without touching the user's menus.
set(velto_wine
    /usr/bin/env "WINEPREFIX=${CMAKE_BINARY_DIR}/wine" WINEDEBUG=-all DISPLAY=
    "WINEDLLOVERRIDES=mscoree,mshtml,winemenubuilder.exe=")
set(CMAKE_CROSSCOMPILING_EMULATOR ${velto_wine} wine)
