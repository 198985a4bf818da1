#include "StringUtils.h"

#include <cstdint>
#include <cstring>

#include "Utf8.h"

static_assert(sizeof(wchar_t) == 4, "wide text is expected to be UTF-32");

std::string StringUtils::UTF8FromUni(const std::wstring& text) {
    const wchar_t* in = text.data();
    const std::size_t n = text.size();

    // Size the result exactly first: the texts can be megabytes long.
    std::size_t length = 0;
    for (std::size_t i = 0; i < n; ++i) length += norva_utf8::EncodedLength(static_cast<std::uint32_t>(in[i]));

    std::string out(length, '\0');
    char* o = &out[0];
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t c = static_cast<std::uint32_t>(in[i]);
        if (c < 0x80) *o++ = static_cast<char>(c);
        else o = norva_utf8::Encode(c, o);
    }
    return out;
}

std::string StringUtils::stringFromwstring(const std::wstring& text) { return UTF8FromUni(text); }

std::wstring StringUtils::wstringFromstring(const std::string& text) {
    // Never more characters than bytes.
    std::wstring out(text.size(), L'\0');
    wchar_t* o = &out[0];
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = p + text.size();
    while (p < end) {
        // Runs of ASCII are copied eight bytes at a time.
        while (end - p >= 8) {
            std::uint64_t block;
            std::memcpy(&block, p, 8);
            if (block & 0x8080808080808080ULL) break;
            for (int k = 0; k < 8; ++k) o[k] = static_cast<wchar_t>(p[k]);
            o += 8;
            p += 8;
        }
        if (p == end) break;
        if (*p < 0x80) {
            *o++ = static_cast<wchar_t>(*p++);
            continue;
        }
        char32_t cp;
        p += norva_utf8::Decode(p, static_cast<std::size_t>(end - p), cp);
        *o++ = static_cast<wchar_t>(cp);
    }
    out.resize(static_cast<std::size_t>(o - out.data()));
    return out;
}
