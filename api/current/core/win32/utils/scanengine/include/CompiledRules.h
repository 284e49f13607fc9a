#pragma once

#include <vector>

#include "core/win32/utils/scanengine/include/PatternGroup.h"
#include "core/win32/utils/scanengine/include/ScanRule.h"

/// The rules of a validator, prepared to be checked all at once. The verdict is the same as checking them one
/// by one, at a cost that depends little on their number. All that matters about a list is whether any of its
/// rules matches, so their order need not be kept. Any number of threads may use it.
///
/// Points into the rules: discard it before they change.
class CompiledRules
{
public:
    /// Raises std::bad_alloc, also for patterns of more than 16 million characters.
    CompiledRules(const std::vector<ScanFilter>& filters, const std::vector<ScanIgnore>& ignores);

    /// Raises std::bad_alloc for a path too long for the stack.
    [[nodiscard]] bool validate(RuleSubject& subject) const;

private:
    /// Rules that apply to the same items, grouped by the text that they compare.
    struct Group
    {
        template <class Rule, class Applies>
        Group(const std::vector<Rule>& rules, Applies&& applies);
        [[nodiscard]] bool matches(RuleSubject& subject) const;

        PatternGroup names;
        PatternGroup paths;
    };

    bool m_all;               // accept: there is no filter
    bool m_leaves;            // accept: a filter is meant for containers
    bool m_containers;        // accept: a filter is meant for leaves
    Group m_filters;          // all filters: when none accepts an item unchecked, all of them apply to it
    Group m_leafIgnores;      // those not meant for containers
    Group m_containerIgnores; // those not meant for leaves
};
