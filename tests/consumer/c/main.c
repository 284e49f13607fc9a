/* The library says its version and refuses a stale handle. */
#include <sysmaint.h>

#include <wchar.h>

#if defined(__cplusplus) && __cplusplus >= 201103L
#error Linking the C interface has changed the version of C++
#endif

int main(void)
{
    sysmaint_validator* validator = NULL;
    if (wcscmp(sysmaint_version_text(), VERSION) != 0)
        return 1;
    if (sysmaint_validator_create(L"*.tmp", NULL, &validator) != 0 || sysmaint_validator_close(validator) != 0)
        return 2;
    return sysmaint_validator_close(validator) == 6 ? 0 : 3;
}
