#include "core/win32/utils/scanengine/include/ScanValidator.h"

#include <exception>
#include <iterator>
#include <memory>
#include <string>

#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/strings/include/TextSearch.h"

constexpr char kScanValidatorHeader[] = "core\\win32\\utils\\scanengine\\include\\ScanValidator.h";

using namespace primitives;

namespace {
/// From this many rules on, checking them one by one costs more.
constexpr std::size_t kWorthCompiling = 8;

std::uint32_t digit(wchar_t c)
{
    if (c < L'0' || c > L'9')
        raiseCode(ERROR_INVALID_PARAMETER);
    return static_cast<std::uint32_t>(c - L'0');
}

template <class Rule>
void appendEntries(std::vector<Rule>& rules, std::wstring_view text)
{
    std::wstring_view entry;
    while (textsearch::nextToken(text, L",", entry)) {
        std::uint32_t mode = kMatchWildcard;
        std::uint32_t target = kMatchName;
        std::uint32_t kind = kLeafItems;
        const std::size_t colon = entry.find(L':');
        if (colon != std::wstring_view::npos) {
            const std::wstring_view digits = entry.substr(colon + 1);
            if (digits.size() != 3)
                raiseCode(ERROR_INVALID_PARAMETER);
            mode = digit(digits[0]);
            target = digit(digits[1]);
            kind = digit(digits[2]);
        }
        rules.emplace_back(std::wstring(entry.substr(0, colon)).c_str(), mode, target, kind);
    }
}

template <class Rule>
std::vector<Rule> loadRules(unsigned long code, IInputByteStream& stream)
{
    std::vector<Rule> rules;
    // The count comes from the stream: every rule must still be there to be read.
    for (std::uint32_t left = readU32(stream); left != 0; --left)
        rules.emplace_back().load(code, stream);
    return rules;
}

template <class Rule>
void dumpRules(const std::vector<Rule>& rules, unsigned long code, IOutputByteStream& stream)
{
    writeU32(stream, static_cast<std::uint32_t>(rules.size()));
    for (const Rule& rule : rules)
        rule.dump(code, stream);
}

template <class Rule>
void append(std::vector<Rule>& target, std::vector<Rule>& source)
{
    target.insert(target.end(), std::make_move_iterator(source.begin()),
                  std::make_move_iterator(source.end()));
}

template <class Rule>
const ScanRule& ruleAt(const std::vector<Rule>& rules, std::uint32_t index, const char* place)
{
    if (index >= rules.size())
        throw Exception(place, ERROR_INVALID_PARAMETER);
    return rules[index];
}
} // namespace

ScanValidator::ScanValidator(const wchar_t* filters, const wchar_t* ignores)
{
    if (filters == nullptr || ignores == nullptr)
        return;
    placedStep(PLACE(kScanValidatorHeader, "ScanValidator::ScanValidator", __LINE__), [&] {
        appendEntries(m_filters, filters);
        appendEntries(m_ignores, ignores);
    });
}

void ScanValidator::addFilter(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                              std::uint32_t itemKind)
{
    const InsideLibrary inside;
    forget();
    placedStep(PLACE(kScanValidatorHeader, "ScanValidator::addFilter", __LINE__),
               [&] { m_filters.emplace_back(pattern, matchMode, matchTarget, itemKind); });
}

void ScanValidator::addIgnore(const wchar_t* pattern, std::uint32_t matchMode, std::uint32_t matchTarget,
                              std::uint32_t itemKind)
{
    const InsideLibrary inside;
    forget();
    placedStep(PLACE(kScanValidatorHeader, "ScanValidator::addIgnore", __LINE__),
               [&] { m_ignores.emplace_back(pattern, matchMode, matchTarget, itemKind); });
}

const CompiledRules* ScanValidator::compiled() const noexcept
{
    const CompiledRules* rules = m_compiled.load(std::memory_order_acquire);
    if (rules != nullptr || m_filters.size() + m_ignores.size() < kWorthCompiling ||
        m_cannotCompile.load(std::memory_order_relaxed))
        return rules;
    try {
        auto made = std::make_unique<CompiledRules>(m_filters, m_ignores);
        if (m_compiled.compare_exchange_strong(rules, made.get(), std::memory_order_acq_rel))
            rules = made.release();
    } catch (const std::exception&) { // out of memory, or past a vector's maximum size
        m_cannotCompile.store(true, std::memory_order_relaxed);
    }
    return rules;
}

void ScanValidator::forget() noexcept
{
    delete m_compiled.exchange(nullptr, std::memory_order_relaxed);
    m_cannotCompile.store(false, std::memory_order_relaxed);
}

bool ScanValidator::validate(const ScanItem& item) const
{
    const InsideLibrary inside;
    const CompiledRules* rules = compiled();
    if (rules == nullptr)
        return validateOneByOne(item);
    try {
        RuleSubject subject(item);
        return rules->validate(subject);
    } catch (const std::bad_alloc&) {
        // May reach its verdict without the text for which memory ran out.
        return validateOneByOne(item);
    }
}

bool ScanValidator::validateOneByOne(const ScanItem& item) const
{
    RuleSubject subject(item);
    bool accepted = m_filters.empty();
    for (auto filter = m_filters.begin(); !accepted && filter != m_filters.end(); ++filter)
        accepted = filter->isInapplicable(subject) || filter->matches(subject);
    for (auto ignore = m_ignores.begin(); accepted && ignore != m_ignores.end(); ++ignore)
        accepted = ignore->isInapplicable(subject) || !ignore->matches(subject);
    return accepted;
}

void ScanValidator::clear() noexcept
{
    const InsideLibrary inside;
    forget();
    m_filters.clear();
    m_ignores.clear();
}

const ScanRule& ScanValidator::filterAt(std::uint32_t index) const
{
    return ruleAt(m_filters, index, PLACE(kScanValidatorHeader, "ScanValidator::getFilter", __LINE__));
}

const ScanRule& ScanValidator::ignoreAt(std::uint32_t index) const
{
    return ruleAt(m_ignores, index, PLACE(kScanValidatorHeader, "ScanValidator::getIgnore", __LINE__));
}

const wchar_t* ScanValidator::getFilter(std::uint32_t index) const
{
    const InsideLibrary inside;
    return filterAt(index).getPattern();
}

const wchar_t* ScanValidator::getIgnore(std::uint32_t index) const
{
    const InsideLibrary inside;
    return ignoreAt(index).getPattern();
}

std::uint32_t ScanValidator::getFilterCount() const noexcept
{
    return static_cast<std::uint32_t>(m_filters.size());
}

std::uint32_t ScanValidator::getIgnoreCount() const noexcept
{
    return static_cast<std::uint32_t>(m_ignores.size());
}

long ScanValidator::dump(unsigned long code, IOutputByteStream& stream) const
{
    const InsideLibrary inside;
    placedStep(PLACE(kScanValidatorHeader, "ScanValidator::dump", __LINE__), [&] {
        dumpRules(m_filters, code, stream);
        dumpRules(m_ignores, code, stream);
    });
    return ERROR_SUCCESS;
}

long ScanValidator::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    placedStep(PLACE(kScanValidatorHeader, "ScanValidator::load", __LINE__), [&] {
        std::vector<ScanFilter> filters = loadRules<ScanFilter>(code, stream);
        std::vector<ScanIgnore> ignores = loadRules<ScanIgnore>(code, stream);
        forget(); // the compiled form points into rules that move
        m_filters.reserve(m_filters.size() + filters.size());
        m_ignores.reserve(m_ignores.size() + ignores.size());
        append(m_filters, filters);
        append(m_ignores, ignores);
    });
    return ERROR_SUCCESS;
}
