#pragma once

#include <algorithm>
#include <optional>
#include <string_view>

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "win32/threadpool/include/ITHPIdentifier.h"

inline constexpr char kTHPIdentifierHeader[] = "core\\win32\\utils\\threadpool\\include\\THPIdentifier.h";

/// A key that owns its name. Numbers sort before names; names are ordered and compared without regard to
/// case.
class THPIdentifier : public ITHPIdentifier
{
public:
    /// Copies the name. Raises an Exception with 87 for a null name, and std::bad_alloc when memory runs out.
    THPIdentifier(const wchar_t* name) // NOLINT: keys convert on purpose
        : m_type(kName), m_name(required(name))
    {
    }
    THPIdentifier(unsigned long number) noexcept : m_number(number) {} // NOLINT: as above

    [[nodiscard]] std::uint32_t getIDType() const noexcept override { return m_type; }
    [[nodiscard]] const wchar_t* getName() const noexcept override
    {
        return m_type == kName ? m_name.c_str() : nullptr;
    }
    [[nodiscard]] std::uint32_t getID() const noexcept override { return m_number; }

    friend bool operator==(const THPIdentifier& left, const THPIdentifier& right) noexcept
    {
        return left.m_type == right.m_type && left.m_number == right.m_number &&
               std::equal(left.m_name.begin(), left.m_name.end(), right.m_name.begin(), right.m_name.end(),
                          [](wchar_t a, wchar_t b) { return casefolding::fold(a) == casefolding::fold(b); });
    }
    friend bool operator<(const THPIdentifier& left, const THPIdentifier& right) noexcept
    {
        if (left.m_type != right.m_type)
            return left.m_type < right.m_type;
        if (left.m_number != right.m_number)
            return left.m_number < right.m_number;
        return std::lexicographical_compare(
            left.m_name.begin(), left.m_name.end(), right.m_name.begin(), right.m_name.end(),
            [](wchar_t a, wchar_t b) { return casefolding::fold(a) < casefolding::fold(b); });
    }

private:
    static const wchar_t* required(const wchar_t* name)
    {
        if (name == nullptr)
            throw Exception(PLACE(kTHPIdentifierHeader, "THPIdentifier::THPIdentifier", __LINE__),
                            ERROR_INVALID_PARAMETER);
        return name;
    }

    std::uint32_t m_type = kNumber;
    std::uint32_t m_number = 0;
    HeapStringW m_name;
};

/// What an operation applies to: a category, work in it, or one queued instance of the work.
struct THPWorkKey
{
    THPWorkKey(THPIdentifier categoryKey) : category(std::move(categoryKey)) {} // NOLINT: converts on purpose
    THPWorkKey(THPIdentifier categoryKey, THPIdentifier workKey)
        : category(std::move(categoryKey)), work(std::move(workKey))
    {
    }
    /// Raises an Exception with 87 for a null instance, which must not stand for every instance.
    THPWorkKey(THPIdentifier categoryKey, THPIdentifier workKey, const void* queued)
        : category(std::move(categoryKey)), work(std::move(workKey)), instance(queued)
    {
        if (queued == nullptr)
            throw Exception(PLACE(kTHPIdentifierHeader, "THPWorkKey::THPWorkKey", __LINE__),
                            ERROR_INVALID_PARAMETER);
    }

    THPIdentifier category;
    std::optional<THPIdentifier> work; // none: all work of the category
    const void* instance = nullptr;    // none: all instances
};
