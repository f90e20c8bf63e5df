# On another system than Windows, CTest and CMake run Windows programs under Wine, with a prefix in the build tree, without a
# display, and without new entries in the user's menus.
set(velto_wine
    /usr/bin/env "WINEPREFIX=${CMAKE_BINARY_DIR}/wine" WINEDEBUG=-all DISPLAY=
    "WINEDLLOVERRIDES=mscoree,mshtml,winemenubuilder.exe=")
set(CMAKE_CROSSCOMPILING_EMULATOR ${velto_wine} wine)
