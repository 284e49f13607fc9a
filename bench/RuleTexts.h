#pragma once

#include <string>
#include <vector>

/// A rule like a cleaner's.
struct RuleText
{
    std::string pattern;
    bool isPath;      ///< compared with the whole path, not with the name
    bool isSubstring; ///< else with stars, question marks and sets
};

/// Extensions, names, folders and parts of paths, in the proportions of a cleaner. A few of `ruleFiles` match
/// the last.
inline std::vector<RuleText> ruleTexts(int count)
{
    std::vector<RuleText> rules;
    for (int i = count - 1; i >= 0; --i) {
        const std::string number = std::to_string(i);
        if (i % 10 < 4)
            rules.push_back({"*.t" + number, false, false});
        else if (i % 10 < 6)
            rules.push_back({"Thumbs" + number + ".db", false, false});
        else if (i % 10 == 6)
            rules.push_back({"\\Cache" + number + "\\", true, true});
        else if (i % 10 == 7)
            rules.push_back({"C:\\Windows\\Logs" + number + "\\*", true, false});
        else if (i % 10 == 8)
            rules.push_back({"Setup" + number + "*.log", false, false});
        else
            rules.push_back({"report" + number + "_?.t[mn]p", false, false});
    }
    return rules;
}

/// Files of which every tenth matches a rule.
inline std::vector<std::string> ruleFiles()
{
    std::vector<std::string> files;
    for (int i = 0; i < 1000; ++i)
        files.push_back("C:\\Users\\somebody\\AppData\\Local\\Vendor\\Profile\\File " +
                        std::to_string(i * 7919) + (i % 10 == 0 ? ".t0" : ".Log"));
    return files;
}
