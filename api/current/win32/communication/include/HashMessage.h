#pragma once

#include <map>

#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "win32/communication/include/Parameter.h"

/// The name of a parameter. A short name, the usual case, is stored in the message's own entry.
template <class Char>
class ParameterName
{
public:
    using View = std::basic_string_view<Char>;

    /// Raises std::bad_alloc when memory for a long name runs out.
    explicit ParameterName(View name) : m_length(name.size())
    {
        if (m_length < kShort)
            name.copy(m_short, m_length);
        else
            m_long = name;
    }
    /// Reads the name as a string from the stream. Raises a bare 30 or 8, and std::bad_alloc.
    explicit ParameterName(IInputByteStream& stream)
    {
        const std::size_t capacity = primitives::readTextCapacity<Char>(stream);
        if (capacity > kShort)
            m_long.resize(capacity);
        m_length = primitives::readCharacters(stream, capacity > kShort ? m_long.data() : m_short, capacity);
    }

    // Copied only: a moved-from name would keep the length of the text it has lost.
    ParameterName(const ParameterName&) = default;
    ParameterName& operator=(const ParameterName&) = default;
    ~ParameterName() = default;

    [[nodiscard]] const Char* c_str() const noexcept { return m_long.empty() ? m_short : m_long.c_str(); }
    operator View() const noexcept { return View(c_str(), m_length); }

    struct Order
    {
        using is_transparent = void;
        bool operator()(View left, View right) const noexcept { return left < right; }
    };

private:
    static constexpr std::size_t kShort = 16; // in characters, with the terminator

    Char m_short[kShort] = {};
    HeapString<Char> m_long;  // empty for a short one
    std::size_t m_length = 0; // of either form, without what a stream put behind the first zero
};

/// A message with named parameters, ordered by the characters of their names.
///
/// Serialized form: the message, the parameter count as u32, then each parameter's name as a string and its
/// value. A failing step of load or dump raises a bare long: 30 reading, 29 writing, 8 memory, 487 for an
/// entry without a parameter. After a failed load the message holds the parameters that were read completely.
/// Copies share the parameters themselves.
template <class Char>
class BasicHashMessage : public BasicMessage<Char>
{
public:
    using Parameter = BasicParameter<Char>;
    using ParameterPtr = SharedPtr<Parameter>;
    using Name = ParameterName<Char>;
    using Text = typename Name::View;
    using Parameters = std::map<Name, ParameterPtr, typename Name::Order,
                                ProcessHeapAllocator<std::pair<const Name, ParameterPtr>>>;

    using BasicMessage<Char>::BasicMessage;

    /// Stores `parameter` under `name`, replacing any older one. Returns 0, 87 for a null name, 8.
    long setParameter(const Char* name, const ParameterPtr& parameter)
    {
        return boundary::statusFrame([&]() -> long {
            if (name == nullptr)
                return ERROR_INVALID_PARAMETER;
            m_parameters.insert_or_assign(Name(Text(name)), parameter);
            return ERROR_SUCCESS;
        });
    }
    /// Stores a copy of `size` bytes under `name`. Returns 0, 87 for a null name or null data, 8.
    long setParameter(const Char* name, const void* data, std::uint64_t size)
    {
        return boundary::statusFrame(
            [&]() -> long { return setParameter(name, makeShared<Parameter>(size, data)); });
    }
    /// Stores a 32-bit number as 4 bytes. Returns as above.
    long setParameter(const Char* name, std::uint32_t value)
    {
        return setParameter(name, &value, sizeof value);
    }
    /// Stores a string with its terminator. Returns as above.
    long setParameter(const Char* name, const Char* text)
    {
        return setParameter(name, text,
                            text != nullptr ? (std::char_traits<Char>::length(text) + 1) * sizeof(Char) : 0);
    }

    /// Finds the parameter with that name. Returns 0, 87 for a null name, 1168 when there is none or the
    /// entry is empty.
    long getParameter(const Char* name, const Parameter*& parameter) const noexcept
    {
        if (name == nullptr)
            return ERROR_INVALID_PARAMETER;
        const auto found = m_parameters.find(Text(name));
        if (found == m_parameters.end() || !found->second)
            return ERROR_NOT_FOUND;
        parameter = found->second.get();
        return ERROR_SUCCESS;
    }
    /// Reads a 32-bit number. Returns as above, and 87 when the value is not 4 bytes long.
    long getParameter(const Char* name, std::uint32_t& value) const noexcept
    {
        const Parameter* parameter = nullptr;
        if (const long code = getParameter(name, parameter); code != ERROR_SUCCESS)
            return code;
        if (parameter->getSize() != sizeof value)
            return ERROR_INVALID_PARAMETER;
        std::memcpy(&value, parameter->getData(), sizeof value);
        return ERROR_SUCCESS;
    }
    /// Finds a string; the message keeps ownership. Returns as above, and 87 when the value is not text that
    /// ends with its terminator.
    long getParameter(const Char* name, const Char*& text) const noexcept
    {
        const Parameter* parameter = nullptr;
        if (const long code = getParameter(name, parameter); code != ERROR_SUCCESS)
            return code;
        const auto size = static_cast<std::size_t>(parameter->getSize());
        const auto* characters = static_cast<const Char*>(parameter->getData());
        if (size == 0 || size % sizeof(Char) != 0 || characters[size / sizeof(Char) - 1] != 0)
            return ERROR_INVALID_PARAMETER;
        text = characters;
        return ERROR_SUCCESS;
    }

    [[nodiscard]] const Parameters& getParameters() const noexcept { return m_parameters; }
    /// Each is out of the message before its destructor runs, which may even end the thread.
    void clearParameters() noexcept
    {
        while (!m_parameters.empty())
            static_cast<void>(m_parameters.extract(m_parameters.begin()));
    }

    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        using namespace primitives;
        bareStep([&] {
            BasicMessage<Char>::dump(code, stream);
            writeU32(stream, static_cast<std::uint32_t>(m_parameters.size()));
            for (const auto& [name, parameter] : m_parameters) {
                writeBlob(stream, name.c_str(), (Text(name).size() + 1) * sizeof(Char));
                if (!parameter)
                    raiseCode(ERROR_INVALID_ADDRESS);
                requireSuccess(parameter->dump(code, stream));
            }
        });
        return ERROR_SUCCESS;
    }

    long load(unsigned long code, IInputByteStream& stream) override
    {
        using namespace primitives;
        m_parameters.clear();
        bareStep([&] {
            BasicMessage<Char>::load(code, stream);
            // The count comes from the stream: every entry must still be there to be read.
            for (std::uint32_t left = readU32(stream); left != 0; --left) {
                // Entries come in order unless something else wrote the stream. Of two with one name the
                // later wins.
                const auto entry = m_parameters.emplace_hint(m_parameters.end(), std::piecewise_construct,
                                                             std::forward_as_tuple(stream),
                                                             std::forward_as_tuple(std::in_place));
                try {
                    requireSuccess(entry->second->load(code, stream));
                } catch (...) {
                    m_parameters.erase(entry);
                    throw;
                }
            }
        });
        return ERROR_SUCCESS;
    }

private:
    Parameters m_parameters;
};

using HashMessageA = BasicHashMessage<char>;
using HashMessageW = BasicHashMessage<wchar_t>;
