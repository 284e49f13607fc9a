#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

#include "core/win32/utils/scanengine/include/CompiledRules.h"
#include "core/win32/utils/scanengine/include/ScanRule.h"

/// The library's validator; see IScanValidator.
class ScanValidator final : public IScanValidator
{
public:
    ScanValidator() noexcept = default;
    /// Parses two texts of entries; see DllGetScanValidator. Raises an Exception with 87 for an entry whose
    /// ":" is not followed by exactly three digits, and with 8.
    ScanValidator(const wchar_t* filters, const wchar_t* ignores);
    ScanValidator(const ScanValidator&) = delete;
    ScanValidator& operator=(const ScanValidator&) = delete;
    ~ScanValidator() override { forget(); }

    void addFilter(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                   std::uint32_t itemKind) override;
    void addIgnore(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                   std::uint32_t itemKind) override;
    [[nodiscard]] bool validate(const ScanItem& item) const override;
    /// The same verdict, by checking one rule after the other: what validate does with few rules, or when
    /// memory to compile them runs out.
    [[nodiscard]] bool validateOneByOne(const ScanItem& item) const;
    void clear() noexcept override;
    [[nodiscard]] const wchar_t* getFilter(std::uint32_t index) const override;
    [[nodiscard]] const wchar_t* getIgnore(std::uint32_t index) const override;
    /// The rule itself, owned by the validator. Raises 87 for an index outside the list.
    [[nodiscard]] const ScanRule& filterAt(std::uint32_t index) const;
    [[nodiscard]] const ScanRule& ignoreAt(std::uint32_t index) const;
    [[nodiscard]] std::uint32_t getFilterCount() const noexcept override;
    [[nodiscard]] std::uint32_t getIgnoreCount() const noexcept override;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

private:
    [[nodiscard]] const CompiledRules* compiled() const noexcept;
    void forget() noexcept;

    std::vector<ScanFilter> m_filters;
    std::vector<ScanIgnore> m_ignores;
    // Built by the first thread that validates after a change. Threads that validate meanwhile build their
    // own and discard it.
    mutable std::atomic<const CompiledRules*> m_compiled{nullptr};
    mutable std::atomic<bool> m_cannotCompile{false};
};
