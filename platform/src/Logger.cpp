#include "Logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <mutex>
#include <string>
#include <type_traits>

#include "ConfigurationChanges.h"
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
    if constexpr (std::is_integral<T>::value) {
        if (c.flags.empty() && c.width < 0 && c.precision < 0 && (c.kind == L'd' || c.kind == L'i' || c.kind == L'u')) {
            char digits[24];  // plain decimal, the common case: no format string to build
            const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
            out.append(digits, end.ptr);
            return;
        }
    }
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

// Appends what `append` appends to out, padded to the conversion's width.
template <typename Append>
void AppendText(std::wstring& out, const Conversion& c, Append append) {
    const std::size_t start = out.size();
    append();
    const std::size_t width = c.width > 0 ? static_cast<std::size_t>(c.width) : 0;
    const std::size_t length = out.size() - start;
    if (length >= width) return;
    if (c.leftAlign)
        out.append(width - length, L' ');
    else
        out.insert(start, width - length, L' ');
}

// Narrow text is UTF-8; a precision limits the characters taken.
void AppendNarrow(std::wstring& out, const char* text, int precision) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    std::size_t left = precision < 0 ? SIZE_MAX : static_cast<std::size_t>(precision);
    for (; *p != 0 && left > 0; --left) {
        if (*p < 0x80) {
            out += static_cast<wchar_t>(*p++);
            continue;
        }
        char32_t cp;
        p += norva_utf8::Decode(p, SIZE_MAX, cp);
        out += static_cast<wchar_t>(cp);
    }
}

void AppendWide(std::wstring& out, const wchar_t* text, int precision) {
    if (precision < 0) {
        out += text;
        return;
    }
    std::size_t n = 0;
    while (n < static_cast<std::size_t>(precision) && text[n] != 0) ++n;
    out.append(text, n);
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
                AppendText(out, c, [&] { AppendWide(out, text == nullptr ? L"(null)" : text, text ? c.precision : -1); });
            } else {
                const char* text = va_arg(args, const char*);
                AppendText(out, c, [&] {
                    if (text == nullptr) out += L"(null)";
                    else AppendNarrow(out, text, c.precision);
                });
            }
        } else {  // 'c': %lc is a code point, %c a byte, which is text only when ASCII
            const std::uint32_t code = c.length == Length::L
                                           ? static_cast<std::uint32_t>(va_arg(args, wint_t))
                                           : static_cast<unsigned char>(va_arg(args, int));
            const wchar_t ch = c.length == Length::L || code < 0x80 ? CharFromCode(code)
                                                                    : static_cast<wchar_t>(norva_utf8::kReplacement);
            AppendText(out, c, [&] { out += ch; });
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
    int file = -1;         // the open LogFile, or -1 for standard error
    std::string filePath;  // the LogFile the destination was chosen for
    unsigned long changes = ~0ul;  // the configuration's change count when LogFile was last read
    std::string bytes;     // the line being written, kept to reuse its memory

    // Writes to LogFile, following changes of the configuration, else to
    // stderr: one write(2) per line, so that a line is in the file as soon as
    // log returns, whatever happens to the process afterwards.
    void WriteDefault(const std::wstring& line) {
        // LogFile is read again only after the configuration changed (with a
        // configuration library that does not count changes: for every line).
        const unsigned long now = norva_config::Changes ? norva_config::Changes() : changes + 1;
        if (now != changes) {
            changes = now;
            const std::string wanted = ConfigurationControl::GetLogFile();
            if (wanted != filePath) {  // a failed open is not retried until LogFile changes
                if (file >= 0) ::close(file);
                file = -1;
                filePath = wanted;
                if (!wanted.empty()) {
                    file = ::open(wanted.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
                    if (file < 0)
                        std::fprintf(stderr, "cannot open log file %s, logging to standard error\n", wanted.c_str());
                }
            }
        }
        bytes.clear();
        for (const wchar_t ch : line) {
            const std::uint32_t c = static_cast<std::uint32_t>(ch);
            if (c < 0x80) {
                bytes += static_cast<char>(c);
            } else {
                char encoded[4];
                bytes.append(encoded, norva_utf8::Encode(c, encoded) - encoded);
            }
        }
        bytes += '\n';
        const int target = file >= 0 ? file : STDERR_FILENO;
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t n = ::write(target, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<std::size_t>(n);
        }
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
    // The thread's line buffer keeps its memory from line to line; a line
    // logged while one is being emitted (from a sink) gets a buffer of its own.
    thread_local std::wstring t_line;
    thread_local bool t_lineInUse = false;
    std::wstring own;
    std::wstring& line = t_lineInUse ? own : t_line;
    const bool borrowed = !t_lineInUse;
    t_lineInUse = true;
    line.clear();
    va_list args;
    va_start(args, format);
    Format(line, format, args);
    va_end(args);
    Emit(level, line);
    if (borrowed) t_lineInUse = false;
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
