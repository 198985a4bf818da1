// Fuzz target: the ticket file reader. Each input is written to a ticket
// file and opened; a file that opens is read through every accessor, changed
// (one value appended) and released, which writes it anew; the new file must
// open again with the same values. A crash, a sanitizer report, a leak or a
// broken read-back (reported and aborted) is a finding.
#include <ZTTickets.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string g_path;

[[noreturn]] void Broken(const char* what) {
    std::fprintf(stderr, "ticketfile_fuzz: %s\n", what);
    std::abort();
}

struct Values {
    bool idsRead, urlsRead;
    std::vector<std::string> ids, urls;
};

Values ReadLists(const STICKET_ACCESS* ticket) {
    Values values;
    values.idsRead = ticket->GetVectorParameter("ZT/QUERYID", values.ids);
    values.urlsRead = ticket->GetVectorParameter("ZT/URL", values.urls);
    return values;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static char directory[] = "/dev/shm/ticketfile_fuzz.XXXXXX";
    static char fallback[] = "/tmp/ticketfile_fuzz.XXXXXX";
    static const char* made = mkdtemp(directory);
    if (made == nullptr) made = mkdtemp(fallback);
    if (made == nullptr) Broken("no working directory");
    g_path = std::string(made) + "/QueryURL";
    std::atexit([] {
        std::remove(g_path.c_str());
        rmdir(made);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(g_path.c_str(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0)
        Broken("cannot write the ticket file");

    const STICKET_ACCESS* ticket = CreateTicket(g_path.c_str());
    if (ticket == nullptr) return 0;  // not a ticket file: refused, as it should be

    const Values before = ReadLists(ticket);
    std::string value;
    for (size_t i = 0; i < before.ids.size(); ++i)
        if (!ticket->GetParameter("ZT/QUERYID", value, static_cast<int>(i)) || value != before.ids[i])
            Broken("GetParameter disagrees with GetVectorParameter");
    if (ticket->GetParameter("ZT/QUERYID", value, static_cast<int>(before.ids.size())))
        Broken("a value past the end");
    if (!before.urls.empty()) {
        const int at = ticket->FindParameterPosition("ZT/URL", before.urls.back());
        if (at < 0 || before.urls[static_cast<size_t>(at)] != before.urls.back())
            Broken("FindParameterPosition misses a value");
    }

    // Append a value made of the input's first bytes; releasing writes the file.
    const size_t length = std::min<size_t>(size, 64);
    const std::string extra(reinterpret_cast<const char*>(data),
                            strnlen(reinterpret_cast<const char*>(data), length));
    if (!ticket->AddParameter("ZT/FUZZ", extra.c_str())) Broken("AddParameter failed");
    DestroyTicket(ticket);

    ticket = CreateTicket(g_path.c_str());
    if (ticket == nullptr) Broken("the rewritten ticket file does not open");
    const Values after = ReadLists(ticket);
    std::vector<std::string> appended;
    ticket->GetVectorParameter("ZT/FUZZ", appended);
    DestroyTicket(ticket);
    if (after.idsRead != before.idsRead || after.urlsRead != before.urlsRead || after.ids != before.ids ||
        after.urls != before.urls)
        Broken("the rewritten ticket file reads back differently");
    if (appended.empty() || appended.back() != extra) Broken("the appended value did not survive");
    return 0;
}
