#pragma once

#include <optional>
#include <string>

#include "core/win32/utils/strings/include/CaseFolding.h"
#include "win32/scanengine/include/IScanValidator.h"

/// The texts of one item that rules compare, split once for all rules.
class RuleSubject
{
public:
    /// Raises what getPath raises: an item may build its path only now.
    explicit RuleSubject(const ScanItem& item) : m_type(item.getType()), m_path(item.getPath()) {}

    [[nodiscard]] bool isContainer() const noexcept
    {
        return m_type == kDirectoryItem || m_type == kRegistryKeyItem;
    }
    [[nodiscard]] bool isLeaf() const noexcept
    {
        return m_type == kFileItem || m_type == kFtpFileItem || m_type == kRegistryValueItem;
    }
    /// The full path, folded.
    [[nodiscard]] std::wstring_view path();
    /// The last element of the path, folded.
    [[nodiscard]] std::wstring_view name();

private:
    [[nodiscard]] std::wstring_view text() noexcept;

    std::uint32_t m_type;
    const wchar_t* m_path;
    std::wstring_view m_text; // the path, once its length is known
    // Folded at the first call: most rules compare only the name.
    std::optional<casefolding::FoldedText> m_foldedPath;
    std::optional<casefolding::FoldedText> m_foldedName;
};

/// What filters and ignore rules have in common: a pattern, and how, with what and for which items it is
/// compared.
class ScanRule
{
public:
    ScanRule() noexcept = default;
    /// Copies the pattern. Raises a bare 87 for null, std::bad_alloc.
    ScanRule(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
             std::uint32_t itemKind);
    ScanRule(const ScanRule&) = default;
    ScanRule(ScanRule&&) noexcept = default;
    ScanRule& operator=(const ScanRule&) = default;
    ScanRule& operator=(ScanRule&&) noexcept = default;
    virtual ~ScanRule() = default;

    /// The pattern as given; null when there is none yet.
    [[nodiscard]] virtual const wchar_t* getPattern() const noexcept
    {
        return m_hasPattern ? m_pattern.c_str() : nullptr;
    }
    [[nodiscard]] virtual std::uint32_t getMatchMode() const noexcept { return matchMode; }
    [[nodiscard]] virtual std::uint32_t getMatchTarget() const noexcept { return matchTarget; }
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;

    /// The pattern as it is compared.
    [[nodiscard]] std::wstring_view foldedPattern() const noexcept { return m_folded; }
    /// Whether the rule is meant for the other kind of item.
    [[nodiscard]] bool isInapplicable(const RuleSubject& subject) const noexcept
    {
        return (itemKind == kContainerItems && subject.isLeaf()) ||
               (itemKind == kLeafItems && subject.isContainer());
    }
    [[nodiscard]] bool matches(RuleSubject& subject) const;

protected:
    void loadFields(IInputByteStream& stream);
    void dumpFields(IOutputByteStream& stream) const;

private:
    void setPattern(const wchar_t* pattern);

    std::wstring m_pattern;
    std::wstring m_folded;
    bool m_hasPattern = false;

public:
    std::uint32_t matchMode = kMatchWildcard;
    std::uint32_t matchTarget = kMatchName;
    std::uint32_t itemKind = kLeafItems;
};

/// Accepts items.
class ScanFilter final : public ScanRule
{
public:
    using ScanRule::ScanRule;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;
};

/// Excludes items.
class ScanIgnore final : public ScanRule
{
public:
    using ScanRule::ScanRule;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;
};
