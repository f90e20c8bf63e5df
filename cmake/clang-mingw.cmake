# As mingw.cmake, but clang compiles C++. Precompiled headers are GCC's.
include("${CMAKE_CURRENT_LIST_DIR}/mingw.cmake")
set(CMAKE_CXX_COMPILER "${CMAKE_CURRENT_LIST_DIR}/clang-mingw")
set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
