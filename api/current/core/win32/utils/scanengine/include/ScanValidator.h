#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "core/win32/utils/scanengine/include/ScanRule.h"

/// The validator of the library; see IScanValidator.
class ScanValidator final : public IScanValidator
{
public:
    ScanValidator() noexcept = default;
    /// Takes two texts of entries apart; see DllGetScanValidator. Raises an Exception with 87 for an entry
    /// whose ":" is not followed by exactly three digits, and with 8.
    ScanValidator(const wchar_t* filters, const wchar_t* ignores);

    void addFilter(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                   std::uint32_t itemKind) override;
    void addIgnore(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                   std::uint32_t itemKind) override;
    [[nodiscard]] bool validate(const ScanItem& item) const override;
    void clear() noexcept override;
    [[nodiscard]] const wchar_t* getFilter(std::uint32_t index) const override;
    [[nodiscard]] const wchar_t* getIgnore(std::uint32_t index) const override;
    [[nodiscard]] std::uint32_t getFilterCount() const noexcept override;
    [[nodiscard]] std::uint32_t getIgnoreCount() const noexcept override;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

private:
    std::vector<ScanFilter> m_filters;
    std::vector<ScanIgnore> m_ignores;
};
