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
        unsigned long long withNine = 0;
    };
    const auto texts = std::make_shared<Texts>();
    const long count = scale(1000000);
    const auto prepare = [=] {
        for (long i = static_cast<long>(texts->all.size()); i < count; ++i) {
            const std::wstring& text =
                texts->all.emplace_back(L"C:\\Users\\somebody\\AppData\\Local\\Vendor\\Cache\\File " +
                                        std::to_wstring(i * 7919LL) + (i % 2 == 0 ? L".Tmp" : L".Log"));
            texts->withNine += text.find(L"9.Tmp") != std::wstring::npos ? 1 : 0;
        }
    };
    const unsigned long long half = static_cast<unsigned long long>((count + 1) / 2);
    const std::wstring name = L"*.tmp";
    std::wstring foldedName = name;
    std::transform(foldedName.begin(), foldedName.end(), foldedName.begin(), casefolding::fold);

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
             requireFound(texts->all, texts->withNine, [](const std::wstring& text) {
                 return _wcsistr(text.c_str(), L"9.tMP") != nullptr;
             });
         },
         [=] {
             requireFound(texts->all, texts->withNine, [](const std::wstring& text) {
                 return StrStrIW(text.c_str(), L"9.tMP") != nullptr;
             });
         },
         prepare},
    };
    return rows;
}
