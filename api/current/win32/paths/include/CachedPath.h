#pragma once

#include <string>
#include <string_view>

#include "core/win32/utils/objectmanager/include/FailedAssertion.h"
#include "core/win32/utils/paths/api.h"
#include "win32/communication/include/Primitives.h"
#include "win32/indexer/include/IIdentifierW.h"

inline constexpr char kCachedPathHeader[] = "win32\\paths\\include\\CachedPath.h";

/// A path text, which is its own identifier.
class CachedPath : public IIdentifierW
{
public:
    /// No text yet.
    CachedPath() noexcept = default;
    /// Sets the path as setPath does. Failures are raised from CachedPath::CachedPath.
    CachedPath(const wchar_t* path, int expand)
    {
        primitives::placedStep(PLACE(kCachedPathHeader, "CachedPath::CachedPath", __LINE__),
                               [&] { setPath(path, expand); });
    }
    /// Takes over a text unchanged.
    explicit CachedPath(HeapStringW&& path) noexcept : m_path(std::move(path)), m_set(true) {}

    /// Replaces the text. With `expand` nonzero its folder macros are expanded; a path without any is kept
    /// unchanged. `path` may be the current text. Raises an Exception with 87 for a null path (a programming
    /// error, first reported as a failed assertion), with 8, or with the expander's code; the old text is
    /// lost then.
    void setPath(const wchar_t* path, int expand)
    {
        if (path == nullptr) {
            reportFailedAssertion(L"_pszPath != NULL", L"api\\current\\win32\\paths\\include\\CachedPath.h",
                                  __LINE__);
            throw Exception(PLACE(kCachedPathHeader, "CachedPath::setPath", __LINE__),
                            ERROR_INVALID_PARAMETER);
        }
        m_set = false;
        primitives::placedStep(PLACE(kCachedPathHeader, "CachedPath::setPath", __LINE__), [&] {
            try {
                // `path` may be this object's own text, which is therefore released last.
                HeapStringW text = expand != 0 ? expanded(path) : HeapStringW(path);
                m_path.swap(text);
            } catch (...) {
                m_path.clear();
                throw;
            }
        });
        m_set = true;
    }

    /// The text; empty when none was set. Owned by the object.
    [[nodiscard]] const wchar_t* getPath() const noexcept { return m_path.c_str(); }
    [[nodiscard]] std::wstring_view view() const noexcept { return m_path; }
    [[nodiscard]] const wchar_t* getIdentifier() const noexcept override { return m_path.c_str(); }

    /// Writes the text as a string, "<dump error>" when none was set. Raises an Exception with 29.
    void dump(IOutputByteStream& stream) const
    {
        primitives::placedStep(PLACE(kCachedPathHeader, "CachedPath::dump", __LINE__), [&] {
            primitives::writeString(stream, m_set ? m_path.c_str() : static_cast<const wchar_t*>(nullptr));
        });
    }
    /// Reads the text. Raises an Exception with 30 or 8; the old text is kept then.
    void load(IInputByteStream& stream)
    {
        primitives::placedStep(PLACE(kCachedPathHeader, "CachedPath::load", __LINE__), [&] {
            m_path = primitives::readText<wchar_t>(stream);
            m_set = true;
        });
    }

private:
    [[nodiscard]] static HeapStringW expanded(const wchar_t* path)
    {
        HeapStringW buffer(path);
        unsigned long needed = 0;
        IPathValidatorW& expander = *DllGetPathValidatorW();
        long code = expander.validate(buffer.data(), 0, &needed);
        if (code == ERROR_SUCCESS || code == ERROR_MORE_DATA) {
            if (buffer.size() < needed)
                buffer.resize(needed);
            code = expander.validate(buffer.data(), static_cast<unsigned long>(buffer.size()) + 1, &needed);
            requireSuccess(code);
            buffer.resize(std::char_traits<wchar_t>::length(buffer.c_str()));
        } else if (code != ERROR_NOT_FOUND) {
            raiseCode(code);
        }
        return buffer;
    }

    HeapStringW m_path;
    bool m_set = false;
};
