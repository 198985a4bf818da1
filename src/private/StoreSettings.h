#ifndef NORVA_PRIVATE_STORESETTINGS_H
#define NORVA_PRIVATE_STORESETTINGS_H

#include <string>
#include <vector>

// How connections are secured (key DBTLS).
enum class TlsMode { Off, Required, VerifyCA, VerifyIdentity };
// Which node of a host list takes the statements (key ClusterWrites): the
// first usable one for every process, or whichever answered last.
enum class ClusterWrites { One, Any };

// Every configuration key that chooses how the store behaves, read and
// checked once, when the store and its connections are made. A value that
// cannot be understood is not replaced by a default: it is named in
// `problems`, and the store refuses to run.
struct StoreSettings {
    std::string hosts;              // DBIPAddr, UTF-8
    std::string profile = "exact";  // "exact" or "safe"
    bool idPattern = false;
    int connections = 1;
    int connectTimeout = 0;  // seconds
    int readTimeout = 0;
    int writeTimeout = 0;
    std::string user;          // DBUser; empty: the compiled-in account
    std::string passwordFile;  // DBPasswordFile
    std::string password;      // the first line of DBPasswordFile; never logged or printed
    TlsMode tls = TlsMode::Off;
    std::string tlsCA;
    std::string tlsCert;
    std::string tlsKey;
    ClusterWrites clusterWrites = ClusterWrites::One;
    std::vector<std::string> problems;  // one sentence per value refused, naming its key

    bool Usable() const { return problems.empty(); }
};

// The settings as the configuration holds them now.
StoreSettings ReadStoreSettings();

// The password on the first line of `path`, a regular file only its owner
// may read. Empty, with `problem` naming the file and the fix, otherwise.
std::string ReadPasswordFile(const std::string& path, std::string& problem);

#endif
