#include <gtest/gtest.h>

#include "FoundationFakes.h"
#include "Managers/Database.h"

using namespace tactora;
using tactora::testing::ScratchDirectory;

TEST(Database, ReadsColumnsByNameWithoutRegardToCaseAndByIndex) {
    ScratchDirectory dir;
    Database db((dir.path() / "t.sqlite3").string());
    EXPECT_FALSE(db.executeUpdate("CREATE TABLE T (A TEXT);"));  // not open yet
    ASSERT_TRUE(db.open());
    ASSERT_TRUE(db.executeUpdate("CREATE TABLE T (NAME TEXT, N INTEGER, F NUMERIC, B BOOLEAN);"));
    ASSERT_TRUE(db.executeUpdate("INSERT INTO T VALUES ('x', 4294967297, 1.5, 2);"));
    ASSERT_TRUE(db.executeUpdate("INSERT INTO T VALUES (NULL, NULL, NULL, 0);"));
    EXPECT_FALSE(db.executeUpdate("INSERT INTO T VALUES ('it's');"));
    EXPECT_EQ(db.executeQuery("SELECT nothing FROM T;"), nullptr);

    auto rows = db.executeQuery("SELECT NAME, N, F, B FROM T ORDER BY rowid;");
    ASSERT_TRUE(rows);
    EXPECT_EQ(rows->stringForColumn("NAME"), std::nullopt);  // before the first row
    ASSERT_TRUE(rows->next());
    EXPECT_EQ(rows->stringForColumn("name"), "x");
    EXPECT_EQ(rows->intForColumn("N"), 1);
    EXPECT_EQ(rows->intForColumnIndex(1), 1);
    EXPECT_EQ(rows->doubleForColumn("f"), 1.5);
    EXPECT_TRUE(rows->boolForColumn("B"));
    EXPECT_EQ(rows->stringForColumn("MISSING"), std::nullopt);
    EXPECT_EQ(rows->intForColumn("MISSING"), 0);
    EXPECT_EQ(rows->intForColumnIndex(9), 0);
    ASSERT_TRUE(rows->next());
    EXPECT_EQ(rows->stringForColumn("NAME"), std::nullopt);
    EXPECT_EQ(rows->intForColumn("N"), 0);
    EXPECT_FALSE(rows->boolForColumn("B"));
    EXPECT_FALSE(rows->next());
    EXPECT_FALSE(rows->next());
}

TEST(Database, ClosingEndsTheResultSetsStillOpen) {
    ScratchDirectory dir;
    auto db = std::make_unique<Database>((dir.path() / "t.sqlite3").string());
    ASSERT_TRUE(db->open());
    ASSERT_TRUE(db->executeUpdate("CREATE TABLE T (A INTEGER);"));
    ASSERT_TRUE(db->executeUpdate("INSERT INTO T VALUES (1), (2);"));
    auto first = db->executeQuery("SELECT A FROM T;");
    auto second = db->executeQuery("SELECT A FROM T;");
    ASSERT_TRUE(first && second);
    ASSERT_TRUE(first->next());
    second->close();
    db->close();
    EXPECT_FALSE(first->next());
    EXPECT_EQ(first->intForColumn("A"), 0);
    db.reset();  // the result sets outlive their database safely
    EXPECT_FALSE(second->next());

    Database missing((dir.path() / "no" / "such" / "dir.sqlite3").string());
    EXPECT_FALSE(missing.open());
    EXPECT_EQ(missing.executeQuery("SELECT 1;"), nullptr);
}
