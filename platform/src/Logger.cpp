#include "Logger.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <mutex>
#include <string>

#include "ConfigurationControl.h"
#include "StringUtils.h"
#include "Utf8.h"

namespace {

// Cap on width and precision, so that a broken format cannot ask for gigabytes.
constexpr int kMaxField = 4096;

enum class Length { None, HH, H, L, LL, Z, J, T, BigL };

struct Conversion {
    std::string flags;  // printf flags in the order written
    bool leftAlign = false;
    int width = -1;
    bool widthFromArg = false;
    int precision = -1;
    bool precisionFromArg = false;
    Length length = Length::None;
    wchar_t kind = 0;
};

const char* LengthText(Length length) {
    switch (length) {
        case Length::HH: return "hh";
        case Length::H: return "h";
        case Length::L: return "l";
        case Length::LL: return "ll";
        case Length::Z: return "z";
        case Length::J: return "j";
        case Length::T: return "t";
        case Length::BigL: return "L";
        default: return "";
    }
}

bool IsInteger(wchar_t kind) {
    return kind == L'd' || kind == L'i' || kind == L'u' || kind == L'o' || kind == L'x' || kind == L'X';
}

bool IsFloating(wchar_t kind) {
    switch (kind) {
        case L'f': case L'F': case L'e': case L'E': case L'g': case L'G': case L'a': case L'A':
            return true;
        default:
            return false;
    }
}

// Whether the conversion, with its length modifier, is one the logger renders.
bool IsKnown(const Conversion& c) {
    if (IsInteger(c.kind)) return c.length != Length::BigL;
    if (IsFloating(c.kind)) return c.length == Length::None || c.length == Length::L || c.length == Length::BigL;
    if (c.kind == L's' || c.kind == L'c') return c.length == Length::None || c.length == Length::L;
    if (c.kind == L'p') return c.length == Length::None;
    return false;
}

// Rebuilds the conversion as a narrow printf directive with the
// argument-supplied width and precision already resolved.
std::string NarrowSpec(const Conversion& c) {
    std::string spec = "%" + c.flags;
    if (c.width >= 0) spec += std::to_string(c.width);
    if (c.precision >= 0) spec += "." + std::to_string(c.precision);
    spec += LengthText(c.length);
    spec += static_cast<char>(c.kind);
    return spec;
}

// Numbers are rendered by snprintf; its output is ASCII, so widening is a copy.
template <typename T>
void AppendNumber(std::wstring& out, const Conversion& c, T value) {
    const std::string spec = NarrowSpec(c);
    char buffer[128];
    const int n = std::snprintf(buffer, sizeof buffer, spec.c_str(), value);
    if (n < 0) return;
    if (static_cast<std::size_t>(n) < sizeof buffer) {
        out.append(buffer, buffer + n);
        return;
    }
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    std::snprintf(&big[0], big.size(), spec.c_str(), value);
    out.append(big.begin(), big.begin() + n);
}

void AppendPadded(std::wstring& out, const Conversion& c, const std::wstring& text) {
    const std::size_t width = c.width > 0 ? static_cast<std::size_t>(c.width) : 0;
    const std::size_t pad = text.size() < width ? width - text.size() : 0;
    if (!c.leftAlign) out.append(pad, L' ');
    out += text;
    if (c.leftAlign) out.append(pad, L' ');
}

// Narrow text is UTF-8; a precision limits the characters taken.
std::wstring DecodeNarrow(const char* text, int precision) {
    std::wstring result;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const std::size_t limit = precision < 0 ? SIZE_MAX : static_cast<std::size_t>(precision);
    while (*p != 0 && result.size() < limit) {
        char32_t cp;
        p += norva_utf8::Decode(p, SIZE_MAX, cp);
        result += static_cast<wchar_t>(cp);
    }
    return result;
}

std::wstring CopyWide(const wchar_t* text, int precision) {
    const std::size_t limit = precision < 0 ? SIZE_MAX : static_cast<std::size_t>(precision);
    std::size_t n = 0;
    while (n < limit && text[n] != 0) ++n;
    return std::wstring(text, n);
}

wchar_t CharFromCode(std::uint32_t code) {
    if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return static_cast<wchar_t>(norva_utf8::kReplacement);
    return static_cast<wchar_t>(code);
}

// Parses the conversion after a '%' at p. Returns the position after the
// conversion character, or null when the format ends inside the conversion.
const wchar_t* ParseConversion(const wchar_t* p, Conversion& c) {
    for (;; ++p) {
        if (*p == L'-') c.leftAlign = true;
        else if (*p != L'+' && *p != L' ' && *p != L'#' && *p != L'0') break;
        c.flags += static_cast<char>(*p);
    }
    if (*p == L'*') {
        c.widthFromArg = true;
        ++p;
    } else {
        for (; *p >= L'0' && *p <= L'9'; ++p) {
            c.width = (c.width < 0 ? 0 : c.width) * 10 + (*p - L'0');
            if (c.width > kMaxField) c.width = kMaxField;
        }
    }
    if (*p == L'.') {
        ++p;
        if (*p == L'*') {
            c.precisionFromArg = true;
            ++p;
        } else {
            c.precision = 0;
            for (; *p >= L'0' && *p <= L'9'; ++p) {
                c.precision = c.precision * 10 + (*p - L'0');
                if (c.precision > kMaxField) c.precision = kMaxField;
            }
        }
    }
    switch (*p) {
        case L'h':
            ++p;
            if (*p == L'h') { c.length = Length::HH; ++p; } else c.length = Length::H;
            break;
        case L'l':
            ++p;
            if (*p == L'l') { c.length = Length::LL; ++p; } else c.length = Length::L;
            break;
        case L'z': c.length = Length::Z; ++p; break;
        case L'j': c.length = Length::J; ++p; break;
        case L't': c.length = Length::T; ++p; break;
        case L'L': c.length = Length::BigL; ++p; break;
        default: break;
    }
    if (*p == 0) return nullptr;
    c.kind = *p;
    return p + 1;
}

void AppendInteger(std::wstring& out, const Conversion& c, va_list& args) {
    const bool isSigned = c.kind == L'd' || c.kind == L'i';
    switch (c.length) {
        case Length::L:
            if (isSigned) AppendNumber(out, c, va_arg(args, long));
            else AppendNumber(out, c, va_arg(args, unsigned long));
            break;
        case Length::LL:
            if (isSigned) AppendNumber(out, c, va_arg(args, long long));
            else AppendNumber(out, c, va_arg(args, unsigned long long));
            break;
        case Length::Z:
            if (isSigned) AppendNumber(out, c, va_arg(args, std::ptrdiff_t));
            else AppendNumber(out, c, va_arg(args, std::size_t));
            break;
        case Length::J:
            if (isSigned) AppendNumber(out, c, va_arg(args, std::intmax_t));
            else AppendNumber(out, c, va_arg(args, std::uintmax_t));
            break;
        case Length::T:
            if (isSigned) AppendNumber(out, c, va_arg(args, std::ptrdiff_t));
            else AppendNumber(out, c, va_arg(args, std::size_t));
            break;
        default:  // int, and the promoted char and short of hh and h
            if (isSigned) AppendNumber(out, c, va_arg(args, int));
            else AppendNumber(out, c, va_arg(args, unsigned int));
            break;
    }
}

void Format(std::wstring& out, const wchar_t* format, va_list& args) {
    if (format == nullptr) {
        out = L"(null)";
        return;
    }
    const wchar_t* p = format;
    while (*p != 0) {
        if (*p != L'%') {
            const wchar_t* run = p;
            while (*p != 0 && *p != L'%') ++p;
            out.append(run, p);
            continue;
        }
        const wchar_t* start = p++;
        if (*p == L'%') {
            out += L'%';
            ++p;
            continue;
        }
        Conversion c;
        const wchar_t* next = ParseConversion(p, c);
        if (next == nullptr) {  // the format ends inside a conversion
            out += start;
            return;
        }
        p = next;
        if (!IsKnown(c)) {  // copied as it stands, taking no argument
            out.append(start, p);
            continue;
        }
        if (c.widthFromArg) {
            const long width = va_arg(args, int);
            if (width < 0) {
                c.leftAlign = true;
                c.flags += '-';
            }
            c.width = static_cast<int>(width < 0 ? (-width > kMaxField ? kMaxField : -width)
                                                 : (width > kMaxField ? kMaxField : width));
        }
        if (c.precisionFromArg) {
            const int precision = va_arg(args, int);
            c.precision = precision < 0 ? -1 : (precision > kMaxField ? kMaxField : precision);
        }
        if (IsInteger(c.kind)) {
            AppendInteger(out, c, args);
        } else if (IsFloating(c.kind)) {
            if (c.length == Length::BigL) AppendNumber(out, c, va_arg(args, long double));
            else AppendNumber(out, c, va_arg(args, double));
        } else if (c.kind == L'p') {
            AppendNumber(out, c, va_arg(args, void*));
        } else if (c.kind == L's') {
            if (c.length == Length::L) {
                const wchar_t* text = va_arg(args, const wchar_t*);
                AppendPadded(out, c, text == nullptr ? std::wstring(L"(null)") : CopyWide(text, c.precision));
            } else {
                const char* text = va_arg(args, const char*);
                AppendPadded(out, c, text == nullptr ? std::wstring(L"(null)") : DecodeNarrow(text, c.precision));
            }
        } else {  // 'c': %lc is a code point, %c a byte, which is text only when ASCII
            const std::uint32_t code = c.length == Length::L
                                           ? static_cast<std::uint32_t>(va_arg(args, wint_t))
                                           : static_cast<unsigned char>(va_arg(args, int));
            const wchar_t ch = c.length == Length::L || code < 0x80 ? CharFromCode(code)
                                                                    : static_cast<wchar_t>(norva_utf8::kReplacement);
            AppendPadded(out, c, std::wstring(1, ch));
        }
    }
}

// Set while this thread is inside the sink: a line the sink logs itself must
// not wait for the lock this thread already holds.
thread_local bool t_inSink = false;

}  // namespace

struct Logger::Output {
    std::mutex mutex;
    Sink sink;
    std::FILE* file = nullptr;  // the open LogFile, or null for standard error
    std::string filePath;       // the LogFile the destination was chosen for

    // Writes to LogFile, following changes of the configuration, else to stderr.
    void WriteDefault(const std::wstring& line) {
        const std::string wanted = ConfigurationControl::GetLogFile();
        if (wanted != filePath) {  // a failed open is not retried until LogFile changes
            if (file != nullptr) std::fclose(file);
            file = nullptr;
            filePath = wanted;
            if (!wanted.empty()) {
                file = std::fopen(wanted.c_str(), "ae");
                if (file == nullptr) std::fprintf(stderr, "cannot open log file %s, logging to standard error\n", wanted.c_str());
            }
        }
        std::string bytes = StringUtils::UTF8FromUni(line);
        bytes += '\n';
        std::FILE* target = file != nullptr ? file : stderr;
        std::fwrite(bytes.data(), 1, bytes.size(), target);
        std::fflush(target);
    }
};

Logger* Logger::Initialise() {
    // Never destroyed: code running at process exit may still log.
    static Logger* const instance = new Logger();
    return instance;
}

Logger::Logger() : m_threshold(ConfigurationControl::GetLogLevel()), m_pOutput(new Output) {}

Logger::~Logger() { delete m_pOutput; }

void Logger::log(LOG_CONST level, const wchar_t* format, ...) {
    if (static_cast<int>(level) > m_threshold.load(std::memory_order_relaxed)) return;
    std::wstring line;
    va_list args;
    va_start(args, format);
    Format(line, format, args);
    va_end(args);
    Emit(level, line);
}

void Logger::SetLevel(int threshold) { m_threshold.store(threshold, std::memory_order_relaxed); }

int Logger::GetLevel() const { return m_threshold.load(std::memory_order_relaxed); }

void Logger::SetSink(Sink sink) {
    std::lock_guard<std::mutex> lock(m_pOutput->mutex);
    m_pOutput->sink = std::move(sink);
}

void Logger::Emit(LOG_CONST level, const std::wstring& line) {
    if (t_inSink) {
        m_pOutput->WriteDefault(line);
        return;
    }
    std::lock_guard<std::mutex> lock(m_pOutput->mutex);
    if (!m_pOutput->sink) {
        m_pOutput->WriteDefault(line);
        return;
    }
    t_inSink = true;
    try {
        m_pOutput->sink(level, line);
    } catch (...) {
        // The logger never throws into the code that logs.
    }
    t_inSink = false;
}
