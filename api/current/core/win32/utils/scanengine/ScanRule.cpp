#include "core/win32/utils/scanengine/include/ScanRule.h"

#include <algorithm>

#include "core/win32/utils/strings/include/CaseFolding.h"
#include "core/win32/utils/strings/include/WildcardMatcher.h"

constexpr char kScanRuleHeader[] = "core\\win32\\utils\\scanengine\\include\\ScanRule.h";

using namespace primitives;

namespace {
/// Does what PathFindFileNameW does, whose library would load others: returns what follows the last
/// backslash, slash or colon that something follows.
std::wstring_view lastElement(std::wstring_view path) noexcept
{
    const auto separates = [](wchar_t c) { return c == L'\\' || c == L'/'; };
    for (std::size_t at = path.size(); at > 1; --at) {
        const wchar_t before = path[at - 2];
        if ((separates(before) || before == L':') && !separates(path[at - 1]))
            return path.substr(at - 1);
    }
    return path;
}
} // namespace

std::wstring_view RuleSubject::text() noexcept
{
    if (m_text.data() == nullptr)
        m_text = m_path;
    return m_text;
}

std::wstring_view RuleSubject::path()
{
    if (!m_foldedPath)
        m_foldedPath.emplace(text());
    return m_foldedPath->view();
}

std::wstring_view RuleSubject::name()
{
    if (!m_foldedName)
        m_foldedName.emplace(lastElement(text()));
    return m_foldedName->view();
}

ScanRule::ScanRule(const wchar_t* pattern, std::uint32_t mode, std::uint32_t target, std::uint32_t kind)
    : matchMode(mode), matchTarget(target), itemKind(kind)
{
    if (pattern == nullptr)
        raiseCode(ERROR_INVALID_PARAMETER);
    setPattern(pattern);
}

void ScanRule::setPattern(const wchar_t* pattern)
{
    m_pattern = pattern;
    m_folded = m_pattern;
    std::transform(m_folded.begin(), m_folded.end(), m_folded.begin(), casefolding::fold);
    m_hasPattern = true;
}

bool ScanRule::matches(RuleSubject& subject) const
{
    std::wstring_view text;
    switch (matchTarget) {
    case kMatchPath:
        text = subject.path();
        break;
    case kMatchName:
        text = subject.name();
        break;
    default:
        return false;
    }
    switch (matchMode) {
    case kMatchWildcard:
        return matchesWildcard(text, m_folded);
    case kMatchSubstring:
        return text.find(m_folded) != std::wstring_view::npos;
    default:
        return false;
    }
}

void ScanRule::dumpFields(IOutputByteStream& stream) const
{
    writeString(stream, getPattern());
    writeU32(stream, matchMode);
    writeU32(stream, matchTarget);
    writeU32(stream, itemKind);
}

void ScanRule::loadFields(IInputByteStream& stream)
{
    const HeapStringW pattern = readText<wchar_t>(stream);
    matchMode = readU32(stream);
    matchTarget = readU32(stream);
    itemKind = readU32(stream);
    setPattern(pattern.c_str());
}

long ScanFilter::dump(unsigned long, IOutputByteStream& stream) const
{
    placedStep(PLACE(kScanRuleHeader, "ScanFilter::dump", __LINE__), [&] { dumpFields(stream); });
    return ERROR_SUCCESS;
}

long ScanFilter::load(unsigned long, IInputByteStream& stream)
{
    placedStep(PLACE(kScanRuleHeader, "ScanFilter::load", __LINE__), [&] { loadFields(stream); });
    return ERROR_SUCCESS;
}

long ScanIgnore::dump(unsigned long, IOutputByteStream& stream) const
{
    placedStep(PLACE(kScanRuleHeader, "ScanIgnore::dump", __LINE__), [&] { dumpFields(stream); });
    return ERROR_SUCCESS;
}

long ScanIgnore::load(unsigned long, IInputByteStream& stream)
{
    placedStep(PLACE(kScanRuleHeader, "ScanIgnore::load", __LINE__), [&] { loadFields(stream); });
    return ERROR_SUCCESS;
}
