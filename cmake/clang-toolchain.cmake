# The second compiler: clang and lld for 64-bit Windows, with the headers, the C++ library and the runtime of Debian's
# MinGW GCC (POSIX thread model).
include(${CMAKE_CURRENT_LIST_DIR}/mingw-toolchain.cmake)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-libgcc-file-name OUTPUT_VARIABLE runtime
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(runtime ${runtime} DIRECTORY)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
foreach(language C CXX)
    set(CMAKE_${language}_COMPILER_TARGET x86_64-w64-mingw32)
    # The C++ library was built with emulated thread-local storage, and some of its headers access it.
    set(CMAKE_${language}_FLAGS_INIT -femulated-tls)
    set(CMAKE_${language}_STANDARD_LIBRARIES -lpthread)
endforeach()
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
    ${runtime}/include/c++ ${runtime}/include/c++/x86_64-w64-mingw32 ${runtime}/include/c++/backward)
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${runtime}")
endforeach()
