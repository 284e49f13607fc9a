#include "safety/PathForms.h"

#include <array>

namespace {
/// Puts steps between the names that lead nowhere: out of what is there, is not there, or is a link.
std::wstring withDetours(Choices& choices, const std::wstring& names)
{
    constexpr std::array<const wchar_t*, 6> kDetours = {L"sub\\..",     L"out\\..", L"missing\\..",
                                                        L"report.\\..", L".",       L"sub\\.\\deep\\..\\.."};
    std::wstring result = choices.of(kDetours);
    for (std::size_t begin = 0; begin <= names.size();) {
        const std::size_t end = std::min(names.find(L'\\', begin), names.size());
        result += L"\\" + names.substr(begin, end - begin);
        if (end != names.size() && choices.oneIn(3))
            result += std::wstring(L"\\") + choices.of(kDetours);
        begin = end + 1;
    }
    return result;
}
} // namespace

PathForm randomForm(Choices& choices, const std::wstring& full, const std::wstring& world,
                    const std::wstring& current, bool folder)
{
    constexpr std::array<const wchar_t*, 4> kLiteral = {L"\\\\?\\", L"\\??\\", L"\\\\?\\", L"\\??\\"};
    constexpr std::array<const wchar_t*, 2> kDevice = {L"\\\\.\\", L"//?/"};
    PathForm form;
    const unsigned kind = choices.below(7);
    if (kind == 0)
        return {choices.of(kLiteral) + full, "literal"};
    std::wstring names = full.substr(world.size() + 1);
    const bool detours = choices.oneIn(3);
    if (kind >= 4 && kind <= 5) { // from the current folder on
        form.relative = true;
        names = full == current ? std::wstring() : full.substr(current.size() + 1);
        if (detours && !names.empty())
            names = withDetours(choices, names);
        const std::wstring onDrive = std::wstring(L"Z:") + (names.empty() && choices.oneIn(2) ? L"." : L"");
        form.text = kind == 4 ? (names.empty() ? L"." : names) : onDrive + names;
        form.name = kind == 4 ? "relative" : "drive-relative";
    } else {
        form.text = world + L"\\" + (detours ? withDetours(choices, names) : names);
        form.name = kind == 3 ? "rooted" : kind == 2 ? "device" : "absolute";
        if (kind == 3)
            form.text.erase(0, 2);
        if (kind == 2)
            form.text.insert(0, choices.of(kDevice));
    }
    if (detours)
        form.name += ", detours";
    if (folder && form.text.back() != L':' && choices.oneIn(5)) {
        form.text += L'\\';
        form.name += ", closing separator";
    }
    if (choices.oneIn(4)) {
        form.name += ", slashes";
        for (wchar_t& character : form.text)
            if (character == L'\\' && choices.oneIn(2))
                character = L'/';
        if (form.text.compare(0, 2, L"//") == 0 || form.text.compare(0, 2, L"\\/") == 0 ||
            form.text.compare(0, 2, L"/\\") == 0)
            form.text.replace(0, 4, choices.of(kDevice)); // a mixture of both is a network path to some
    }
    return form;
}
