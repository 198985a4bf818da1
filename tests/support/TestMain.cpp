// Test entry point: points the platform configuration at the private server,
// and chooses the profile (NORVA_TEST_PROFILE) and identifier mode
// (NORVA_TEST_IDPATTERN), before any test creates the store.
#include <ConfigurationControl.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "StringUtils.h"
#include "TestSupport.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const std::string host = testing_support::DbHost();
    if (!host.empty()) ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(host));
    if (const char* profile = std::getenv("NORVA_TEST_PROFILE")) ConfigurationControl::SetProfile(profile);
    if (const char* pattern = std::getenv("NORVA_TEST_IDPATTERN")) ConfigurationControl::SetIDPattern(pattern[0] == '1');
    // Runs a program over TLS, the server's certificate checked against this CA (scripts/run-cluster.sh).
    if (const char* ca = std::getenv("NORVA_TEST_TLS_CA")) {
        ConfigurationControl::SetDBTLS("verify-identity");
        ConfigurationControl::SetDBTLSCA(ca);
    }
    // Runs a program with a pool of connections (tests/CMakeLists.txt registers such runs).
    if (const char* connections = std::getenv("NORVA_TEST_CONNECTIONS"))
        ConfigurationControl::SetConnections(std::atoi(connections));
    return RUN_ALL_TESTS();
}
