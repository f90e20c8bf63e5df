# Writes a header with the commit of the sources: cmake -DOUTPUT=FILE -DCOMMIT=NAME -DSOURCE=FOLDER -P commit.cmake
# Without a name, git reports it. "+" marks sources that differ from the commit. Without git, and for sources that were
# unpacked inside another repository, it is "unknown".
if(NOT COMMIT)
    execute_process(COMMAND git -C "${SOURCE}" rev-parse --short=12 HEAD
        OUTPUT_VARIABLE COMMIT OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    execute_process(COMMAND git -C "${SOURCE}" rev-parse --show-prefix
        OUTPUT_VARIABLE folder OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(failed OR folder)
        set(COMMIT unknown)
    else()
        execute_process(COMMAND git -C "${SOURCE}" diff --quiet HEAD RESULT_VARIABLE differs ERROR_QUIET)
        if(differs)
            string(APPEND COMMIT "+")
        endif()
    endif()
endif()
set(text "#define VELTO_COMMIT \"${COMMIT}\"\n")
if(EXISTS "${OUTPUT}")
    file(READ "${OUTPUT}" old)
endif()
if(NOT old STREQUAL text)
    file(WRITE "${OUTPUT}" "${text}")
endif()
