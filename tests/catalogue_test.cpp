// The catalogue file datalayer.xml, read from the working directory.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "XMLParser.h"

namespace {

void WriteCatalogue(const std::string& text) { std::ofstream("datalayer.xml") << text; }

std::string Table(int number, const char* name, const char* key) {
    const std::string element = "TableName_" + std::to_string(number);
    return "<" + element + "><tName>" + name + "</tName><!-- note --> <pKey>" + key + "</pKey></" + element + ">";
}

TEST(Catalogue, FillsNamesAndKeysFromTheFile) {
    WriteCatalogue("<?xml version=\"1.0\"?><DataLayer><TableCount><Count>3</Count></TableCount>" +
                   Table(1, "JDFTICKET", "QENTRYID") + "<Nested>" + Table(3, "DEVICEJOB", "TRACKID") +
                   "</Nested></DataLayer>");
    XMLParser parser;
    std::map<int, std::string> names, keys;
    names[3] = "kept";
    EXPECT_TRUE(parser.FillTicketTypeandPrimaryKey(names, keys));
    EXPECT_EQ(2u, names.size());
    EXPECT_EQ("JDFTICKET", names[1]);
    EXPECT_EQ("kept", names[3]);  // an existing entry is not replaced
    EXPECT_EQ("TRACKID", keys[3]);
    EXPECT_EQ(0u, keys.count(2));  // table 2 is missing: skipped

    // Parse keys the map by pointer: equal names do not merge.
    std::map<char*, char*> entries;
    parser.Parse("TableName_1", entries);
    EXPECT_EQ(2u, entries.size());
    for (auto& entry : entries) {
        delete[] entry.first;
        delete[] entry.second;
    }
}

TEST(Catalogue, ABareCountOrABadFileIsRefused) {
    XMLParser parser;
    std::map<int, std::string> names, keys;
    WriteCatalogue("<DataLayer><TableCount>8</TableCount></DataLayer>");
    EXPECT_FALSE(parser.FillTicketTypeandPrimaryKey(names, keys));
    WriteCatalogue("<DataLayer><TableCount><A>1</A><B>2</B></TableCount></DataLayer>");
    EXPECT_FALSE(parser.FillTicketTypeandPrimaryKey(names, keys));
    EXPECT_TRUE(names.empty());
    WriteCatalogue("<DataLayer><TableCount><A>-4</A></TableCount></DataLayer>");
    EXPECT_TRUE(parser.FillTicketTypeandPrimaryKey(names, keys));
    EXPECT_TRUE(names.empty());

    // The XML library's exception reaches the caller, and the parser can be used again.
    WriteCatalogue("<DataLayer><TableCount>");
    EXPECT_ANY_THROW(parser.FillTicketTypeandPrimaryKey(names, keys));
    std::remove("datalayer.xml");
    EXPECT_ANY_THROW(parser.FillTicketTypeandPrimaryKey(names, keys));
    EXPECT_TRUE(names.empty());
}

}  // namespace
