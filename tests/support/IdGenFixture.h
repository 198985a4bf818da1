// Fixture of the identifier tests: CONTENT and JDFTICKET emptied, the MAXID
// marks at zero, and a short way to ask the store for the next content id.
#pragma once

#include <gtest/gtest.h>

#include "CMysqlDatabaseInterface.h"
#include "TestSupport.h"

namespace testing_support {

class IdGenTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.Reset({"CONTENT", "JDFTICKET"});
        store = CMysqlDatabaseInterface::GetInstance();
    }
    int NextContentId() {
        int id = -1;
        store->GenerateNewID(TICKET_CONTENT, &id, PARAM_INT);
        return id;
    }
    RawDb db;
    CMysqlDatabaseInterface* store = nullptr;
};

}  // namespace testing_support
