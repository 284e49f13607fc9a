// Functions that compilers call implicitly; there is no runtime library to provide them. They use the
// processor's own instructions, because a compiler might turn a loop into a call of the same function.

#include <intrin.h>

#include <cstddef>

extern "C" {
void* memcpy(void* target, const void* source, std::size_t size)
{
    __movsb(static_cast<unsigned char*>(target), static_cast<const unsigned char*>(source), size);
    return target;
}

void* memset(void* target, int value, std::size_t size)
{
    __stosb(static_cast<unsigned char*>(target), static_cast<unsigned char>(value), size);
    return target;
}
}
