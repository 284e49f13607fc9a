# What every target of the build is compiled and linked with.
add_library(settings INTERFACE)
target_compile_definitions(settings INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601)

if(MSVC)
    target_compile_options(settings INTERFACE /W4 /WX /utf-8 /permissive- /Zc:__cplusplus)
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
else()
    target_compile_options(settings INTERFACE -Wall -Wextra -Werror)
    # The runtime is linked in, without its symbols for a debugger.
    target_link_options(settings INTERFACE -static $<$<CONFIG:Release>:-s>)
    if(SYSMAINT_TRAP_UNDEFINED)
        # No sanitizer runtime exists for this target; trap mode needs none.
        target_compile_definitions(settings INTERFACE _GLIBCXX_ASSERTIONS)
        target_compile_options(settings INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    endif()
endif()
