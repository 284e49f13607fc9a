#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/strings/include/Unicode.h"

/// The frame of the exported utility functions:
///
///     return utilityFrame(outputs(result), strings::trim, text, characters);
///
/// checks every pointer (87), calls the function with the inputs, narrow ones as UTF-16, and stores its
/// results in the outputs, in the encoding of the text. Nothing is stored before everything is ready.
namespace utilityframe {
/// An input that may be null.
template <class T>
struct Optional
{
    T value;
};
template <class T>
Optional<T> optional(T value)
{
    return {value};
}

/// A text that may be null.
inline Optional<const wchar_t*> optionalText(const wchar_t* text)
{
    return {text};
}

/// A text that is passed on unchanged, because the result points into it.
template <class Char>
struct AsItIs
{
    const Char* text;
};
template <class Char>
AsItIs<Char> asItIs(const Char* text)
{
    return {text};
}

/// A text with its length, or up to its terminator (kTerminated).
inline constexpr std::size_t kTerminated = static_cast<std::size_t>(-1);
template <class Char>
struct Sized
{
    const Char* text;
    std::size_t length;
};

/// Bytes and their number.
struct Bytes
{
    const void* data;
    std::size_t size;
};

/// A list of texts, each terminated, up to an empty one.
template <class Char>
struct List
{
    const Char* first;
};
template <class Char>
List<Char> listed(const Char* first)
{
    return {first};
}

/// More than any memory holds: such a length comes from a negative number.
inline constexpr std::size_t kMostBytes = static_cast<std::size_t>(-1) >> 4U;

// -- Whether an input or output is missing or invalid

template <class T>
bool isMissing(const T& value) noexcept
{
    if constexpr (std::is_pointer_v<T>)
        return value == nullptr;
    return false;
}
template <class Char>
bool isMissing(const Sized<Char>& text) noexcept
{
    return text.text == nullptr || (text.length != kTerminated && text.length > kMostBytes);
}
template <class Char>
bool isMissing(const AsItIs<Char>& text) noexcept
{
    return text.text == nullptr;
}
inline bool isMissing(const Bytes& bytes) noexcept
{
    return bytes.data == nullptr || bytes.size > kMostBytes;
}
template <class Char>
bool isMissing(const List<Char>& list) noexcept
{
    return list.first == nullptr;
}

// -- Inputs

/// A text in the form used inside.
class Text
{
public:
    explicit Text(const wchar_t* text) noexcept : m_text(text) {}
    explicit Text(const char* text) : m_own(unicode::wideFromUtf8(text)), m_text(m_own.c_str()) {}
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    operator const wchar_t*() const noexcept { return m_text; }    // NOLINT: it stands for the text
    operator std::wstring_view() const noexcept { return m_text; } // NOLINT

private:
    std::wstring m_own;
    const wchar_t* m_text;
};

inline Text given(const wchar_t* text)
{
    return Text(text);
}
inline Text given(const char* text)
{
    return Text(text);
}
template <class T>
T given(T value)
{
    return value;
}
template <class T>
T given(Optional<T> value)
{
    return value.value;
}
template <class Char>
std::basic_string_view<Char> given(Sized<Char> text)
{
    return text.length == kTerminated ? std::basic_string_view<Char>(text.text)
                                      : std::basic_string_view<Char>(text.text, text.length);
}
template <class Char>
const Char* given(AsItIs<Char> text)
{
    return text.text;
}
inline std::basic_string_view<unsigned char> given(Bytes bytes)
{
    return {static_cast<const unsigned char*>(bytes.data), bytes.size};
}
template <class Char>
std::wstring given(List<Char> list)
{
    const Char* end = list.first;
    while (*end != Char())
        end += std::basic_string_view<Char>(end).size() + 1;
    const std::basic_string_view<Char> whole(list.first, static_cast<std::size_t>(end - list.first));
    if constexpr (std::is_same_v<Char, char>)
        return unicode::wideFromUtf8(whole);
    else
        return std::wstring(whole);
}

// -- Outputs: all are prepared before any is stored

template <class T>
struct ReadyValue
{
    T* target;
    T value;
    void give() noexcept { *target = value; }
};
template <class T>
struct ReadyMemory
{
    T** target;
    utilitymemory::Owner memory;
    void give() noexcept { *target = static_cast<T*>(memory.release()); }
};
template <class T>
struct ReadyCounted
{
    T** target;
    std::size_t* countTarget;
    utilitymemory::Owner memory;
    std::size_t count;
    void give() noexcept
    {
        *target = static_cast<T*>(memory.release());
        *countTarget = count;
    }
};

/// Two outputs for one result: its address and its length.
template <class T>
struct Counted
{
    T** target;
    std::size_t* count;
};
template <class T>
bool isMissing(const Counted<T>& output) noexcept
{
    return output.target == nullptr || output.count == nullptr;
}
template <class T>
Counted<T> counted(T** target, std::size_t* count)
{
    return {target, count};
}

template <class T, class Value>
ReadyValue<T> ready(T* target, const Value& value)
{
    return {target, static_cast<T>(value)};
}
inline ReadyMemory<wchar_t> ready(wchar_t** target, const std::wstring& text)
{
    return {target, utilitymemory::copyText<wchar_t>(text)};
}
inline ReadyMemory<char> ready(char** target, const std::wstring& text)
{
    return {target, utilitymemory::copyText<char>(unicode::utf8FromWide(text))};
}
inline ReadyMemory<char> ready(char** target, const std::string& text)
{
    return {target, utilitymemory::copyText<char>(text)};
}
template <class Char>
ReadyCounted<Char> ready(Counted<Char> output, const std::basic_string<Char>& text)
{
    return {output.target, output.count, utilitymemory::copyText<Char>(text), text.size()};
}
template <class T>
ReadyCounted<T> ready(Counted<T> output, const std::vector<T>& values)
{
    const std::size_t size = values.size() * sizeof(T);
    utilitymemory::Owner memory = utilitymemory::allocate(size);
    if (size != 0)
        std::memcpy(memory.get(), values.data(), size);
    return {output.target, output.count, std::move(memory), values.size()};
}
template <class Record>
ReadyCounted<Record> ready(Counted<Record> output, const RecordList<Record>& records)
{
    return {output.target, output.count, records.release(), records.count()};
}

template <std::size_t Size>
struct ReadyDigest
{
    unsigned char* target;
    std::array<unsigned char, Size> digest;
    void give() noexcept { std::copy(digest.begin(), digest.end(), target); }
};
template <std::size_t Size>
ReadyDigest<Size> ready(unsigned char* target, const std::array<unsigned char, Size>& digest)
{
    return {target, digest};
}

template <class... Ready>
void giveAll(Ready... results) noexcept
{
    (results.give(), ...);
}

template <class... Outputs>
struct OutputList
{
    std::tuple<Outputs...> targets;

    [[nodiscard]] bool anyMissing() const noexcept
    {
        return std::apply([](const Outputs&... each) { return (isMissing(each) || ...); }, targets);
    }
    template <class... Values>
    void take(const std::tuple<Values...>& values) const
    {
        [&]<std::size_t... At>(std::index_sequence<At...>)
        {
            giveAll(ready(std::get<At>(targets), std::get<At>(values))...);
        }
        (std::index_sequence_for<Outputs...>());
    }
    template <class Value>
    void take(const Value& value) const
    {
        giveAll(ready(std::get<0>(targets), value));
    }
};
template <class... Outputs>
OutputList<Outputs...> outputs(Outputs... targets)
{
    return {{targets...}};
}

template <class... Outputs, class Function, class... Inputs>
long utilityFrame(const OutputList<Outputs...>& outputs, Function&& function, Inputs... inputs) noexcept
{
    return boundary::statusFrame([&]() -> long {
        if (outputs.anyMissing() || (isMissing(inputs) || ...))
            return ERROR_INVALID_PARAMETER;
        if constexpr (sizeof...(Outputs) == 0)
            std::invoke(std::forward<Function>(function), given(inputs)...);
        else
            outputs.take(std::invoke(std::forward<Function>(function), given(inputs)...));
        return ERROR_SUCCESS;
    });
}
} // namespace utilityframe
