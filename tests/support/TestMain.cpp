// Test entry point: points the platform configuration at the private server,
// and chooses the profile (NORVA_TEST_PROFILE), before any test creates the store.
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
    return RUN_ALL_TESTS();
}
