#pragma once

#include "core/win32/utils/memory/api.h"

// Texts. What all utility functions have in common is said in core/win32/utils/memory/api.h.

extern "C" {
/// Finds the first place where `pattern` stands in `text`, comparing single characters without regard to
/// case in any locale.
///
/// @return a pointer into `text`; `text` itself for an empty pattern; null when there is none or either is
/// null
SYSMAINT_API const wchar_t* _wcsistr(const wchar_t* text, const wchar_t* pattern);

/// Takes texts apart that are lists of entries separated by single characters. Copies entry `index`, counted
/// from 0, of `text` to `token`, always terminated. Neighbouring separators count as one: no entry is empty.
///
/// @param separators  every character of it separates entries
/// @param token       receives the entry; may be null to ask for its length
/// @param capacity    size of `token` in characters, terminator included
/// @param needed      receives the entry's length in characters without terminator; may be null
/// @return 0; 87 (null text or separators); 1168 (no entry of that index); 234 (`token` null or too small,
///         which then receives nothing)
SYSMAINT_API long GetTokenW(const wchar_t* text, const wchar_t* separators, unsigned long index,
                            wchar_t* token, unsigned long capacity, unsigned long* needed);

/// Overwrites the first `find` in `text` by `replacement`; with replacement 0 the text is cut there.
///
/// @return the place that was changed, or null when `find` does not occur or `text` is null
SYSMAINT_API wchar_t* SetFirstCharW(wchar_t* text, wchar_t find, wchar_t replacement);

/// The narrow twins, for UTF-8. Lengths are in bytes. What is not valid is in no text and holds none (null,
/// or 1113); SetFirstCharA changes only ASCII characters, and only into such.
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
/// characters are compared, never halves of a pair of surrogates.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringTrimW(const wchar_t* text, const wchar_t* characters, wchar_t** result);
SYSMAINT_API long StringTrimA(const char* text, const char* characters, char** result);

/// A copy of `text` in which every `from` is replaced by `to`, from left to right; what was put in is not
/// looked at again.
///
/// @param ignoreCase  not 0: character by character without regard to case, as the system compares file names
/// @return 0, 87 (also an empty `from`), 8; A: 1113
SYSMAINT_API long StringReplaceAllW(const wchar_t* text, const wchar_t* from, const wchar_t* to,
                                    int ignoreCase, wchar_t** result);
SYSMAINT_API long StringReplaceAllA(const char* text, const char* from, const char* to, int ignoreCase,
                                    char** result);

/// Takes `text` apart at every character of `separators`, into a list of terminated texts.
///
/// @param keepEmpty  not 0: entries may be empty, so the list has to be walked by `count`; 0: they are left
/// out
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

/// Whether `text` begins with `prefix`; an empty one always does. `ignoreCase`: see StringReplaceAllW.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringStartsWithW(const wchar_t* text, const wchar_t* prefix, int ignoreCase, int* result);
SYSMAINT_API long StringStartsWithA(const char* text, const char* prefix, int ignoreCase, int* result);

/// Whether `text` ends with `suffix`; an empty one always does. `ignoreCase`: see StringReplaceAllW.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringEndsWithW(const wchar_t* text, const wchar_t* suffix, int ignoreCase, int* result);
SYSMAINT_API long StringEndsWithA(const char* text, const char* suffix, int ignoreCase, int* result);

/// Whether `text` holds `part`; an empty one always does. `ignoreCase`: see StringReplaceAllW.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringContainsW(const wchar_t* text, const wchar_t* part, int ignoreCase, int* result);
SYSMAINT_API long StringContainsA(const char* text, const char* part, int ignoreCase, int* result);

/// Compares as people sort: runs of the digits 0 to 9 by their value, of any length ("file9" before
/// "file10"), everything else character by character without regard to case. Texts that are equal so far are
/// put in order by their length, then by their code units: only equal texts are equal.
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

/// A copy in capitals, the same on every machine: character by character, as the system compares file names.
/// Characters above U+FFFF stay.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringToUpperW(const wchar_t* text, wchar_t** result);
SYSMAINT_API long StringToUpperA(const char* text, char** result);

/// The same in small letters.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringToLowerW(const wchar_t* text, wchar_t** result);
SYSMAINT_API long StringToLowerA(const char* text, char** result);

/// The number that `text` is, all of it: a sign may stand first, blanks may not.
///
/// @param base  2 to 36, digits beyond 9 being letters; "0x" may precede the digits of base 16. 0: 16 with
/// "0x",
///              otherwise 10
/// @return 0; 87 (no such number or base); 534 (ERROR_ARITHMETIC_OVERFLOW: too large or too small); 8; A:
/// 1113
SYSMAINT_API long StringToInt64W(const wchar_t* text, int base, long long* value);
SYSMAINT_API long StringToInt64A(const char* text, int base, long long* value);

/// `length` bytes as hexadecimal digits, two small ones each.
///
/// @return 0, 87, 8
SYSMAINT_API long StringFormatHexW(const void* bytes, size_t length, wchar_t** result);
SYSMAINT_API long StringFormatHexA(const void* bytes, size_t length, char** result);

/// The bytes that `text` spells, two hexadecimal digits of either case each and nothing else.
///
/// @return 0; 87 (also for any other text); 8; A: 1113
SYSMAINT_API long StringParseHexW(const wchar_t* text, unsigned char** bytes, size_t* length);
SYSMAINT_API long StringParseHexA(const char* text, unsigned char** bytes, size_t* length);

/// `argument` as one argument of a command line, quoted where the rules of the C runtime ask for it. These
/// are the rules of programs; the command interpreter has others.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long StringQuoteArgumentW(const wchar_t* argument, wchar_t** result);
SYSMAINT_API long StringQuoteArgumentA(const char* argument, char** result);

/// UTF-16 as UTF-8, strictly.
///
/// @param length      characters of `text`, zeros among them; (size_t)-1: up to its terminator
/// @param utf8Length  receives the bytes of `utf8` without its terminator
/// @return 0, 87, 8, 1113 (a lone surrogate)
SYSMAINT_API long StringWideToUtf8(const wchar_t* text, size_t length, char** utf8, size_t* utf8Length);

/// The way back: 1113 for bytes that are not valid UTF-8, overlong forms and surrogates included.
SYSMAINT_API long StringUtf8ToWide(const char* utf8, size_t length, wchar_t** text, size_t* textLength);

/// UTF-16 in a code page of the system's. What the page lacks becomes its substitute ("?"), never a character
/// that looks alike: a look-alike of a quotation mark or backslash would be one.
///
/// @param codePage  as for WideCharToMultiByte; 0: the system's own
/// @param lossy     receives whether `narrow` does not give `text` back
/// @return 0; 87 (also an unknown code page); 8; 534 (2 GiB or more); 1113 (UTF-8 and a lone surrogate)
SYSMAINT_API long StringWideToAnsi(const wchar_t* text, unsigned int codePage, char** narrow, int* lossy);

/// The way back: 1113 for bytes that are no character of the code page.
SYSMAINT_API long StringAnsiToWide(const char* narrow, unsigned int codePage, wchar_t** text);
}
