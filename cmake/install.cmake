# What `cmake --install` copies, in components:
#   runtime        bin/: the module, FFmpeg's DLLs, velto-host
#   development    include/, lib/: the header, import libraries, the CMake package VeltoAudioHandler, a pkg-config file
#   examples       share/velto-audio-handler/examples/: the example hosts, with a project that uses the CMake package
#   licences       licenses/: the texts and copyright lines of packaging/parts.toml
#   documentation  doc/: the site that scripts/site makes; nothing if it has not been made
# The folders are fixed, because the package may be moved: each file finds the others by their relative place.
include(CMakePackageConfigHelpers)

install(TARGETS velto-host RUNTIME DESTINATION bin COMPONENT runtime)
foreach(dll IN LISTS velto_ffmpeg_dlls)
    install(PROGRAMS "${velto_ffmpeg_root}/bin/${dll}" DESTINATION bin COMPONENT runtime)
endforeach()

set_target_properties(velto_interface PROPERTIES EXPORT_NAME headers)
set_target_properties(LibVeltoAudioHandler PROPERTIES EXPORT_NAME AudioHandler)
install(TARGETS velto_interface LibVeltoAudioHandler EXPORT VeltoAudioHandlerTargets
    RUNTIME DESTINATION bin COMPONENT runtime
    ARCHIVE DESTINATION lib COMPONENT development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION include COMPONENT development)
if(velto_msvc_import_library) # else it is the import library of the target
    install(FILES "${velto_msvc_import_library}" DESTINATION lib COMPONENT development)
endif()
install(FILES "${PROJECT_SOURCE_DIR}/packaging/exports.def" DESTINATION lib COMPONENT development
    RENAME LibVeltoAudioHandler.def)

set(config "${CMAKE_BINARY_DIR}/VeltoAudioHandler")
set(velto_bin bin)
set(velto_lib lib)
string(JOIN " " runtime_dlls ${velto_ffmpeg_dlls})
configure_package_config_file("${PROJECT_SOURCE_DIR}/packaging/VeltoAudioHandlerConfig.cmake.in"
    "${config}/VeltoAudioHandlerConfig.cmake" INSTALL_DESTINATION lib/cmake/VeltoAudioHandler
    PATH_VARS velto_bin velto_lib)
# The file also refuses a compiler with another size of pointers.
write_basic_package_version_file("${config}/VeltoAudioHandlerConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(EXPORT VeltoAudioHandlerTargets NAMESPACE Velto:: DESTINATION lib/cmake/VeltoAudioHandler COMPONENT development)
install(FILES "${config}/VeltoAudioHandlerConfig.cmake" "${config}/VeltoAudioHandlerConfigVersion.cmake"
    "${PROJECT_SOURCE_DIR}/packaging/VeltoCopyRuntime.cmake"
    DESTINATION lib/cmake/VeltoAudioHandler COMPONENT development)
configure_file("${PROJECT_SOURCE_DIR}/packaging/velto-audio-handler.pc.in" "${config}/velto-audio-handler.pc" @ONLY)
install(FILES "${config}/velto-audio-handler.pc" DESTINATION lib/pkgconfig COMPONENT development)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/" DESTINATION share/velto-audio-handler/examples COMPONENT examples)

set(VELTO_SITE "${PROJECT_SOURCE_DIR}/build/site" CACHE PATH "The site that scripts/site makes, to be installed")
install(DIRECTORY "${VELTO_SITE}/" DESTINATION doc COMPONENT documentation OPTIONAL)

find_program(VELTO_PYTHON NAMES python3 HINTS /usr/bin DOC "Python 3.11 or later, which writes the licences")
install(CODE "
    execute_process(
        COMMAND \"${VELTO_PYTHON}\" -B \"${PROJECT_SOURCE_DIR}/scripts/package_parts.py\" licences
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/licenses\" \"${velto_ffmpeg_root}\" \"${VELTO_SITE}\"
        COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT licences)
