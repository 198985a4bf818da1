// Ticket files. The format is line-based UTF-8 text:
//
//   ZTTicket 1
//   param "ZT/QUERYID"
//     value "q-17"
//     value "q-18"
//   param "ZT/URL"
//     value "http://sender.example/jmf"
//     value "http://other.example/jmf"
//   end
//
// The first line names the format and its version. Each parameter is a param
// line followed by its values in order. Names and values are quoted; inside
// the quotes a backslash, a quote and control characters are escaped (\\, \",
// \n, \r, \t, \xHH) and every other byte stands as it is. The closing "end"
// line shows that the file is complete. Blank lines and lines starting with
// '#' are ignored. Anything else makes the file unreadable; such a file is
// never opened, so it is never overwritten either.
#include "ZTTickets.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

struct ZTTicketData {
    explicit ZTTicketData(std::string filePath) : path(std::move(filePath)), access(this) {}

    using Parameter = std::pair<std::string, std::vector<std::string>>;

    const std::string path;
    std::mutex mutex;
    std::vector<Parameter> parameters;  // in order of first appearance
    bool changed = false;
    STICKET_ACCESS access;

    Parameter* Find(const char* name) {
        for (Parameter& parameter : parameters) {
            if (parameter.first == name) return &parameter;
        }
        return nullptr;
    }
};

extern "C" {
void (*ZTTicketsBeforeReplaceHook)(const char* tempPath) = nullptr;
}

namespace {

const char kHeader[] = "ZTTicket 1";
const char kHeaderPrefix[] = "ZTTicket ";

thread_local std::string t_lastError;

bool Fail(const std::string& why) {
    t_lastError = why;
    return false;
}

std::string SystemError(const char* what, const std::string& path) {
    return std::string(what) + " " + path + ": " + std::strerror(errno);
}

// ---- text form ----

void AppendQuoted(std::string& out, const std::string& text) {
    static const char hex[] = "0123456789ABCDEF";
    out += '"';
    for (const char ch : text) {
        const unsigned char byte = static_cast<unsigned char>(ch);
        switch (ch) {
            case '\\': out += "\\\\"; break;
            case '"': out += "\\\""; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (byte < 0x20 || byte == 0x7F) {
                    out += "\\x";
                    out += hex[byte >> 4];
                    out += hex[byte & 0x0F];
                } else {
                    out += ch;
                }
        }
    }
    out += '"';
}

std::string Serialise(const std::vector<ZTTicketData::Parameter>& parameters) {
    std::string out = kHeader;
    out += '\n';
    for (const auto& parameter : parameters) {
        out += "param ";
        AppendQuoted(out, parameter.first);
        out += '\n';
        for (const std::string& value : parameter.second) {
            out += "  value ";
            AppendQuoted(out, value);
            out += '\n';
        }
    }
    out += "end\n";
    return out;
}

int HexDigit(char ch) {
    if (ch >= '0' && ch <= '9') return ch - '0';
    if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
    if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
    return -1;
}

// Reads a quoted text starting at line[pos] that must end the line.
bool ParseQuoted(const std::string& line, std::size_t pos, std::string& text, std::string& why) {
    if (pos >= line.size() || line[pos] != '"') {
        why = "expected a quoted text";
        return false;
    }
    text.clear();
    for (++pos; pos < line.size(); ++pos) {
        const char ch = line[pos];
        const unsigned char byte = static_cast<unsigned char>(ch);
        if (ch == '"') {
            if (line.find_first_not_of(" \t", pos + 1) != std::string::npos) {
                why = "text after the closing quote";
                return false;
            }
            return true;
        }
        if (byte < 0x20 || byte == 0x7F) {
            why = "unescaped control character";
            return false;
        }
        if (ch != '\\') {
            text += ch;
            continue;
        }
        if (++pos >= line.size()) break;
        switch (line[pos]) {
            case '\\': text += '\\'; break;
            case '"': text += '"'; break;
            case 'n': text += '\n'; break;
            case 'r': text += '\r'; break;
            case 't': text += '\t'; break;
            case 'x': {
                const int high = pos + 1 < line.size() ? HexDigit(line[pos + 1]) : -1;
                const int low = pos + 2 < line.size() ? HexDigit(line[pos + 2]) : -1;
                if (high < 0 || low < 0) {
                    why = "bad \\x escape";
                    return false;
                }
                text += static_cast<char>(high * 16 + low);
                pos += 2;
                break;
            }
            default:
                why = "unknown escape";
                return false;
        }
    }
    why = "missing closing quote";
    return false;
}

bool StartsWithWord(const std::string& line, std::size_t pos, const char* word) {
    const std::size_t n = std::strlen(word);
    return line.compare(pos, n, word) == 0 && pos + n < line.size() && line[pos + n] == ' ';
}

bool Parse(const std::string& content, std::vector<ZTTicketData::Parameter>& parameters, std::string& why) {
    std::size_t lineStart = 0;
    int lineNo = 0;
    bool ended = false;
    while (lineStart < content.size()) {
        std::size_t lineEnd = content.find('\n', lineStart);
        if (lineEnd == std::string::npos) lineEnd = content.size();
        const std::string line = content.substr(lineStart, lineEnd - lineStart);
        lineStart = lineEnd + 1;
        ++lineNo;
        const std::string where = "line " + std::to_string(lineNo) + ": ";

        if (lineNo == 1) {
            if (line == kHeader) continue;
            why = line.compare(0, sizeof kHeaderPrefix - 1, kHeaderPrefix) == 0 ? "unsupported format version"
                                                                                : "not a ticket file";
            return false;
        }
        const std::size_t pos = line.find_first_not_of(" \t");
        if (pos == std::string::npos || line[pos] == '#') continue;
        if (ended) {
            why = where + "text after the end line";
            return false;
        }
        std::string text, error;
        if (line.compare(pos, std::string::npos, "end") == 0) {
            ended = true;
        } else if (StartsWithWord(line, pos, "param")) {
            if (!ParseQuoted(line, pos + 6, text, error)) {
                why = where + error;
                return false;
            }
            for (const auto& parameter : parameters) {
                if (parameter.first == text) {
                    why = where + "parameter \"" + text + "\" appears twice";
                    return false;
                }
            }
            parameters.emplace_back(text, std::vector<std::string>());
        } else if (StartsWithWord(line, pos, "value")) {
            if (parameters.empty()) {
                why = where + "value before any parameter";
                return false;
            }
            if (!ParseQuoted(line, pos + 6, text, error)) {
                why = where + error;
                return false;
            }
            parameters.back().second.push_back(text);
        } else {
            why = where + "not understood";
            return false;
        }
    }
    if (lineNo == 0) {
        why = "empty file";
        return false;
    }
    if (!ended) {
        why = "incomplete file: no end line";
        return false;
    }
    return true;
}

// ---- files ----

// Reads the whole file. missing is set (and true returned) when it does not exist.
bool ReadFile(const std::string& path, std::string& content, bool& missing) {
    missing = false;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) {
            missing = true;
            return true;
        }
        return Fail(SystemError("cannot open", path));
    }
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return Fail("not a regular file: " + path);
    }
    content.clear();
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0) break;
        if (n < 0) {
            if (errno == EINTR) continue;
            const bool failed = Fail(SystemError("cannot read", path));
            ::close(fd);
            return failed;
        }
        content.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return true;
}

bool WriteAll(int fd, const std::string& data) {
    const char* p = data.data();
    std::size_t left = data.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    return true;
}

// Replaces path with content so that a crash at any moment leaves either the
// old or the new file: the new content goes to a temporary file in the same
// directory, reaches the disk, and is then renamed over the old file; finally
// the directory itself is flushed so that the rename lasts.
bool ReplaceFile(const std::string& path, const std::string& content) {
    const std::size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);

    std::string temp = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + "." + base + ".XXXXXX";
    const int fd = ::mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0) return Fail(SystemError("cannot create a temporary file for", path));

    // Keep the permissions of the file being replaced; mkstemp makes it 0600.
    struct stat old;
    const mode_t mode = ::stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0644;
    bool ok = ::fchmod(fd, mode) == 0 && WriteAll(fd, content) && ::fsync(fd) == 0;
    std::string why = ok ? std::string() : SystemError("cannot write", temp);
    if (::close(fd) != 0 && ok) {
        ok = false;
        why = SystemError("cannot write", temp);
    }
    if (ok && ZTTicketsBeforeReplaceHook != nullptr) ZTTicketsBeforeReplaceHook(temp.c_str());
    if (ok && ::rename(temp.c_str(), path.c_str()) != 0) {
        ok = false;
        why = SystemError("cannot replace", path);
    }
    if (!ok) {
        ::unlink(temp.c_str());
        return Fail(why);
    }
    const int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) return Fail(SystemError("cannot open directory", dir));
    const bool synced = ::fsync(dirFd) == 0;
    const std::string syncWhy = synced ? std::string() : SystemError("cannot flush directory", dir);
    ::close(dirFd);
    return synced || Fail(syncWhy);
}

// ---- entry points ----

int Version() { return 1; }

const char* LastError() { return t_lastError.c_str(); }

const STICKET_ACCESS* Open(const char* path) {
    if (path == nullptr || *path == '\0') {
        Fail("no ticket file name");
        return nullptr;
    }
    std::string content;
    bool missing = false;
    if (!ReadFile(path, content, missing)) return nullptr;
    ZTTicketData* ticket = new ZTTicketData(path);
    std::string why;
    if (!missing && !Parse(content, ticket->parameters, why)) {
        delete ticket;
        Fail(std::string(path) + ": " + why);
        return nullptr;
    }
    return &ticket->access;
}

void Release(const STICKET_ACCESS* const& access) {
    if (access == nullptr) return;
    ZTTicketData* ticket = access->NativeHandle();
    bool saved = true;
    {
        std::lock_guard<std::mutex> lock(ticket->mutex);
        if (ticket->changed) saved = ReplaceFile(ticket->path, Serialise(ticket->parameters));
    }
    // Release cannot report to its caller, and losing a change silently would hide it.
    if (!saved) std::fprintf(stderr, "ticket file not saved: %s\n", t_lastError.c_str());
    delete ticket;
}

bool Modify(ZTTicketData* ticket, const char* path, int op, const char* value, int index) {
    if (ticket == nullptr || path == nullptr) return Fail("no ticket or no parameter name");
    std::lock_guard<std::mutex> lock(ticket->mutex);
    ZTTicketData::Parameter* parameter = ticket->Find(path);
    if (op == ZT_OP_APPEND) {
        if (value == nullptr) return Fail("no value to append");
        if (parameter == nullptr) {
            ticket->parameters.emplace_back(path, std::vector<std::string>());
            parameter = &ticket->parameters.back();
        }
        parameter->second.emplace_back(value);
    } else if (op == ZT_OP_DELETE) {
        if (parameter == nullptr || index < 0 || static_cast<std::size_t>(index) >= parameter->second.size()) {
            return Fail("no value " + std::to_string(index) + " in parameter " + path);
        }
        parameter->second.erase(parameter->second.begin() + index);
    } else {
        return Fail("unknown operation " + std::to_string(op));
    }
    ticket->changed = true;
    return true;
}

const STICKET_INSTANCE kInstance = {&Version, &LastError, &Open, &Release, &Modify};

}  // namespace

const STICKET_INSTANCE* hSTicketInstance = &kInstance;

bool STICKET_READ::GetParameter(const char* path, std::string& value, int index) const {
    ZTTicketData* ticket = NativeHandle();
    if (ticket == nullptr || path == nullptr || index < 0) return false;
    std::lock_guard<std::mutex> lock(ticket->mutex);
    const ZTTicketData::Parameter* parameter = ticket->Find(path);
    if (parameter == nullptr || static_cast<std::size_t>(index) >= parameter->second.size()) return false;
    value = parameter->second[static_cast<std::size_t>(index)];
    return true;
}

bool STICKET_READ::GetVectorParameter(const char* path, std::vector<std::string>& values) const {
    values.clear();
    ZTTicketData* ticket = NativeHandle();
    if (ticket == nullptr || path == nullptr) return false;
    std::lock_guard<std::mutex> lock(ticket->mutex);
    const ZTTicketData::Parameter* parameter = ticket->Find(path);
    if (parameter == nullptr) return false;
    values = parameter->second;
    return true;
}
