#pragma once

#include "win32/scanengine/include/ScanItem.h"

/// What a rule compares, and for which kind of items.
enum MatchMode : std::uint32_t
{
    kMatchWildcard = 0, ///< matches the whole text against a wildcard pattern
    kMatchSubstring = 1 ///< finds the pattern anywhere in the text
};
enum MatchTarget : std::uint32_t
{
    kMatchPath = 0, ///< the item's full path
    kMatchName = 1  ///< the path's last element
};
enum ItemKind : std::uint32_t
{
    kContainerItems = 0, ///< folders and registry keys
    kLeafItems = 1       ///< files and registry values
};

/// Decides which items are reported. An item passes when at least one filter accepts it (or there are no
/// filters) and no ignore rule for its kind matches. A filter for the other kind of item accepts the item; an
/// ignore rule for the other kind is skipped. Case is ignored.
///
/// Wildcards: `*` any run of characters, anchored at the last occurrence of the character after it and never
/// retried elsewhere; `?` one character; `[abc]`, `[a-z]` one of a set. The negated sets `[!...]` hardly ever
/// match. Rules with an unknown mode or target never match but are kept.
///
/// validate may run on several threads at once; no other operation may run at the same time. Failing
/// operations raise an Exception.
struct IScanValidator
{
    virtual ~IScanValidator() = default;
    /// Appends a filter; the pattern is copied. Raises 87 for a null pattern, 8.
    virtual void addFilter(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                           std::uint32_t itemKind) = 0;
    /// Appends an ignore rule, in the same way.
    virtual void addIgnore(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                           std::uint32_t itemKind) = 0;
    /// Whether the item is to be reported.
    [[nodiscard]] virtual bool validate(const ScanItem& item) const = 0;
    /// Empties both lists.
    virtual void clear() noexcept = 0;
    /// The pattern of a rule, owned by the validator. Raises 87 for an index outside the list.
    [[nodiscard]] virtual const wchar_t* getFilter(std::uint32_t index) const = 0;
    [[nodiscard]] virtual const wchar_t* getIgnore(std::uint32_t index) const = 0;
    [[nodiscard]] virtual std::uint32_t getFilterCount() const noexcept = 0;
    [[nodiscard]] virtual std::uint32_t getIgnoreCount() const noexcept = 0;
    /// Serialized form: the filter count (u32), each filter, the ignore count (u32), each ignore rule; a rule
    /// is its pattern (string), mode, target and kind (u32 each). load appends all rules of the stream, or
    /// none when it fails. Raises 30, 29, 8. `code` is not used.
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};
