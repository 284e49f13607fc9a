// Every exported function of the groups, with each pointer that it needs missing in turn.

#include "support/Utilities.h"

namespace {
/// No failing call may write here.
unsigned char untouched[64];
int thing;
void* const object = &thing;

template <class T>
T* out()
{
    return reinterpret_cast<T*>(untouched);
}

/// Stands for an argument that may be null, and is.
struct None
{
    template <class T>
    operator T*() const // NOLINT: it is any pointer
    {
        return nullptr;
    }
};
constexpr None kNone;

/// Outside the templates, which are instantiated for each argument.
void expectRefused(const char* name, std::size_t argument, long code)
{
    EXPECT_EQ(code, 87) << name << ", argument " << argument;
    EXPECT_TRUE(
        std::all_of(std::begin(untouched), std::end(untouched), [](unsigned char c) { return c == 0x5a; }))
        << name << ", argument " << argument;
}

template <std::size_t At, class Function, class... Arguments>
void nullAt(const char* name, Function function, std::tuple<Arguments...> arguments)
{
    if constexpr (std::is_pointer_v<std::tuple_element_t<At, std::tuple<Arguments...>>>) {
        std::get<At>(arguments) = nullptr;
        std::memset(untouched, 0x5a, sizeof untouched);
        expectRefused(name, At + 1, static_cast<long>(std::apply(function, arguments)));
    }
}

template <class Function, class... Arguments>
void eachNull(const char* name, Function function, Arguments... arguments)
{
    [&]<std::size_t... At>(std::index_sequence<At...>)
    {
        (nullAt<At>(name, function, std::make_tuple(arguments...)), ...);
    }
    (std::index_sequence_for<Arguments...>());
}

const struct
{
    const char* name;
    void (*check)();
} kRows[] = {
#include <null_calls.inc>
};

} // namespace

TEST(Utilities, RefuseEveryMissingPointer)
{
    std::set<std::string> missing = {
#include <null_names.inc>
    };
    for (const char* other : {"ImpersonateCurrentUser", "SetCurrentUserSession", "_wcsistr", "_stristr",
                              "SetFirstCharW", "SetFirstCharA"})
        EXPECT_EQ(missing.erase(other), 1U) << other;
    for (const auto& row : kRows) {
        row.check();
        EXPECT_EQ(missing.erase(row.name), 1U) << row.name;
    }
    EXPECT_TRUE(missing.empty()) << *missing.begin() << " has no row";
    EXPECT_EQ(_stristr(nullptr, "a"), nullptr);
    EXPECT_EQ(_stristr("a", nullptr), nullptr);
    EXPECT_EQ(SetFirstCharA(nullptr, 'a', 'b'), nullptr);
    utilsFreeMemory(nullptr);
}
