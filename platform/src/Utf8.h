// UTF-8 encoding and decoding steps shared by the platform libraries.
#ifndef NORVA_PLATFORM_UTF8_H
#define NORVA_PLATFORM_UTF8_H

#include <cstddef>
#include <cstdint>

namespace norva_utf8 {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one character from p, where avail >= 1 bytes may be read, and
// returns the number of bytes used (at least 1). Malformed input gives U+FFFD
// for the longest prefix that could have started a valid sequence, so the next
// call resumes at the offending byte. A byte is read only after the one before
// it was accepted as part of the sequence, so a NUL terminator is never passed.
inline std::size_t Decode(const unsigned char* p, std::size_t avail, char32_t& cp) {
    const unsigned char lead = p[0];
    if (lead < 0x80) {
        cp = lead;
        return 1;
    }
    std::size_t trail;
    char32_t value;
    unsigned char low = 0x80, high = 0xBF;  // allowed range of the next byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        trail = 1;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        trail = 2;
        value = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;        // overlong
        else if (lead == 0xED) high = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        trail = 3;
        value = lead & 0x07;
        if (lead == 0xF0) low = 0x90;        // overlong
        else if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
    } else {
        cp = kReplacement;  // stray continuation byte, C0, C1 or F5..FF
        return 1;
    }
    for (std::size_t i = 1; i <= trail; ++i) {
        if (i >= avail || p[i] < low || p[i] > high) {
            cp = kReplacement;
            return i;
        }
        value = (value << 6) | (p[i] & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    cp = value;
    return trail + 1;
}

// Bytes needed to encode c; anything that is not a scalar value is U+FFFD.
inline std::size_t EncodedLength(std::uint32_t c) {
    if (c < 0x80) return 1;
    if (c < 0x800) return 2;
    if (c < 0x10000 || c > 0x10FFFF) return 3;
    return 4;
}

// Writes c as UTF-8 at out and returns the position after it.
inline char* Encode(std::uint32_t c, char* out) {
    if (c < 0x80) {
        *out++ = static_cast<char>(c);
    } else if (c < 0x800) {
        *out++ = static_cast<char>(0xC0 | (c >> 6));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000 || c > 0x10FFFF) {
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacement;
        *out++ = static_cast<char>(0xE0 | (c >> 12));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (c >> 18));
        *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

}  // namespace norva_utf8

#endif
