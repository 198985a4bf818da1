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
    return RUN_ALL_TESTS();
}
