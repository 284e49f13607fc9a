#include "core/win32/utils/scanengine/include/CompiledRules.h"

#include <algorithm>
#include <functional>

namespace {
/// The patterns of rules that compare `target`. Those with an unknown mode or target never match.
template <class Rule, class Applies>
std::vector<PatternGroup::Pattern> patternsOf(const std::vector<Rule>& rules, MatchTarget target,
                                              Applies&& applies)
{
    std::vector<PatternGroup::Pattern> patterns;
    for (const Rule& rule : rules)
        if (rule.matchTarget == target && applies(rule) &&
            (rule.matchMode == kMatchWildcard || rule.matchMode == kMatchSubstring))
            patterns.push_back({rule.foldedPattern(), rule.matchMode == kMatchSubstring});
    return patterns;
}

template <ItemKind kKind>
bool isFor(const ScanRule& rule) noexcept
{
    return rule.itemKind == kKind;
}
} // namespace

template <class Rule, class Applies>
CompiledRules::Group::Group(const std::vector<Rule>& rules, Applies&& applies)
    : names(patternsOf(rules, kMatchName, applies)), paths(patternsOf(rules, kMatchPath, applies))
{
}

bool CompiledRules::Group::matches(RuleSubject& subject) const
{
    return (!names.isEmpty() && names.matches(subject.name())) ||
           (!paths.isEmpty() && paths.matches(subject.path()));
}

CompiledRules::CompiledRules(const std::vector<ScanFilter>& filters, const std::vector<ScanIgnore>& ignores)
    : m_all(filters.empty()), m_leaves(std::any_of(filters.begin(), filters.end(), isFor<kContainerItems>)),
      m_containers(std::any_of(filters.begin(), filters.end(), isFor<kLeafItems>)),
      m_filters(filters, [](const ScanRule&) { return true; }),
      m_leafIgnores(ignores, std::not_fn(isFor<kContainerItems>)),
      m_containerIgnores(ignores, std::not_fn(isFor<kLeafItems>))
{
}

bool CompiledRules::validate(RuleSubject& subject) const
{
    const bool letThrough = m_all || (m_leaves && subject.isLeaf()) ||
                            (m_containers && subject.isContainer()) || m_filters.matches(subject);
    // An item that is neither is subject to the rules for both.
    return letThrough && !(!subject.isContainer() && m_leafIgnores.matches(subject)) &&
           !(!subject.isLeaf() && m_containerIgnores.matches(subject));
}
