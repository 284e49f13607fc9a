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

template <class Function, class... Arguments>
void eachNull(const char* name, Function function, Arguments... arguments)
{
    const auto nullAt = [&]<std::size_t At>(std::integral_constant<std::size_t, At>) {
        if constexpr (std::is_pointer_v<std::tuple_element_t<At, std::tuple<Arguments...>>>) {
            std::tuple<Arguments...> all(arguments...);
            std::get<At>(all) = nullptr;
            std::memset(untouched, 0x5a, sizeof untouched);
            expectRefused(name, At + 1, static_cast<long>(std::apply(function, all)));
        }
    };
    [&]<std::size_t... At>(std::index_sequence<At...>)
    {
        (nullAt(std::integral_constant<std::size_t, At>()), ...);
    }
    (std::index_sequence_for<Arguments...>());
}

const std::pair<const char*, void (*)()> kRows[] = {
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
    for (const auto& [name, check] : kRows) {
        check();
        EXPECT_EQ(missing.erase(name), 1U) << name;
    }
    EXPECT_TRUE(missing.empty()) << *missing.begin() << " has no row";
    EXPECT_EQ(_stristr(nullptr, "a"), nullptr);
    EXPECT_EQ(_stristr("a", nullptr), nullptr);
    EXPECT_EQ(SetFirstCharA(nullptr, 'a', 'b'), nullptr);
    utilsFreeMemory(nullptr);
}
