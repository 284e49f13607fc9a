#pragma once

#include "c/Calls.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "support/Process.h"

// What an argument is, where its type does not say it.

enum class Kind
{
    Optional, // a pointer that may be null
    Kept,     // an output that does not belong to the caller, or that the row itself gives back
    Typed     // a handle, and one of a kind that the function refuses (120)
};
template <Kind, class T>
struct Marked
{
    T value, another;
    template <class Parameter>
    requires std::convertible_to<T, Parameter>
    operator Parameter() const { return value; } // NOLINT(google-explicit-constructor)
};
inline constexpr auto optional = []<class T>(T value) { return Marked<Kind::Optional, T>{value, {}}; };
inline constexpr auto kept = []<class T>(T value) { return Marked<Kind::Kept, T>{value, {}}; };
inline constexpr auto typed = []<class T>(T value, T other) { return Marked<Kind::Typed, T>{value, other}; };
/// A number of a few; `wrong` is none of them (87).
struct Number
{
    std::uint32_t value, wrong;
    operator std::uint32_t() const { return value; } // NOLINT(google-explicit-constructor)
};
/// A handle of a family's C++ functions.
struct CppHandle
{
    void* value;
    operator void*() const { return value; } // NOLINT(google-explicit-constructor)
};
/// Any event, or none.
struct CancelEvent
{
    operator void*() const { return nullptr; } // NOLINT(google-explicit-constructor)
};

template <class T, Kind kind>
inline constexpr bool kIs = false;
template <class T, Kind kind>
inline constexpr bool kIs<Marked<kind, T>, kind> = true;

/// Gives back an output that belongs to the caller.
struct GiveBack
{
    void operator()(sysmaint_validator* made) const { sysmaint_validator_close(made); }
    void operator()(sysmaint_ftp* made) const { sysmaint_ftp_close(made); }
    void operator()(sysmaint_item* made) const { sysmaint_item_close(made); }
    void operator()(sysmaint_shared_item* made) const { sysmaint_item_unshare(made); }
    void operator()(sysmaint_scan* made) const { sysmaint_scan_close(made); }
    void operator()(sysmaint_wiper* made) const { sysmaint_wiper_close(made); }
    void operator()(sysmaint_message* made) const { sysmaint_message_close(made); }
    void operator()(sysmaint_pool* made) const { sysmaint_pool_close(made); }
    void operator()(sysmaint_topic* made) const { sysmaint_topic_close(made); }
    void operator()(sysmaint_subscription* made) const { sysmaint_topic_unsubscribe(made, 60000); }
    void operator()(sysmaint_offline_key* made) const { sysmaint_offline_close(made); }
    void operator()(sysmaint_reporter* made) const { sysmaint_reporter_close(made, 60000); }
    void operator()(void* made) const { utilsFreeMemory(made); }
    void operator()(const void*) const {}
    void operator()(std::uint64_t) const {}
};
inline constexpr GiveBack giveBack;

/// What an output says, as one text; nothing for a handle that says nothing.
struct Telling
{
    std::string operator()(std::integral auto number) const { return std::to_string(number); }
    std::string operator()(const wchar_t* text) const { return utf8(text); }
    std::string operator()(wchar_t* text) const { return utf8(text); }
    std::string operator()(char* text) const { return text; }
    std::string operator()(const sysmaint_rule& rule) const
    {
        return std::to_string(100 * rule.mode + 10 * rule.target + rule.kind);
    }
    std::string operator()(const sysmaint_message_info& info) const
    {
        const std::wstring topic = info.topic != nullptr ? info.topic : std::to_wstring(info.topic_number);
        return std::to_string(10 * info.kind + info.id) + ' ' + utf8(topic);
    }
    /// With the number "n" in it.
    std::string operator()(sysmaint_message* message) const
    {
        sysmaint_message_info info{sizeof info, 9, 9, 9, nullptr};
        std::uint32_t number = 0;
        EXPECT_EQ(sysmaint_message_get_info(message, &info), 0);
        const bool hasNumber = sysmaint_message_number(message, L"n", &number) == 0;
        return (*this)(info) + (hasNumber ? ' ' + std::to_string(number) : "");
    }
    std::string operator()(sysmaint_item* item) const
    {
        std::uint32_t type = 9;
        const wchar_t* path = L"";
        EXPECT_EQ(sysmaint_item_type(item, &type) + sysmaint_item_path(item, &path), 0);
        return std::to_string(type) + ' ' + utf8(path);
    }
    std::string operator()(sysmaint_validator* rules) const
    {
        std::uint32_t filters = 9, ignores = 9;
        EXPECT_EQ(sysmaint_validator_count(rules, 0, &filters), 0);
        EXPECT_EQ(sysmaint_validator_count(rules, 1, &ignores), 0);
        return std::to_string(filters) + '+' + std::to_string(ignores);
    }
    std::string operator()(sysmaint_offline_key* key) const
    {
        const wchar_t* path = L"";
        EXPECT_EQ(sysmaint_offline_path(key, &path), 0);
        return utf8(path);
    }
    template <class Other>
    requires(!std::integral<Other>) std::string operator()(const Other&) const { return {}; }
};
inline constexpr Telling telling;

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

    static void clear(const Arguments& arguments)
    {
        const auto clearOne = []<class T>(T output) {
            if constexpr (isOutput<T> && !requires { output->size; })
                if (output != nullptr)
                    *output = {};
        };
        std::apply([&](auto... each) { (clearOne(each), ...); }, arguments);
    }
    /// The outputs, each after a comma but for the first; bytes before their size.
    static std::string told(const Arguments& arguments)
    {
        std::string text;
        const char* bytes = nullptr;
        const auto tell = [&]<class T>(T output) {
            if constexpr (std::is_same_v<T, void**> || std::is_same_v<T, const void**>) {
                bytes = static_cast<const char*>(*output);
            } else if constexpr (isOutput<T>) {
                text += text.empty() ? "" : ",";
                if constexpr (std::is_same_v<T, std::uint64_t*>)
                    text += bytes != nullptr ? std::string(bytes, *output) + ',' : "";
                text += output != nullptr ? telling(*output) : "";
            }
        };
        std::apply([&](auto... each) { (tell(each), ...); }, arguments);
        return text;
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
    static constexpr bool isComplete = requires
    {
        sizeof(std::remove_pointer_t<T>);
    };
    template <class T>
    static constexpr bool isObject = std::is_pointer_v<T>&& std::is_object_v<std::remove_pointer_t<T>>;
    template <class T>
    static constexpr bool isOutput =
        isObject<T>&& isComplete<T> && !std::is_const_v<std::remove_pointer_t<T>>;

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
        } else if constexpr (isObject<Parameter> && !isComplete<Parameter>) {
            if constexpr (!kIs<Given, Kind::Optional>)
                expect(nullptr, ERROR_INVALID_HANDLE);
            expect(strange<std::remove_pointer_t<Parameter>>(), ERROR_INVALID_HANDLE);
            if constexpr (kIs<Given, Kind::Typed>)
                expect(given.another, ERROR_CALL_NOT_IMPLEMENTED);
        } else if constexpr (std::is_pointer_v<Parameter>) {
            if (argument == nullptr)
                return;
            if constexpr (!kIs<Given, Kind::Optional>)
                expect(nullptr, ERROR_INVALID_PARAMETER);
            refuseSizes(argument, expect);
        }
    }
    template <class Expect>
    static void refuseEvents(const Expect& expect)
    {
        const Win32Handle signalled(CreateEventW(nullptr, TRUE, TRUE, nullptr));
        const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
        const Win32Handle semaphore(CreateSemaphoreW(nullptr, 2, 2, nullptr));
        HANDLE unwaitable = nullptr;
        EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), signalled.get(), GetCurrentProcess(), &unwaitable,
                                    EVENT_MODIFY_STATE, FALSE, 0));
        expect(signalled.get(), ERROR_CANCELLED);
        expect(Win32Handle(unwaitable).get(), ERROR_ACCESS_DENIED);
        for (void* wrong : {mutex.get(), semaphore.get(), strange<void>(), INVALID_HANDLE_VALUE})
            expect(wrong, ERROR_INVALID_HANDLE);
        EXPECT_FALSE(ReleaseMutex(mutex.get())) << "it is not kept";
        EXPECT_FALSE(ReleaseSemaphore(semaphore.get(), 1, nullptr)) << "nothing is missing";
    }
    /// Those of a struct that begins with its size.
    template <class Struct, class Expect>
    static void refuseSizes(Struct* argument, const Expect& expect)
    {
        if constexpr (requires { requires sizeof(argument->size) == sizeof(std::uint32_t); }) {
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
              Function(called, function).refuse(given, given);
          }),
          call([=](const Row& row, Objects& objects, long failing) {
              const auto given = arguments(objects);
              const Function callee(called, function);
              const std::tuple<Parameters...> raw = given;
              callee.clear(raw);
              const std::int32_t code = callee(raw, failing);
              if (failing == 0 && code == row.code)
                  row.checkOutcome(objects, row.told.empty() ? "" : callee.told(raw));
              std::apply([](const auto&... each) { (giveBackOutput(each), ...); }, given);
              return code;
          })
    {
    }
    using Step = void (*)(Objects&);
    Row&& from(Step does) && { return with(before, does); }
    Row&& then(Step does) && { return with(after, does); }
    Row&& giving(std::int32_t returned) && { return with(code, returned); }
    /// What its outputs are, the tests' folder left out.
    Row&& tells(std::string_view outputs) && { return with(told, outputs); }
    /// What something else says after the call.
    Row&& leaves(std::string (*of)(Objects&), std::string_view expected) &&
    {
        looksAt = of;
        return with(left, expected);
    }
    /// Without memory for something that it can do without, it returns the same.
    Row&& coping() && { return with(copes, true); }

    std::int32_t run(Objects& objects, long failing = 0) const
    {
        before(objects);
        const std::int32_t returned = call(*this, objects, failing);
        finish(objects);
        return returned;
    }
    void finish(Objects& objects) const
    {
        after(objects);
        objects.giveBackMade();
    }

    const char* name;
    std::function<void(Objects&)> refuse;
    std::function<std::int32_t(const Row&, Objects&, long)> call;
    Step before = [](Objects&) {}, after = [](Objects&) {};
    std::int32_t code = ERROR_SUCCESS;
    bool copes = false;
    std::string_view told;
    std::string (*looksAt)(Objects&) = [](Objects&) { return std::string(); };
    std::string_view left;

private:
    template <class Member>
    Row&& with(Member& member, Member value)
    {
        member = value;
        return std::move(*this);
    }
    void checkOutcome(Objects& objects, std::string outputs) const
    {
        const std::string folder = utf8(objects.folder.path());
        if (const std::size_t at = outputs.find(folder); at != std::string::npos)
            outputs.erase(at, folder.size());
        EXPECT_EQ(outputs, told) << name;
        EXPECT_EQ(left, looksAt(objects)) << name;
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
