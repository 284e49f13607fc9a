// What compilers call by themselves, and no runtime library is there to give. By the processor's own
// instructions: a loop might become a call of the very function that it is in.

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
