#pragma once

#include "win32/scanengine/include/ScanItem.h"

/// What a rule compares, and with what kind of items.
enum MatchMode : std::uint32_t
{
    kMatchWildcard = 0, ///< the whole text against a wildcard pattern
    kMatchSubstring = 1 ///< the pattern anywhere in the text
};
enum MatchTarget : std::uint32_t
{
    kMatchPath = 0, ///< the item's full path
    kMatchName = 1  ///< its last element
};
enum ItemKind : std::uint32_t
{
    kContainerItems = 0, ///< folders and registry keys
    kLeafItems = 1       ///< files and registry values
};

/// Decides which found items are reported. An item passes when at least one filter lets it through (or there
/// are none) and no ignore rule that applies to its kind matches. A filter meant for the other kind of item
/// lets the item through; an ignore rule meant for the other kind is skipped. Case never counts.
///
/// Wildcards: `*` any run of characters, anchored on the last occurrence of the character after it and never
/// tried again elsewhere; `?` one character; `[abc]`, `[a-z]` one of a set. The negated sets `[!...]` hardly
/// ever match. Rules with an unknown mode or target never match but are kept.
///
/// validate may run on several threads at once; the others must not run beside it. Operations that fail
/// raise an Exception.
struct IScanValidator
{
    virtual ~IScanValidator() = default;
    /// Appends a filter; the pattern is copied. Raises 87 for a null pattern, 8.
    virtual void addFilter(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                           std::uint32_t itemKind) = 0;
    /// Appends an ignore rule, likewise.
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
    /// Serialized form: the filter count (u32), each filter, the ignore count (u32), each ignore rule; a
    /// rule is its pattern (string), mode, target and kind (u32 each). load appends all rules of the stream
    /// or, when it fails, none. Raises 30, 29, 8. `code` is not used.
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};
