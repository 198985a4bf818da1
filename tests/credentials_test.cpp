// The account from DBUser and DBPasswordFile, each case in a process of its
// own (the store reads the settings once): a password file others may read,
// a missing one and a DBUser without one are refused before anything is
// sent; an owner-only file connects as that account; a wrong password fails
// each call once, without retrying. The password never shows in the log.
#include <ConfigurationControl.h>
#include <cppconn/resultset.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <string>

#include "DatabaseConnection.h"
#include "TestSupport.h"

using testing_support::ChildRun;
using testing_support::InChild;

namespace {

const char kUser[] = "norva_cred";
const char kPassword[] = "Pw-7f3k-Zq9 x";  // a blank inside: the whole first line counts
const char kFile[] = "cred-password";

// The first column of the first row of `query`, run on the library's own connection.
std::string LibraryScalar(const char* query) {
    std::string text = query;
    std::unique_ptr<sql::ResultSet> rows(CDatabaseConnection::m_hInstance->ExecuteSqlQuery(text));
    return rows && rows->next() ? std::string(rows->getString(1)) : "<none>";
}

void WriteFile(const char* path, const std::string& text, mode_t mode) {
    std::ofstream(path, std::ios::trunc) << text;
    ASSERT_EQ(0, chmod(path, mode));
}

// Reads row C1 (status 7) as DBUser with DBPasswordFile = path, connected as that account.
ChildRun ReadAs(const std::string& user, const std::string& path) {
    return InChild([&] {
        ConfigurationControl::SetDBUser(user);
        ConfigurationControl::SetDBPasswordFile(path);
        int status = -1;
        return testing_support::ReadStatusOfC1(status) && status == 7 &&
               LibraryScalar("SELECT CURRENT_USER()") == user + "@%";
    });
}

class Credentials : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        testing_support::RawDb db;
        db.Exec(std::string("CREATE USER IF NOT EXISTS '") + kUser + "'@'%' IDENTIFIED BY '" + kPassword + "'");
        db.Exec(std::string("GRANT SELECT, INSERT, UPDATE, DELETE ON jdfdb.* TO '") + kUser + "'@'%'");
        db.Reset({"JDFTICKET"});
        db.Exec("INSERT INTO JDFTICKET (QENTRYID, STATUS) VALUES ('C1', 7)");
    }
    static void ExpectNoPassword(const ChildRun& run) {
        EXPECT_FALSE(run.Logged(kPassword)) << "the password was logged";
    }
};

TEST_F(Credentials, FileOthersMayReadIsRefusedOwnerOnlyConnectsAsItsAccount) {
    WriteFile(kFile, kPassword, 0644);
    const ChildRun open = ReadAs(kUser, kFile);
    EXPECT_FALSE(open.result) << open;
    EXPECT_TRUE(open.Logged(std::string("ERROR: the configuration is refused, nothing is sent: DBPasswordFile = \"") +
                            kFile + "\" may be read by group or others (mode 0644): chmod 600 " + kFile))
        << open;
    EXPECT_FALSE(open.Logged("Access denied")) << "nothing may reach the server";
    ExpectNoPassword(open);
    WriteFile(kFile, kPassword, 0640);
    EXPECT_TRUE(ReadAs(kUser, kFile).Logged("(mode 0640): chmod 600"));

    WriteFile(kFile, std::string(kPassword) + "\nsecond line ignored\n", 0600);
    const ChildRun owner = ReadAs(kUser, kFile);
    EXPECT_TRUE(owner.result) << owner;
    ExpectNoPassword(owner);
}

TEST_F(Credentials, MissingFileOrNoFileNeverFallsBackToTheCompiledInAccount) {
    const ChildRun missing = ReadAs(kUser, "no-such-file");
    EXPECT_FALSE(missing.result);
    EXPECT_TRUE(missing.Logged("DBPasswordFile = \"no-such-file\" cannot be read: No such file or directory"));
    const ChildRun none = ReadAs(kUser, "");
    EXPECT_FALSE(none.result);
    EXPECT_TRUE(none.Logged(std::string("DBUser = \"") + kUser + "\" has no DBPasswordFile"));
    WriteFile(kFile, "\n", 0600);
    EXPECT_TRUE(ReadAs(kUser, kFile).Logged("holds no password on its first line"));
    for (const ChildRun* run : {&missing, &none}) EXPECT_FALSE(run->Logged("lumbo27"));
}

TEST_F(Credentials, WrongPasswordFailsEachCallOnceWithOneClearLine) {
    WriteFile(kFile, "not-the-password", 0600);
    const ChildRun run = InChild([] {
        ConfigurationControl::SetDBUser(kUser);
        ConfigurationControl::SetDBPasswordFile(kFile);
        int status = -1;
        bool any = false;
        for (int call = 0; call < 3; ++call) any = testing_support::ReadStatusOfC1(status) || any;
        return any;
    });
    EXPECT_FALSE(run.result) << run;
    // One attempt when the store is made and one for each call: no retrying.
    EXPECT_EQ(4u, run.Count(std::string("ERROR: Access denied for user '") + kUser + "'@'127.0.0.1' (using password: YES)"));
    EXPECT_EQ(4u, run.Count("MySQL error code: 1045"));
    EXPECT_FALSE(run.Logged("not-the-password"));
}

}  // namespace
