# The compiler and linker options of every target.
add_library(sysmaint_settings INTERFACE)
target_compile_definitions(sysmaint_settings INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601)

if(MSVC)
    target_compile_options(sysmaint_settings INTERFACE /W4 /utf-8 /permissive- /Zc:__cplusplus)
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
else()
    target_compile_options(sysmaint_settings INTERFACE -Wall -Wextra)
    # The runtime is linked in, without its symbols for a debugger.
    target_link_options(sysmaint_settings INTERFACE -static $<$<CONFIG:Release>:-s>)
    if(SYSMAINT_TRAP_UNDEFINED)
        # No sanitizer runtime exists for this target; trap mode needs none.
        target_compile_definitions(sysmaint_settings INTERFACE _GLIBCXX_ASSERTIONS)
        target_compile_options(sysmaint_settings INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    endif()
endif()
if(SYSMAINT_WARNINGS_AS_ERRORS) # another compiler's new warning does not stop somebody else's build
    target_compile_options(sysmaint_settings INTERFACE $<IF:$<CXX_COMPILER_ID:MSVC>,/WX,-Werror>)
endif()
