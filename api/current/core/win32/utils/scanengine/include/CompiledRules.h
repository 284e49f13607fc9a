#pragma once

#include <vector>

#include "core/win32/utils/scanengine/include/PatternGroup.h"
#include "core/win32/utils/scanengine/include/ScanRule.h"

/// The rules of a validator, made ready to be asked all at once: the verdict is that of asking one by one, at
/// a cost that depends little on their number. All that counts of a list is whether any of its rules matches,
/// so their order need not be kept. Any number of threads may ask.
///
/// Points into the rules: to be thrown away before they change.
class CompiledRules
{
public:
    /// Raises std::bad_alloc, also for patterns of more than 16 million characters.
    CompiledRules(const std::vector<ScanFilter>& filters, const std::vector<ScanIgnore>& ignores);

    /// Raises std::bad_alloc for a path too long for the stack.
    [[nodiscard]] bool validate(RuleSubject& subject) const;

private:
    /// Rules that apply to the same items, by the text that they look at.
    struct Group
    {
        template <class Rule, class Applies>
        Group(const std::vector<Rule>& rules, Applies&& applies);
        [[nodiscard]] bool matches(RuleSubject& subject) const;

        PatternGroup names;
        PatternGroup paths;
    };

    bool m_all;               // let through: there is no filter
    bool m_leaves;            // likewise: a filter is meant for containers
    bool m_containers;        // likewise: a filter is meant for leaves
    Group m_filters;          // all of them: when none lets an item through unasked, all of them apply to it
    Group m_leafIgnores;      // those not meant for containers
    Group m_containerIgnores; // those not meant for leaves
};
