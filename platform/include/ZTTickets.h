#ifndef NORVA_PLATFORM_ZTTICKETS_H
#define NORVA_PLATFORM_ZTTICKETS_H

#include <string>
#include <vector>

/// @file
/// Ticket files: small files of named parameters, each an ordered list of
/// narrow (UTF-8) text values. A parameter is named by a path such as "ZT/URL".
///
/// Tickets are opened with CreateTicket() and released with DestroyTicket();
/// releasing a changed ticket replaces the file atomically. One ticket must not
/// be used from several threads at once without a lock of the caller's; distinct
/// tickets are independent.

struct ZTTicketData;  ///< the library's ticket, opaque to users

/// Read access to an open ticket.
class STICKET_READ {
public:
    /// The index-th value (from 0) of the parameter; false when there is none.
    bool GetParameter(const char* path, std::string& value, int index) const;
    /// All values of the parameter in file order; false (and values emptied)
    /// when the parameter does not exist.
    bool GetVectorParameter(const char* path, std::vector<std::string>& values) const;
    /// Index of the first value equal to value, or -1.
    int FindParameterPosition(const char* path, const std::string& value) const;

    /// The library's ticket behind this object.
    ZTTicketData* NativeHandle() const { return m_pNative; }

protected:
    /// Wraps a ticket of the library; only the library makes tickets.
    explicit STICKET_READ(ZTTicketData* native) : m_pNative(native) {}
    ~STICKET_READ() = default;
    STICKET_READ(const STICKET_READ&) = delete;
    STICKET_READ& operator=(const STICKET_READ&) = delete;

private:
    ZTTicketData* m_pNative;
};

/// A ticket that can also be changed; changes reach the file when the
/// ticket is released with DestroyTicket().
class STICKET_MODIFY : public STICKET_READ {
public:
    bool AddParameter(const char* path, const char* value) const;  ///< appends value
    bool DelParameter(const char* path, int index) const;          ///< removes the index-th value

protected:
    /// Wraps a ticket of the library; only the library makes tickets.
    explicit STICKET_MODIFY(ZTTicketData* native) : STICKET_READ(native) {}
    ~STICKET_MODIFY() = default;
};

/// The ticket handed out by CreateTicket(): read and change it, then give
/// it back with DestroyTicket().
class STICKET_ACCESS : public STICKET_MODIFY {
private:
    friend struct ZTTicketData;  ///< only the library makes and destroys tickets
    explicit STICKET_ACCESS(ZTTicketData* native) : STICKET_MODIFY(native) {}
    ~STICKET_ACCESS() = default;
};

/// Operation codes of the Modify entry point.
enum { ZT_OP_DELETE = 0, ZT_OP_APPEND = 4 };
/// @var ZT_OP_DELETE
/// Removes the value at the index.
/// @var ZT_OP_APPEND
/// Appends the value.

/// The library's entry points, in this order.
struct STICKET_INSTANCE {
    /// Version of the ticket file format the library writes (1).
    int (*Version)();
    /// Text of the last failure on the calling thread ("" if none).
    const char* (*LastError)();
    /// Opens a ticket file; a missing file opens as an empty ticket. Null when
    /// the file cannot be read or parsed (it is then never overwritten).
    const STICKET_ACCESS* (*Open)(const char* path);
    /// Releases a ticket, first replacing the file if the ticket was changed.
    /// A null ticket is ignored.
    void (*Release)(const STICKET_ACCESS* const& ticket);
    /// op ZT_OP_APPEND appends value (index unused); op ZT_OP_DELETE removes
    /// the value at index (value unused). Anything else fails.
    bool (*Modify)(ZTTicketData* native, const char* path, int op, const char* value, int index);
};

/// The library's entry points; null means that no ticket can be made.
extern const STICKET_INSTANCE* hSTicketInstance;

/// Test hook: when set, called after the new content has been written to the
/// temporary file and flushed to disk, just before it is renamed over the ticket
/// file. Tests use it to stop the process at that point. Null in normal use.
///
extern "C" void (*ZTTicketsBeforeReplaceHook)(const char* tempPath);

inline int STICKET_READ::FindParameterPosition(const char* path, const std::string& value) const {
    std::string current;
    for (int index = 0; GetParameter(path, current, index); ++index) {
        if (current == value) return index;
    }
    return -1;
}

inline bool STICKET_MODIFY::AddParameter(const char* path, const char* value) const {
    return hSTicketInstance != nullptr &&
           hSTicketInstance->Modify(NativeHandle(), path, ZT_OP_APPEND, value, -2);
}

inline bool STICKET_MODIFY::DelParameter(const char* path, int index) const {
    return hSTicketInstance != nullptr &&
           hSTicketInstance->Modify(NativeHandle(), path, ZT_OP_DELETE, nullptr, index);
}

/// Opens the ticket file at `path` (see STICKET_INSTANCE::Open); null when
/// it cannot be read or no ticket library is loaded. Give it back with
/// DestroyTicket().
inline const STICKET_ACCESS* CreateTicket(const char* path) {
    return hSTicketInstance == nullptr ? nullptr : hSTicketInstance->Open(path);
}

/// Releases a ticket from CreateTicket(), writing the file when it was
/// changed; a null ticket is ignored.
inline void DestroyTicket(const STICKET_ACCESS* const& ticket) {
    if (hSTicketInstance != nullptr) hSTicketInstance->Release(ticket);
}

#endif
