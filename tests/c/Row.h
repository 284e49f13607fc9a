#pragma once

#include "c/Calls.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "support/Process.h"

// What an argument is, where its type does not say it.

/// A pointer that may be null.
template <class T>
struct Optional
{
    T value;
};
template <class T>
Optional(T) -> Optional<T>;
/// An output that does not belong to the caller, or that the row itself gives back.
template <class T>
struct Kept
{
    T value;
};
template <class T>
Kept(T) -> Kept<T>;
/// A handle that the function refuses another kind of object for (120).
template <class T>
struct Typed
{
    T value;
    T another;
};
template <class T>
Typed(T, T) -> Typed<T>;
/// A number of a few; `wrong` is none of them (87).
struct Number
{
    std::uint32_t value;
    std::uint32_t wrong;
};
/// A handle of a family's C++ functions.
struct CppHandle
{
    void* value;
};
/// Any event, or none.
struct CancelEvent
{
    void* value = nullptr;
};

template <class T, template <class> class Of>
inline constexpr bool kIs = false;
template <class T, template <class> class Of>
inline constexpr bool kIs<Of<T>, Of> = true;

/// How an output that belongs to the caller is given back.
inline void giveBack(sysmaint_validator* made)
{
    sysmaint_validator_close(made);
}
inline void giveBack(sysmaint_ftp* made)
{
    sysmaint_ftp_close(made);
}
inline void giveBack(sysmaint_item* made)
{
    sysmaint_item_close(made);
}
inline void giveBack(sysmaint_shared_item* made)
{
    sysmaint_item_unshare(made);
}
inline void giveBack(sysmaint_scan* made)
{
    sysmaint_scan_close(made);
}
inline void giveBack(sysmaint_wiper* made)
{
    sysmaint_wiper_close(made);
}
inline void giveBack(sysmaint_message* made)
{
    sysmaint_message_close(made);
}
inline void giveBack(sysmaint_pool* made)
{
    sysmaint_pool_close(made);
}
inline void giveBack(sysmaint_topic* made)
{
    sysmaint_topic_close(made);
}
inline void giveBack(sysmaint_subscription* made)
{
    sysmaint_topic_unsubscribe(made, 60000);
}
inline void giveBack(sysmaint_offline_key* made)
{
    sysmaint_offline_close(made);
}
inline void giveBack(sysmaint_reporter* made)
{
    sysmaint_reporter_close(made, 60000);
}
inline void giveBack(void* made)
{
    utilsFreeMemory(made);
}
inline void giveBack(const void*) {}
inline void giveBack(std::uint64_t) {}

/// A function of the interface and its arguments.
template <class... Parameters>
class Function
{
public:
    using Arguments = std::tuple<Parameters...>;

    Function(const char* name, std::int32_t (*function)(Parameters...)) : m_name(name), m_function(function)
    {
    }

    /// Calls it; with `failing` the allocation of that number fails. A failure leaves the outputs as they
    /// were, and is the thread's last one.
    std::int32_t operator()(const Arguments& arguments, long failing = 0) const
    {
        const std::string before = outputsOf(arguments);
        if (failing != 0)
            HeapWatch::arm(failing);
        const std::int32_t code = std::apply(m_function, arguments);
        HeapWatch::disarm();
        if (code == ERROR_SUCCESS)
            return code;
        EXPECT_EQ(outputsOf(arguments), before) << m_name;
        sysmaint_failure failure{sizeof failure, 0, nullptr, nullptr};
        EXPECT_EQ(sysmaint_last_failure(&failure), 0);
        EXPECT_EQ(failure.code, code) << m_name;
        EXPECT_STREQ(failure.function, m_name);
        EXPECT_NE(failure.text, nullptr) << m_name;
        return code;
    }

    /// Makes each argument wrong in turn. `given` are the same as the row names them.
    template <class... Given>
    void refuse(const Arguments& arguments, const std::tuple<Given...>& given) const
    {
        [&]<std::size_t... At>(std::index_sequence<At...>)
        {
            (refuseAt<At>(arguments, std::get<At>(given)), ...);
        }
        (std::index_sequence_for<Parameters...>());
    }

private:
    template <class T>
    static constexpr bool isVoid = std::is_void_v<std::remove_pointer_t<T>>;
    template <class T>
    static constexpr bool isPointer = std::is_pointer_v<T> && !std::is_function_v<std::remove_pointer_t<T>>;
    template <class T>
    static constexpr bool isKnown = requires
    {
        sizeof(std::remove_pointer_t<T>);
    };
    template <class T>
    static constexpr bool isOutput =
        isPointer<T> && !isVoid<T> && isKnown<T> && !std::is_const_v<std::remove_pointer_t<T>>;

    static std::string outputsOf(const Arguments& arguments)
    {
        std::string bytes;
        const auto append = [&]<class T>(T argument) {
            if constexpr (isOutput<T>) {
                constexpr std::size_t kSize = sizeof(std::remove_pointer_t<T>); // NOLINT(bugprone-sizeof-*)
                if (argument != nullptr)
                    bytes.append(reinterpret_cast<const char*>(argument), kSize);
            }
        };
        std::apply([&](auto... each) { (append(each), ...); }, arguments);
        return bytes;
    }

    template <std::size_t At, class Given>
    void refuseAt(const Arguments& arguments, const Given& given) const
    {
        using Parameter = std::tuple_element_t<At, Arguments>;
        const auto expect = [&](auto value, std::int32_t code) {
            Arguments changed = arguments;
            std::get<At>(changed) = value;
            EXPECT_EQ((*this)(changed), code) << m_name << ", argument " << At;
        };
        const Parameter argument = std::get<At>(arguments);
        if constexpr (std::is_same_v<Given, CancelEvent>) {
            refuseEvents(expect);
        } else if constexpr (std::is_same_v<Given, Number>) {
            expect(given.wrong, ERROR_INVALID_PARAMETER);
        } else if constexpr (std::is_same_v<Given, CppHandle>) {
            for (void* wrong : {static_cast<void*>(nullptr), strange<void>(), INVALID_HANDLE_VALUE})
                expect(wrong, ERROR_INVALID_HANDLE);
        } else if constexpr (isPointer<Parameter> && !isVoid<Parameter> && !isKnown<Parameter>) {
            if constexpr (!kIs<Given, Optional>)
                expect(nullptr, ERROR_INVALID_HANDLE);
            expect(strange<std::remove_pointer_t<Parameter>>(), ERROR_INVALID_HANDLE);
            if constexpr (kIs<Given, Typed>)
                expect(given.another, ERROR_CALL_NOT_IMPLEMENTED);
        } else if constexpr (std::is_pointer_v<Parameter>) {
            if (argument != nullptr && !kIs<Given, Optional>)
                expect(nullptr, ERROR_INVALID_PARAMETER);
            refuseSizes(argument, expect);
        }
    }
    template <class Expect>
    static void refuseEvents(const Expect& expect)
    {
        const Win32Handle signalled(CreateEventW(nullptr, TRUE, TRUE, nullptr));
        const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
        expect(signalled.get(), ERROR_CANCELLED);
        expect(mutex.get(), ERROR_INVALID_HANDLE);
        expect(strange<void>(), ERROR_INVALID_HANDLE);
    }
    /// Those of a struct that begins with its size.
    template <class Struct, class Expect>
    static void refuseSizes(Struct* argument, const Expect& expect)
    {
        if constexpr (requires { sizeof(*argument), argument->size; }) {
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(argument->size)>, std::uint32_t>) {
                auto copy = *argument;
                for (const std::uint32_t size : {0U, argument->size - 1, argument->size + 1, 0xFFFFFFFFU}) {
                    copy.size = size;
                    expect(&copy, ERROR_INVALID_PARAMETER);
                }
                copy = *argument;
                if constexpr (std::is_const_v<Struct> && requires { copy.reserved; }) {
                    copy.reserved = 1;
                    expect(&copy, ERROR_INVALID_PARAMETER);
                }
            }
        }
    }

    const char* m_name;
    std::int32_t (*m_function)(Parameters...);
};

/// A function with arguments that it takes, what makes them, and what undoes the call.
template <class Objects>
struct Row
{
    template <class... Parameters, class Arguments>
    Row(const char* called, std::int32_t (*function)(Parameters...), Arguments arguments)
        : name(called), refuse([=](Objects& objects) {
              const auto given = arguments(objects);
              Function(called, function).refuse(rawOf<Parameters...>(given), given);
          }),
          run([=](Objects& objects, long failing) {
              const auto given = arguments(objects);
              std::apply([](const auto&... each) { (clear(each), ...); }, given);
              const std::int32_t code = Function(called, function)(rawOf<Parameters...>(given), failing);
              std::apply([](const auto&... each) { (giveBackOutput(each), ...); }, given);
              return code;
          })
    {
    }
    Row&& from(void (*does)(Objects&)) &&
    {
        before = does;
        return std::move(*this);
    }
    Row&& then(void (*does)(Objects&)) &&
    {
        after = does;
        return std::move(*this);
    }
    Row&& giving(std::int32_t returned) &&
    {
        code = returned;
        return std::move(*this);
    }

    /// Without memory for something that it can do without, it returns the same.
    Row&& coping() &&
    {
        copes = true;
        return std::move(*this);
    }

    const char* name;
    std::function<void(Objects&)> refuse;
    std::function<std::int32_t(Objects&, long)> run;
    void (*before)(Objects&) = [](Objects&) {};
    void (*after)(Objects&) = [](Objects&) {};
    std::int32_t code = ERROR_SUCCESS;
    bool copes = false;

private:
    template <class Given>
    static auto rawOfOne(const Given& given)
    {
        if constexpr (requires { given.value; })
            return given.value;
        else
            return given;
    }
    template <class... Parameters, class... Given>
    static std::tuple<Parameters...> rawOf(const std::tuple<Given...>& given)
    {
        return std::apply(
            [](const auto&... each) {
                return std::tuple<Parameters...>(static_cast<Parameters>(rawOfOne(each))...);
            },
            given);
    }
    template <class Given>
    static void clear(const Given& given)
    {
        const auto output = rawOfOne(given);
        if constexpr (
            requires { *output = {}; } && !requires { output->size; })
            *output = {};
    }
    template <class Given>
    static void giveBackOutput(const Given& given)
    {
        if constexpr (requires {
                          giveBack(*given);
                          *given = {};
                      })
            giveBack(std::exchange(*given, {}));
    }
};
