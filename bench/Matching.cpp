#include <windows.h>

#include <shlwapi.h>

#include <algorithm>
#include <memory>
#include <string>

#include "Bench.h"
#include "core/win32/utils/scanengine/include/WildcardMatcher.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/CaseFolding.h"

namespace {
/// Both sides must find the same, or they are not doing the same work.
template <class Matches>
void requireFound(const std::vector<std::wstring>& texts, unsigned long long expected, Matches&& matches)
{
    unsigned long long found = 0;
    for (const std::wstring& text : texts)
        found += matches(text) ? 1 : 0;
    require(found == expected, "the texts that match are not those that should");
}
} // namespace

BenchRows matchingRows(BenchScale scale)
{
    struct Texts
    {
        std::vector<std::wstring> all;
        unsigned long long withEight = 0;
    };
    const auto texts = std::make_shared<Texts>();
    const long count = scale(1000000);
    const auto prepare = [=] {
        for (long i = static_cast<long>(texts->all.size()); i < count; ++i) {
            const std::wstring& text =
                texts->all.emplace_back(L"C:\\Users\\somebody\\AppData\\Local\\Vendor\\Cache\\File " +
                                        std::to_wstring(i * 7919LL) + (i % 2 == 0 ? L".Tmp" : L".Log"));
            texts->withEight += text.find(L"8.Tmp") != std::wstring::npos ? 1 : 0;
        }
        require(texts->withEight != 0 && texts->withEight != texts->all.size(),
                "a text of which all or none are found tells little");
    };
    const unsigned long long half = static_cast<unsigned long long>((count + 1) / 2);
    const std::wstring name = L"*.tmp";
    const std::wstring part = L"8.tMP";
    const auto folded = [](std::wstring pattern) {
        std::transform(pattern.begin(), pattern.end(), pattern.begin(), casefolding::fold);
        return pattern;
    };
    const std::wstring foldedName = folded(name);
    const std::wstring foldedPart = folded(part);

    BenchRows rows;
    rows.timed = {
        {"wildcard match", "PathMatchSpecW", 5.0, static_cast<double>(count),
         [=] {
             requireFound(texts->all, half, [&](const std::wstring& text) {
                 return matchesWildcard(casefolding::FoldedText(text).view(), foldedName);
             });
         },
         [=] {
             requireFound(texts->all, half, [&](const std::wstring& text) {
                 return PathMatchSpecW(text.c_str(), name.c_str()) != 0;
             });
         },
         prepare},
        {"substring rule, case-insensitive", "StrStrIW", 2.0, static_cast<double>(count),
         [=] {
             requireFound(texts->all, texts->withEight, [&](const std::wstring& text) {
                 return casefolding::FoldedText(text).view().find(foldedPart) != std::wstring_view::npos;
             });
         },
         [=] {
             requireFound(texts->all, texts->withEight, [&](const std::wstring& text) {
                 return StrStrIW(text.c_str(), part.c_str()) != nullptr;
             });
         },
         prepare},
    };
    return rows;
}
