#pragma once

#include <iterator>
#include <random>
#include <string>
#include <utility>

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

/// Puts one more step that leads nowhere between names: out of what is there, is not there, or is a link.
inline std::wstring detour(Choices& choices)
{
    constexpr const wchar_t* kDetours[] = {L"sub\\..\\",     L"out\\..\\", L"missing\\..\\",
                                           L"report.\\..\\", L".\\",       L"sub\\.\\deep\\..\\..\\"};
    return choices.of(kDetours);
}

/// Writes the path "Z:\...\root\x" in a random form that names it and nothing else: whatever a form's dots,
/// slashes and detours are, each name stands for the entry of just that name. `world` is the length of what
/// detours leave alone, `current` of what stands for the current folder of drive Z:, each with its separator.
/// With `folder` one may follow.
inline std::wstring pathForm(Choices& choices, const std::wstring& path, std::size_t world,
                             std::size_t current, bool folder)
{
    constexpr std::pair<const wchar_t*, char> kForms[] = {
        {L"\\\\?\\Z:", 'l'}, {L"\\??\\Z:", 'l'}, // to the letter
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
