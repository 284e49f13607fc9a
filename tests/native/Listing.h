#pragma once

#include "core/win32/registry/offline/include/HiveFile.h"

/// UTF-8; half a pair becomes U+FFFD, and a control character its picture, as it could end a field.
inline std::string utf8(std::u16string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10U) + (text[++i] - 0xDC00U);
        else if (c >= 0xD800 && c < 0xE000)
            c = 0xFFFD;
        else if (c < 0x20)
            c += 0x2400;
        const int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        result += static_cast<char>(more == 0 ? c : (0xF00U >> (more + 1) & 0xFFU) | c >> 6 * more);
        for (int left = more; left-- > 0;)
            result += static_cast<char>(0x80U | (c >> 6 * left & 0x3FU));
    }
    return result;
}

inline std::string hex(std::span<const std::byte> bytes)
{
    std::string text;
    for (const std::byte each : bytes) {
        text += "0123456789abcdef"[std::to_integer<unsigned>(each) >> 4U];
        text += "0123456789abcdef"[std::to_integer<unsigned>(each) & 15U];
    }
    return text;
}

/// The whole content of a hive: a line for each key and each value, with fields separated by tabs. Names are
/// shown as they are, also those of which no path can be made.
inline std::string listing(const offline::Hive& hive)
{
    std::string text;
    std::vector<std::pair<offline::KeyId, std::string>> waiting{{offline::Hive::root(), ""}};
    while (!waiting.empty()) {
        const auto [key, path] = std::move(waiting.back());
        waiting.pop_back();
        text += "key\t" + path + '\t' + std::to_string(hive.lastWriteTime(key)) + '\t' +
                utf8(hive.className(key)) + '\t' + hex(hive.security(key)) + '\n';
        for (const offline::ValueId value : hive.values(key))
            text += "value\t" + path + '\t' + utf8(hive.valueName(value).text()) + '\t' +
                    std::to_string(hive.type(value)) + '\t' + hex(hive.data(value)) + '\n';
        const auto keys = hive.subKeys(key);
        for (auto each = keys.rbegin(); each != keys.rend(); ++each)
            waiting.emplace_back(*each, path + (path.empty() ? "" : "\\") + utf8(hive.name(*each).text()));
    }
    return text;
}
