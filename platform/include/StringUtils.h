#ifndef NORVA_PLATFORM_STRINGUTILS_H
#define NORVA_PLATFORM_STRINGUTILS_H

#include <string>

/// Conversions between wide text (UTF-32, one wchar_t per code point) and UTF-8.
/// They do not depend on the process locale and never throw: malformed input
/// (broken or overlong UTF-8, surrogates, values above U+10FFFF) becomes U+FFFD.
class StringUtils {
public:
    /// Wide text to UTF-8.
    static std::string UTF8FromUni(const std::wstring& text);
    /// Narrow text is UTF-8, so this is the same conversion as UTF8FromUni.
    static std::string stringFromwstring(const std::wstring& text);
    /// UTF-8 to wide text.
    static std::wstring wstringFromstring(const std::string& text);
};

#endif
