#pragma once

#include "core/win32/utils/memory/api.h"

// Texts. core/win32/utils/memory/api.h describes what all utility functions have in common.

SYSMAINT_C_BEGIN
/// Finds the first occurrence of `pattern` in `text`. Compares single characters without regard to case, the
/// same in every locale.
///
/// @return a pointer into `text`; `text` itself for an empty pattern; null when there is none or an argument
///         is null
SYSMAINT_API const wchar_t* _wcsistr(const wchar_t* text, const wchar_t* pattern);

/// Reads texts that are lists of entries separated by single characters. Copies entry `index` of `text`,
/// counted from 0, to `token`, always terminated. Adjacent separators count as one: no entry is empty.
///
/// @param separators  each of its characters separates entries
/// @param token       receives the entry; may be null to ask for its length
/// @param capacity    size of `token` in characters, including the terminator
/// @param needed      receives the entry's length in characters without terminator; may be null
/// @return 0; 87 (null text or separators); 1168 (no entry of that index); 234 (`token` is null or too small;
///         nothing is copied)
SYSMAINT_API long GetTokenW(const wchar_t* text, const wchar_t* separators, unsigned long index,
                            wchar_t* token, unsigned long capacity, unsigned long* needed);

/// Replaces the first `find` in `text` with `replacement`; replacement 0 cuts the text there.
///
/// @return the changed character, or null when `find` does not occur or `text` is null
SYSMAINT_API wchar_t* SetFirstCharW(wchar_t* text, wchar_t find, wchar_t replacement);

/// The same for UTF-8. Lengths are in bytes. Invalid text gives null or 1113: it is never found and nothing
/// is found in it. SetFirstCharA only replaces ASCII characters with ASCII characters.
SYSMAINT_API const char* _stristr(const char* text, const char* pattern);
SYSMAINT_API long GetTokenA(const char* text, const char* separators, unsigned long index, char* token,
                            unsigned long capacity, unsigned long* needed);
SYSMAINT_API char* SetFirstCharA(char* text, char find, char replacement);

/// A copy of `text`.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringDuplicateW(const wchar_t* text, wchar_t** result);
SYSMAINT_API long StringDuplicateA(const char* text, char** result);

/// A copy of `text` without the characters at its beginning and end that are in `characters`. Whole
/// characters are compared; a surrogate pair is never split.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringTrimW(const wchar_t* text, const wchar_t* characters, wchar_t** result);
SYSMAINT_API long StringTrimA(const char* text, const char* characters, char** result);

/// A copy of `text` with every `from` replaced with `to`, from left to right; the replacements are not
/// searched again.
///
/// @param ignoreCase  not 0: character by character without regard to case, as the system compares file names
/// @return 0, 87 (also an empty `from`), 8; A: 1113
SYSMAINT_API long StringReplaceAllW(const wchar_t* text, const wchar_t* from, const wchar_t* to,
                                    int ignoreCase, wchar_t** result);
SYSMAINT_API long StringReplaceAllA(const char* text, const char* from, const char* to, int ignoreCase,
                                    char** result);

/// Splits `text` at every character of `separators` into a list of terminated texts.
///
/// @param keepEmpty  not 0: entries may be empty, so read the list by `count`; 0: empty ones are omitted
/// @param count      receives the number of entries
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringSplitW(const wchar_t* text, const wchar_t* separators, int keepEmpty, wchar_t** list,
                               size_t* count);
SYSMAINT_API long StringSplitA(const char* text, const char* separators, int keepEmpty, char** list,
                               size_t* count);

/// The texts of `list`, each terminated, up to an empty one, with `separator` between them.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringJoinW(const wchar_t* list, const wchar_t* separator, wchar_t** result);
SYSMAINT_API long StringJoinA(const char* list, const char* separator, char** result);

/// Whether `text` begins with `prefix`; true for an empty one. `ignoreCase`: see StringReplaceAllW.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringStartsWithW(const wchar_t* text, const wchar_t* prefix, int ignoreCase, int* result);
SYSMAINT_API long StringStartsWithA(const char* text, const char* prefix, int ignoreCase, int* result);

/// Whether `text` ends with `suffix`; true for an empty one. `ignoreCase`: see StringReplaceAllW.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringEndsWithW(const wchar_t* text, const wchar_t* suffix, int ignoreCase, int* result);
SYSMAINT_API long StringEndsWithA(const char* text, const char* suffix, int ignoreCase, int* result);

/// Whether `text` contains `part`; it always contains an empty one. `ignoreCase`: see StringReplaceAllW.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringContainsW(const wchar_t* text, const wchar_t* part, int ignoreCase, int* result);
SYSMAINT_API long StringContainsA(const char* text, const char* part, int ignoreCase, int* result);

/// Compares as people sort: runs of the digits 0 to 9, of any length, by their value ("file9" before
/// "file10"), everything else character by character without regard to case. Ties are broken by length, then
/// by code units, so only identical texts are equal.
///
/// @param order  receives -1, 0 or 1
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringCompareNaturalW(const wchar_t* first, const wchar_t* second, int* order);
SYSMAINT_API long StringCompareNaturalA(const char* first, const char* second, int* order);

/// Whether the whole of `text` matches `pattern`, without regard to case: the validator's own matcher, with
/// `*`, `?` and `[...]`; see IScanValidator for its rules.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringMatchesPatternW(const wchar_t* text, const wchar_t* pattern, int* result);
SYSMAINT_API long StringMatchesPatternA(const char* text, const char* pattern, int* result);

/// A copy in upper case, the same on every machine: character by character, as the system compares file
/// names. Characters above U+FFFF stay unchanged.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringToUpperW(const wchar_t* text, wchar_t** result);
SYSMAINT_API long StringToUpperA(const char* text, char** result);

/// The same in lower case.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringToLowerW(const wchar_t* text, wchar_t** result);
SYSMAINT_API long StringToLowerA(const char* text, char** result);

/// Converts the whole of `text` to a number. It may begin with a sign, but not with blanks.
///
/// @param base  2 to 36, with letters for digits beyond 9; "0x" may precede the digits of base 16. 0: 16 with
///              "0x", otherwise 10
/// @return 0; 87 (not a number, or no such base); 534 (ERROR_ARITHMETIC_OVERFLOW: too large or too small); 8;
/// A: 1113
SYSMAINT_API long StringToInt64W(const wchar_t* text, int base, int64_t* value);
SYSMAINT_API long StringToInt64A(const char* text, int base, int64_t* value);

/// `length` bytes as hexadecimal digits in lower case, two for each.
///
/// @return 0, 87, 8
SYSMAINT_API long StringFormatHexW(const void* bytes, size_t length, wchar_t** result);
SYSMAINT_API long StringFormatHexA(const void* bytes, size_t length, char** result);

/// The bytes that `text` spells with two hexadecimal digits each, of either case, and nothing else.
///
/// @return 0; 87 (also for any other text); 8; A: 1113
SYSMAINT_API long StringParseHexW(const wchar_t* text, unsigned char** bytes, size_t* length);
SYSMAINT_API long StringParseHexA(const char* text, unsigned char** bytes, size_t* length);

/// `argument` as one argument of a command line, quoted where the C runtime requires it. Programs follow
/// these rules; the command interpreter has others.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringQuoteArgumentW(const wchar_t* argument, wchar_t** result);
SYSMAINT_API long StringQuoteArgumentA(const char* argument, char** result);

/// UTF-16 as UTF-8, strictly.
///
/// @param length      characters of `text`, which may include zeros; (size_t)-1: up to its terminator
/// @param utf8Length  receives the length of `utf8` in bytes without its terminator
/// @return 0, 87, 8, 1113 (a lone surrogate)
SYSMAINT_API long StringWideToUtf8(const wchar_t* text, size_t length, char** utf8, size_t* utf8Length);

/// The reverse: 1113 for bytes that are not valid UTF-8, such as overlong forms and surrogates.
SYSMAINT_API long StringUtf8ToWide(const char* utf8, size_t length, wchar_t** text, size_t* textLength);

/// UTF-16 in one of the system's code pages. What the page lacks becomes its substitute ("?"), never a
/// similar character, which might be a quotation mark or a backslash.
///
/// @param codePage  as for WideCharToMultiByte; 0: the system's own
/// @param lossy     receives whether `narrow` cannot be converted back to `text`
/// @return 0; 87 (also an unknown code page); 8; 534 (2 GiB or more); 1113 (UTF-8 and a lone surrogate)
SYSMAINT_API long StringWideToAnsi(const wchar_t* text, unsigned int codePage, char** narrow, int* lossy);

/// The reverse: 1113 for bytes that are no character of the code page.
SYSMAINT_API long StringAnsiToWide(const char* narrow, unsigned int codePage, wchar_t** text);
SYSMAINT_C_END
