#include <windows.h>

#include <shlwapi.h>

#include <algorithm>
#include <memory>
#include <string>

#include "Bench.h"
#include "core/win32/utils/scanengine/include/WildcardMatcher.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/CaseFolding.h"

std::vector<BenchRow> matchingRows(BenchScale scale)
{
    const auto texts = std::make_shared<std::vector<std::wstring>>();
    const long count = scale(1000000);
    for (long i = 0; i < count; ++i)
        texts->push_back(L"C:\\Users\\somebody\\AppData\\Local\\Vendor\\Cache\\File " +
                         std::to_wstring(i * 7919LL) + (i % 2 == 0 ? L".Tmp" : L".Log"));
    // Both sides must find the same, or they are not doing the same work.
    const auto total = [texts](const auto& matches) {
        unsigned long long found = 0;
        for (const std::wstring& text : *texts)
            found += matches(text) ? 1 : 0;
        return found;
    };
    const unsigned long long half = static_cast<unsigned long long>((count + 1) / 2);
    const std::wstring name = L"*.tmp";
    std::wstring foldedName = name;
    std::transform(foldedName.begin(), foldedName.end(), foldedName.begin(), casefolding::fold);

    return {
        {"wildcard match", "PathMatchSpecW", 5.0, static_cast<double>(count),
         [=] {
             require(total([&](const std::wstring& text) {
                         return matchesWildcard(casefolding::FoldedText(text).view(), foldedName);
                     }) == half,
                     "match");
         },
         [=] {
             require(total([&](const std::wstring& text) {
                         return PathMatchSpecW(text.c_str(), name.c_str()) != 0;
                     }) == half,
                     "PathMatchSpecW");
         }},
        {"substring rule, case-insensitive", "StrStrIW", 2.0, static_cast<double>(count),
         [=] {
             require(total([](const std::wstring& text) {
                         return _wcsistr(text.c_str(), L"9.tMP") != nullptr;
                     }) == total([](const std::wstring& text) {
                         return text.find(L"9.Tmp") != std::wstring::npos;
                     }),
                     "_wcsistr");
         },
         [=] {
             require(total([](const std::wstring& text) {
                         return StrStrIW(text.c_str(), L"9.tMP") != nullptr;
                     }) == total([](const std::wstring& text) {
                         return text.find(L"9.Tmp") != std::wstring::npos;
                     }),
                     "StrStrIW");
         }},
    };
}
