#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/scanengine/api.h"

int main()
{
    void* logger = CreateLogger(L"consumer");
    return CloseLogger(logger) != 0 ? 0 : 1;
}
