// Fuzz target: the catalogue reader. Each input becomes ./datalayer.xml in
// a private working directory, then the table catalogue is filled from it and
// the elements are parsed directly. The XML library's exceptions for a
// malformed file are the expected outcome; anything else escaping, a crash,
// a sanitizer report or a leak is a finding.
#include <unistd.h>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "XMLParser.h"

namespace {

// The count of tables FillTicketTypeandPrimaryKey would walk: each table
// number parses the whole file once more, so a large count only makes the
// call slow (as specified), not wrong; such inputs skip that call.
const int kMaxTables = 64;

void FreeEntries(std::map<char*, char*>& entries) {
    for (auto& entry : entries) {
        delete[] entry.first;
        delete[] entry.second;
    }
    entries.clear();
}

bool Contains(const uint8_t* data, size_t size, const char* word) {
    const size_t length = std::strlen(word);
    for (size_t i = 0; i + length <= size; ++i)
        if (std::memcmp(data + i, word, length) == 0) return true;
    return false;
}

void Exercise() {
    XMLParser parser;
    std::map<char*, char*> entries;
    parser.Parse("TableCount", entries);
    const int count = entries.size() == 1 ? std::atoi(entries.begin()->second) : 0;
    FreeEntries(entries);
    if (count <= kMaxTables) {
        std::map<int, std::string> names, keys;
        parser.FillTicketTypeandPrimaryKey(names, keys);
    }
    parser.Parse("TableName_1", entries);
    FreeEntries(entries);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // A working directory of its own, on a memory file system when there is
    // one; removed again when the run ends normally. Corpus and artifact
    // paths given on the command line must therefore be absolute.
    static char directory[] = "/dev/shm/xmlparser_fuzz.XXXXXX";
    static char fallback[] = "/tmp/xmlparser_fuzz.XXXXXX";
    static const char* made = mkdtemp(directory);
    if (made == nullptr) made = mkdtemp(fallback);
    if (made == nullptr || chdir(made) != 0) {
        std::perror("xmlparser_fuzz: working directory");
        std::abort();
    }
    std::atexit([] {
        std::remove((std::string(made) + "/datalayer.xml").c_str());
        rmdir(made);
    });
    // Keep the XML platform up between inputs; each XMLParser still
    // initialises and terminates it (a counted reference).
    xercesc::XMLPlatformUtils::Initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // External identifiers would make the parser open other files or hosts.
    if (Contains(data, size, "SYSTEM") || Contains(data, size, "PUBLIC")) return -1;
    FILE* file = std::fopen("datalayer.xml", "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
        std::perror("xmlparser_fuzz: datalayer.xml");
        std::abort();
    }
    try {
        Exercise();
    } catch (const xercesc::SAXException&) {
    } catch (const xercesc::XMLException&) {
    } catch (const xercesc::DOMException&) {
    } catch (const xercesc::OutOfMemoryException&) {
    }
    return 0;
}
