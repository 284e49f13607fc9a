#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>

/// Replaces one imported function in a module's import table for a scope.
class ImportReplacement
{
public:
    /// Throws when the module does not import the function: a test that replaces nothing proves nothing.
    /// `original` receives the original function before the first call.
    ImportReplacement(HMODULE module, const char* function, void* replacement,
                      std::atomic<void*>* original = nullptr)
    {
        auto* base = reinterpret_cast<std::uint8_t*>(module);
        const auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
        const auto* headers = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        for (auto* library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
             library->Name != 0; ++library) {
            auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->OriginalFirstThunk);
            auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->FirstThunk);
            for (; names->u1.AddressOfData != 0; ++names, ++slots) {
                if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                    continue;
                const auto* import = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(import->Name), function) == 0)
                    m_slot = reinterpret_cast<void**>(&slots->u1.Function);
            }
        }
        if (m_slot == nullptr)
            throw std::runtime_error(std::string("not imported: ") + function);
        m_original = *m_slot;
        if (original != nullptr)
            *original = m_original;
        set(replacement);
    }
    ImportReplacement(ImportReplacement&&) = delete;
    ~ImportReplacement() { set(m_original); }

private:
    void set(void* function)
    {
        DWORD protection = 0;
        VirtualProtect(m_slot, sizeof(void*), PAGE_READWRITE, &protection);
        *m_slot = function;
        VirtualProtect(m_slot, sizeof(void*), protection, &protection);
    }

    void** m_slot = nullptr;
    void* m_original = nullptr;
};

/// A function's name as a template argument.
template <std::size_t N>
struct ImportName
{
    constexpr ImportName(const char (&name)[N]) { std::copy_n(name, N, text); } // NOLINT
    char text[N]{};
};

inline constexpr long kEachCall = -1;

/// Counts the calls of one imported function, and makes chosen calls fail or do something else.
///
///     CountedImport<"WriteFile", decltype(&WriteFile)> writes(dll);
///     writes.failCall(2, FALSE, ERROR_DISK_FULL);
///
/// One of a kind at a time. Calls from any thread.
template <ImportName Name, class Function>
class CountedImport;

template <ImportName Name, class Result, class... Arguments>
class CountedImport<Name, Result(WINAPI*)(Arguments...)>
{
public:
    using Original = Result(WINAPI*)(Arguments...);
    using Value = std::conditional_t<std::is_void_v<Result>, char, Result>;
    /// Called instead; gets the original function, which it may call.
    using Hook = std::function<Result(Original, Arguments...)>;

    explicit CountedImport(HMODULE module)
        : m_replacement(begun(module), Name.text, reinterpret_cast<void*>(&replaced), &s_original)
    {
    }

    /// Call `number` (from 1, counted from now) returns `result` with the last error `code`. 0: none fails.
    /// kEachCall: all of them.
    void failCall(long number, Value result, DWORD code)
    {
        s_calls = 0;
        s_result = result;
        s_code = code;
        s_failing = number;
    }
    void setHook(Hook hook) { s_hook = std::move(hook); }
    [[nodiscard]] long calls() const { return s_calls; }
    void reset() { s_calls = 0; }

private:
    static HMODULE begun(HMODULE module)
    {
        s_calls = 0;
        s_failing = 0;
        s_hook = nullptr;
        return module;
    }
    static Result WINAPI replaced(Arguments... arguments)
    {
        const long number = ++s_calls;
        if (number == s_failing || s_failing == kEachCall) {
            SetLastError(s_code);
            if constexpr (!std::is_void_v<Result>)
                return s_result;
            else
                return;
        }
        const auto original = reinterpret_cast<Original>(s_original.load());
        return s_hook ? s_hook(original, arguments...) : original(arguments...);
    }

    ImportReplacement m_replacement;
    static inline std::atomic<long> s_calls{0};
    static inline std::atomic<long> s_failing{0};
    static inline std::atomic<void*> s_original{nullptr};
    static inline Value s_result{};
    static inline DWORD s_code = 0;
    static inline Hook s_hook;
};

/// The DLL under test, or the program that holds its classes instead.
inline HMODULE sysmaintModule()
{
    const HMODULE library = GetModuleHandleW(L"sysmaint.dll");
    return library != nullptr ? library : GetModuleHandleW(nullptr);
}

/// An import of the module under test, replaced for a scope.
template <ImportName Name, class Function>
struct Replaced : CountedImport<Name, Function>
{
    using Import = CountedImport<Name, Function>;
    explicit Replaced(typename Import::Hook hook = nullptr) : Import(sysmaintModule())
    {
        this->setHook(std::move(hook));
    }
    Replaced(long failing, typename Import::Value result, DWORD code) : Import(sysmaintModule())
    {
        this->failCall(failing, result, code);
    }
};

using Polls = Replaced<"WaitForSingleObject", decltype(&WaitForSingleObject)>;
using Multiple = Replaced<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)>;

/// A hook that does something before each call, with the arguments that it passes on.
template <class Action>
auto before(Action action)
{
    return [action](auto original, auto... all) mutable { return action(all...), original(all...); };
}
/// A hook that does something after each call, with its result and its arguments.
template <class Action>
auto after(Action action)
{
    return [action](auto original, auto... arguments) mutable {
        const auto result = original(arguments...);
        return action(result, arguments...), result;
    };
}
/// A hook that makes those calls fail with `code` whose arguments fulfil `isFailing`.
template <class Result, class Condition>
auto failing(Result result, DWORD code, Condition isFailing)
{
    return [=](auto original, auto... arguments) mutable -> decltype(original(arguments...)) {
        if (!isFailing(arguments...))
            return original(arguments...);
        SetLastError(code);
        return result;
    };
}

/// Functions that the DLL looks up by their names, replaced for the length of a scope.
struct LookedUp : Replaced<"GetProcAddress", decltype(&GetProcAddress)>
{
    explicit LookedUp(const std::map<std::string_view, void*>& functions)
        : Replaced([functions](auto original, HMODULE module, LPCSTR name) {
              const auto found = functions.find(name);
              return found != functions.end() ? reinterpret_cast<FARPROC>(found->second)
                                              : original(module, name);
          })
    {
    }
};
template <class Result, class... Arguments>
void* address(Result(WINAPI* function)(Arguments...))
{
    return reinterpret_cast<void*>(function);
}
