#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "core/win32/utils/files/include/Files.h"
#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/shell/include/Shell.h"

namespace {
/// Once loaded it stays, because it holds the icons.
SystemLibrary keptLibrary(const wchar_t* name)
{
    SystemLibrary(name).keep();
    return SystemLibrary(name);
}
SystemLibrary windowLibrary()
{
    return keptLibrary(L"user32.dll");
}

using ExtractIcons = UINT(WINAPI*)(const wchar_t*, int, int, int, HICON*, UINT*, UINT, UINT);

/// The pixels of a bitmap, from the bottom line up, 32 bits each.
std::vector<DWORD> pixelsOf(const SystemLibrary& drawing, HBITMAP bitmap, int width, int height)
{
    BITMAPINFO format{};
    format.bmiHeader.biSize = sizeof format.bmiHeader;
    format.bmiHeader.biWidth = width;
    format.bmiHeader.biHeight = height;
    format.bmiHeader.biPlanes = 1;
    format.bmiHeader.biBitCount = 32;
    format.bmiHeader.biCompression = BI_RGB;
    std::vector<DWORD> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const HDC context = drawing.function<decltype(&CreateCompatibleDC)>("CreateCompatibleDC")(nullptr);
    const int lines = drawing.function<decltype(&GetDIBits)>("GetDIBits")(
        context, bitmap, 0, static_cast<UINT>(height), pixels.data(), &format, DIB_RGB_COLORS);
    drawing.function<decltype(&DeleteDC)>("DeleteDC")(context);
    if (lines != height)
        raiseCode(ERROR_INVALID_DATA);
    return pixels;
}
} // namespace

namespace icons {
void* extract(const wchar_t* file, int index, int size)
{
    constexpr int kLargest = 256;
    if (size < 1 || size > kLargest)
        raiseCode(ERROR_INVALID_PARAMETER);
    HICON icon = nullptr;
    const std::wstring path = paths::normalize(file);
    const UINT found = windowLibrary().function<ExtractIcons>("PrivateExtractIconsW")(
        path.c_str(), index, size, size, &icon, nullptr, 1, 0);
    if (found == 0 || found == 0xFFFFFFFF || icon == nullptr)
        raiseCode(GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES
                      ? lastError()
                      : ERROR_RESOURCE_NAME_NOT_FOUND);
    return icon;
}

unsigned long count(const wchar_t* file)
{
    const std::wstring path = paths::normalize(file);
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        raiseLastError();
    const UINT found = windowLibrary().function<ExtractIcons>("PrivateExtractIconsW")(path.c_str(), 0, 0, 0,
                                                                                      nullptr, nullptr, 0, 0);
    return found == 0xFFFFFFFF ? 0 : found;
}

void* ofPath(const wchar_t* path, bool large)
{
    SHFILEINFOW information{};
    const SystemLibrary library = keptLibrary(L"shell32.dll");
    if (library.function<decltype(&SHGetFileInfoW)>("SHGetFileInfoW")(
            paths::normalize(path).c_str(), 0, &information, sizeof information,
            static_cast<UINT>(SHGFI_ICON) | (large ? SHGFI_LARGEICON : SHGFI_SMALLICON)) == 0 ||
        information.hIcon == nullptr)
        raiseCode(ERROR_FILE_NOT_FOUND);
    return information.hIcon;
}

void toBitmapFile(void* icon, const wchar_t* file)
{
    const SystemLibrary windows = windowLibrary();
    const SystemLibrary drawing = keptLibrary(L"gdi32.dll");
    const auto remove = drawing.function<decltype(&DeleteObject)>("DeleteObject");
    using Bitmap = std::unique_ptr<void, decltype(remove)>;
    ICONINFO information{};
    if (!windows.function<decltype(&GetIconInfo)>("GetIconInfo")(static_cast<HICON>(icon), &information))
        raiseLastError();
    const Bitmap color(information.hbmColor, remove);
    const Bitmap mask(information.hbmMask, remove);
    BITMAP size{};
    if (!color ||
        drawing.function<decltype(&GetObjectW)>("GetObjectW")(information.hbmColor, sizeof size, &size) == 0)
        raiseCode(ERROR_NOT_SUPPORTED); // a black-and-white icon
    std::vector<DWORD> pixels = pixelsOf(drawing, information.hbmColor, size.bmWidth, size.bmHeight);
    constexpr DWORD kAlpha = 0xFF000000;
    if (std::none_of(pixels.begin(), pixels.end(), [](DWORD pixel) { return (pixel & kAlpha) != 0; })) {
        // In older icons the mask tells what is transparent.
        const std::vector<DWORD> masked = pixelsOf(drawing, information.hbmMask, size.bmWidth, size.bmHeight);
        for (std::size_t i = 0; i < pixels.size(); ++i)
            pixels[i] |= (masked[i] & ~kAlpha) == 0 ? kAlpha : 0;
    }
    const DWORD bytes = static_cast<DWORD>(pixels.size() * sizeof(DWORD));
    BITMAPFILEHEADER header{};
    header.bfType = 0x4D42; // "BM"
    header.bfOffBits = sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER);
    header.bfSize = header.bfOffBits + bytes;
    BITMAPINFOHEADER format{};
    format.biSize = sizeof format;
    format.biWidth = size.bmWidth;
    format.biHeight = size.bmHeight;
    format.biPlanes = 1;
    format.biBitCount = 32;
    format.biSizeImage = bytes;
    std::basic_string<unsigned char> content;
    const auto append = [&](const void* data, std::size_t count) {
        content.append(static_cast<const unsigned char*>(data), count);
    };
    append(&header, sizeof header);
    append(&format, sizeof format);
    append(pixels.data(), bytes);
    files::writeAtomically(file, content);
}

void destroy(void* icon)
{
    // Not every system gives a reason for the refusal.
    if (!windowLibrary().function<decltype(&DestroyIcon)>("DestroyIcon")(static_cast<HICON>(icon)))
        raiseCode(ERROR_INVALID_CURSOR_HANDLE);
}
} // namespace icons
