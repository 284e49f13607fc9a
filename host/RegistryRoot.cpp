#include "RegistryRoot.h"

#include "OwnedText.h"

#include "core/win32/utils/registry/api.h"

std::optional<RegistryRoot> parseRegistryRoot(const std::wstring& text)
{
    HKEY root = nullptr;
    OwnedBuffer<wchar_t> key;
    if (RegistryParsePath(text.c_str(), &root, key.target()) != ERROR_SUCCESS)
        return std::nullopt;
    return RegistryRoot{root, key.get()};
}
