# Third-party libraries: FFmpeg, header-only libraries, GoogleTest.

add_library(velto_ffmpeg INTERFACE)
add_library(velto::ffmpeg ALIAS velto_ffmpeg)
set(velto_ffmpeg_parts avcodec avformat avutil swresample)
if(DEFINED ENV{XDG_CACHE_HOME})
    set(cache "$ENV{XDG_CACHE_HOME}/velto-audio-handler")
else()
    set(cache "$ENV{HOME}/.cache/velto-audio-handler")
endif()
if(WIN32)
    if(NOT VELTO_FFMPEG_ROOT)
        file(REAL_PATH "${cache}/ffmpeg-windows" velto_ffmpeg_root)
    else()
        file(REAL_PATH "${VELTO_FFMPEG_ROOT}" velto_ffmpeg_root BASE_DIRECTORY "${PROJECT_SOURCE_DIR}")
    endif()
    if(NOT EXISTS "${velto_ffmpeg_root}/include/libavcodec/avcodec.h")
        message(FATAL_ERROR "There is no FFmpeg for Windows in ${velto_ffmpeg_root}.\n"
            "Run scripts/setup, or choose another 5.1 build with -DVELTO_FFMPEG_ROOT=<folder>.")
    endif()
    set(VELTO_FFMPEG_USED "${velto_ffmpeg_root}" CACHE INTERNAL "The FFmpeg build of the last configuration")
    # 59, 59, 57 and 4 are the ABI of FFmpeg 5.x.
    set(velto_ffmpeg_dlls avcodec-59.dll avformat-59.dll avutil-57.dll swresample-4.dll)
    foreach(dll IN LISTS velto_ffmpeg_dlls)
        if(NOT EXISTS "${velto_ffmpeg_root}/bin/${dll}")
            message(FATAL_ERROR "${velto_ffmpeg_root}/bin has no ${dll}: this is not a shared build of FFmpeg 5.1.")
        endif()
    endforeach()
    # Another build of FFmpeg may have no symbols.
    file(GLOB symbols "${velto_ffmpeg_root}/symbols/*.debug" "${velto_ffmpeg_root}/symbols/*.pdb")
    file(COPY ${symbols} DESTINATION "${CMAKE_BINARY_DIR}/symbols")
    # velto_copy_ffmpeg(<target> <folder>): the target copies the DLLs next to the programs that need them.
    function(velto_copy_ffmpeg target folder)
        file(MAKE_DIRECTORY "${folder}")
        foreach(dll IN LISTS velto_ffmpeg_dlls)
            add_custom_command(
                OUTPUT "${folder}/${dll}"
                COMMAND "${CMAKE_COMMAND}" -E copy "${velto_ffmpeg_root}/bin/${dll}" "${folder}"
                DEPENDS "${velto_ffmpeg_root}/bin/${dll}"
                COMMENT "Copying ${dll}")
            list(APPEND copies "${folder}/${dll}")
        endforeach()
        add_custom_target(${target} DEPENDS ${copies})
    endfunction()
    velto_copy_ffmpeg(velto_ffmpeg_dlls "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
    velto_copy_ffmpeg(velto_test_ffmpeg_dlls "${velto_test_bin}")
    # A link in the build tree: debug information has the same names wherever the cache is.
    if(MSVC) # on Windows, making links needs a privilege
        target_include_directories(velto_ffmpeg SYSTEM INTERFACE "${velto_ffmpeg_root}/include")
    else()
        file(CREATE_LINK "${velto_ffmpeg_root}" "${CMAKE_BINARY_DIR}/ffmpeg" SYMBOLIC)
        target_include_directories(velto_ffmpeg SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/ffmpeg/include")
    endif()
    foreach(part IN LISTS velto_ffmpeg_parts)
        if(MSVC) # FFmpeg installs these libraries in bin; some packages of it have them in lib
            find_file(VELTO_${part}_LIB "${part}.lib" PATHS "${velto_ffmpeg_root}" PATH_SUFFIXES lib bin
                NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
            target_link_libraries(velto_ffmpeg INTERFACE "${VELTO_${part}_LIB}")
        else()
            target_link_libraries(velto_ffmpeg INTERFACE "${CMAKE_BINARY_DIR}/ffmpeg/lib/lib${part}.dll.a")
        endif()
    endforeach()
else()
    find_package(PkgConfig REQUIRED)
    # scripts/setup builds FFmpeg 5.1 where the distribution has another version.
    if(EXISTS "${cache}/ffmpeg-native")
        set(ENV{PKG_CONFIG_PATH} "${cache}/ffmpeg-native/lib/pkgconfig:$ENV{PKG_CONFIG_PATH}")
    endif()
    pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
        libavcodec>=59 libavcodec<60 libavformat>=59 libavformat<60
        libavutil>=57 libavutil<58 libswresample>=4 libswresample<5)
    target_link_libraries(velto_ffmpeg INTERFACE PkgConfig::FFMPEG)
endif()

# velto_ffmpeg_version: that of the build, for the log.
find_file(ffversion libavutil/ffversion.h HINTS "${velto_ffmpeg_root}/include" ${FFMPEG_INCLUDE_DIRS} NO_CACHE
    NO_CMAKE_FIND_ROOT_PATH)
set(velto_ffmpeg_version unknown)
if(ffversion)
    file(STRINGS "${ffversion}" line REGEX "FFMPEG_VERSION")
    string(REGEX REPLACE ".*\"(.*)\".*" "\\1" velto_ffmpeg_version "${line}")
endif()

add_library(velto_header_libs INTERFACE)
add_library(velto::header_libs ALIAS velto_header_libs)
target_compile_definitions(velto_header_libs INTERFACE FMT_HEADER_ONLY)
if(CMAKE_HOST_WIN32)
    find_package(fmt REQUIRED)
    find_package(CLI11 REQUIRED)
    find_package(nlohmann_json REQUIRED)
    target_link_libraries(velto_header_libs INTERFACE fmt::fmt-header-only CLI11::CLI11 nlohmann_json::nlohmann_json)
else()
    # A folder in the build tree with symbolic links to Debian's header-only libraries: the cross compiler must not see the
    # rest of /usr/include.
    set(header_libs "${CMAKE_BINARY_DIR}/header_libs")
    file(MAKE_DIRECTORY "${header_libs}")
    foreach(library IN ITEMS fmt CLI nlohmann)
        if(NOT EXISTS "/usr/include/${library}")
            message(FATAL_ERROR "/usr/include/${library} is missing. Run scripts/setup.")
        endif()
        file(CREATE_LINK "/usr/include/${library}" "${header_libs}/${library}" SYMBOLIC)
    endforeach()
    target_include_directories(velto_header_libs SYSTEM INTERFACE "${header_libs}")
endif()

# velto::zlib, for velto-host on Windows.
if(WIN32)
    add_library(velto_zlib INTERFACE)
    add_library(velto::zlib ALIAS velto_zlib)
    if(MSVC)
        find_package(ZLIB REQUIRED)
        target_link_libraries(velto_zlib INTERFACE ZLIB::ZLIB)
    else()
        target_link_libraries(velto_zlib INTERFACE -l:libz.a)
    endif()
endif()

find_package(Threads REQUIRED)

if(BUILD_TESTING AND NOT WIN32)
    find_package(GTest REQUIRED)
elseif(BUILD_TESTING)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
    foreach(library gtest gtest_main gmock)
        target_compile_options(${library} PRIVATE -O0 -g1) # to compile them quickly in each new build tree
    endforeach()
endif()
