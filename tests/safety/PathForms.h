#pragma once

#include <random>
#include <string>

/// The choices of one round, the same for the same seed and round.
class Choices
{
public:
    Choices(unsigned seed, unsigned round) : m_engine(seed * 1000003U + round) {}

    unsigned below(unsigned bound) { return static_cast<unsigned>(m_engine() % bound); }
    bool oneIn(unsigned bound) { return below(bound) == 0; }
    template <class Container>
    const auto& of(const Container& container)
    {
        return *std::next(std::begin(container), below(static_cast<unsigned>(std::size(container))));
    }

private:
    std::mt19937 m_engine;
};

/// One of the many ways to write a path.
struct PathForm
{
    std::wstring text;
    std::string name;
    bool relative = false; ///< means something else with another current folder
};

/// Writes the path of `full` ("Z:\...\root\x") below `world` in a random form that names it and nothing else:
/// whatever a form's dots, slashes and detours are, each name stands for the entry of just that name.
/// `current` is the current folder of drive Z:, which is in the world. With `folder` a separator may follow.
PathForm randomForm(Choices& choices, const std::wstring& full, const std::wstring& world,
                    const std::wstring& current, bool folder);
