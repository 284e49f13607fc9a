#pragma once

#include "support/Test.h"

/// The choices of one round, the same for the same seed and round.
struct Choices : std::mt19937
{
    Choices(unsigned seed, unsigned round) : std::mt19937(seed * 1000003U + round) {}
    unsigned below(unsigned bound) { return static_cast<unsigned>((*this)() % bound); }
    bool oneIn(unsigned bound) { return below(bound) == 0; }
    template <class Container>
    const auto& of(const Container& container)
    {
        return *std::next(std::begin(container), below(static_cast<unsigned>(std::size(container))));
    }
};

/// Adds a detour between names: through an existing folder, a missing one, or a link, and back.
inline std::wstring detour(Choices& choices)
{
    constexpr const wchar_t* kDetours[] = {L"sub\\..\\",     L"out\\..\\", L"missing\\..\\",
                                           L"report.\\..\\", L".\\",       L"sub\\.\\deep\\..\\..\\"};
    return choices.of(kDetours);
}

/// Writes the path "Z:\...\root\x" in a random form that names only it: with any dots, slashes and detours,
/// each name stands for the entry of exactly that name. `world` is the length of what detours leave alone,
/// `current` that of the current folder of drive Z:, each with its separator. With `folder` a separator may
/// follow.
inline std::wstring pathForm(Choices& choices, const std::wstring& path, std::size_t world,
                             std::size_t current, bool folder)
{
    constexpr std::pair<const wchar_t*, char> kForms[] = {
        {L"\\\\?\\Z:", 'l'}, {L"\\??\\Z:", 'l'}, // literal
        {L"Z:", 'f'},        {L"Z:", 'f'},       // full
        {L"\\\\.\\Z:", 'f'}, {L"//?/Z:", 'f'},   // of a device
        {L"", 'f'},          {L"", 'r'},         // of the current drive, and from its folder on
        {L"Z:", 'r'},        {L"Z:", 'r'},       // from the current folder of a drive on
    };
    const auto& [start, kind] = choices.of(kForms);
    const bool literal = kind == 'l';
    const bool relative = kind == 'r';
    const std::size_t kept = relative ? std::min(current, path.size()) : world;
    std::wstring text = relative ? L"" : path.substr(2, world - 2);
    const bool detours = !literal && kept < path.size() && choices.oneIn(3);
    if (detours)
        text += detour(choices);
    for (const wchar_t character : path.substr(kept)) {
        text += character;
        if (detours && character == L'\\' && choices.oneIn(3))
            text += detour(choices);
    }
    if (text.empty() && (*start == 0 || choices.oneIn(2)))
        text = L".";
    if (folder && !literal && !text.empty() && choices.oneIn(5))
        text += L'\\';
    const bool slashes = !literal && choices.oneIn(4);
    for (wchar_t& character : text)
        if (slashes && character == L'\\' && choices.oneIn(2))
            character = L'/';
    return start + text;
}
