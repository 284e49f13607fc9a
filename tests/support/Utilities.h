#pragma once

#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/files/api.h"
#include "core/win32/utils/formatting/api.h"
#include "core/win32/utils/memory/api.h"
#include "core/win32/utils/paths/api.h"
#include "core/win32/utils/processes/api.h"
#include "core/win32/utils/registry/api.h"
#include "core/win32/utils/security/api.h"
#include "core/win32/utils/services/api.h"
#include "core/win32/utils/shell/api.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/system/api.h"
#include "core/win32/utils/time/api.h"
#include "core/win32/utils/versions/api.h"
#include "core/win32/utils/volumes/api.h"
#include "support/Test.h"

// What the tests of the utility functions share: results as values, or codes instead.

// What several calls returned.
using Texts = std::vector<std::wstring>;
using Numbers = std::vector<long long>;

/// Owns a buffer that a utility function returned.
template <class T>
class Given
{
public:
    Given() = default;
    Given(Given&&) = delete;
    ~Given() { utilsFreeMemory(m_buffer); }
    T** operator&() // NOLINT: it stands for the pointer, of a new buffer
    {
        utilsFreeMemory(std::exchange(m_buffer, nullptr));
        return &m_buffer;
    }
    [[nodiscard]] T* get() const { return m_buffer; }
    T& operator[](std::size_t i) const { return m_buffer[i]; }

private:
    T* m_buffer = nullptr;
};

/// The text that a call returned, or "code N".
template <class Char, class Call>
std::basic_string<Char> textOf(Call&& call)
{
    Given<Char> text;
    const long code = call(&text);
    EXPECT_EQ(code != 0, text.get() == nullptr);
    if (code == 0)
        return text.get();
    const std::string failure = "code " + std::to_string(code);
    return {failure.begin(), failure.end()};
}

/// The number that a call returned, or minus its code.
template <class T, class Call>
long long numberOf(Call&& call)
{
    T value = 77;
    const long code = call(&value);
    EXPECT_TRUE(code == 0 || value == 77) << "a call that fails changes nothing";
    return code == 0 ? static_cast<long long>(value) : -static_cast<long long>(code);
}
template <class Call>
int flagOf(Call&& call)
{
    return static_cast<int>(numberOf<int>(call));
}

template <class... Types>
using ResultOf = std::remove_pointer_t<std::tuple_element_t<sizeof...(Types) - 1, std::tuple<Types...>>>;
/// A function whose last parameter takes a text or a number, as one that returns it, or the code as above.
template <class... Types>
auto asText(long (*function)(Types...))
{
    using Char = std::remove_pointer_t<ResultOf<Types...>>;
    return [=](auto... all) { return textOf<Char>([&](auto** to) { return function(all..., to); }); };
}
template <class... Types>
auto asNumber(long (*function)(Types...))
{
    using Number = ResultOf<Types...>;
    return [=](auto... all) { return numberOf<Number>([&](auto* to) { return function(all..., to); }); };
}

/// The texts of a list that a call returned, separated by commas, or "code N".
template <class Call>
std::wstring listOf(Call&& call)
{
    Given<wchar_t> list;
    std::size_t count = 0;
    if (const long code = call(&list, &count); code != 0)
        return L"code " + std::to_wstring(code);
    std::wstring all;
    for (const wchar_t* at = list.get(); *at != L'\0'; at += std::wcslen(at) + 1, --count)
        all += (all.empty() ? L"" : L",") + std::wstring(at);
    EXPECT_EQ(count, 0U) << "the number of texts";
    return all;
}

/// A path below the folder that the tests may write to.
inline std::wstring testPath(const wchar_t* name)
{
    return _wgetenv(L"SYSMAINT_TEST_FOLDER") + (L"\\" + std::wstring(name));
}

/// A handle that nothing has.
inline void* const kNoHandle = reinterpret_cast<void*>(0x5554); // NOLINT(performance-no-int-to-ptr)
