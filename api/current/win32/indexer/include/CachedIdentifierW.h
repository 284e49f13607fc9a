#pragma once

#include <string_view>

#include "core/win32/utils/objectmanager/include/ProcessHeap.h"
#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "win32/indexer/include/IIdentifierW.h"

/// A wide identifier whose copies share one text. Comparisons respect case.
class CachedIdentifierW : public IIdentifierW
{
public:
    /// Copies `text`. Raises a bare 87 for a null text and a bare 8 when memory runs out.
    explicit CachedIdentifierW(const wchar_t* text) : m_text(makeText(text)) {}

    [[nodiscard]] const wchar_t* getIdentifier() const noexcept override { return m_text->c_str(); }
    [[nodiscard]] std::wstring_view view() const noexcept { return *m_text; }

    friend bool operator<(const CachedIdentifierW& left, const CachedIdentifierW& right) noexcept
    {
        return left.view() < right.view();
    }
    friend bool operator==(const CachedIdentifierW& left, const CachedIdentifierW& right) noexcept
    {
        return left.view() == right.view();
    }

private:
    static HeapStringW* makeText(const wchar_t* text)
    {
        if (text == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        try {
            return new HeapStringW(text);
        } catch (const std::bad_alloc&) {
            raiseCode(ERROR_NOT_ENOUGH_MEMORY);
        }
    }

    SharedPtr<HeapStringW> m_text;
};
