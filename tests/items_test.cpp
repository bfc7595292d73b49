// Tests of the item list read from a QuickBooks IIF export.
#include <gtest/gtest.h>

#include "app/items.h"
#include "fakes/qbFakes.h"

namespace pelmark {
namespace {

using test::TestApp;

std::string ShowNamed(const ItemTable& table, const std::string& fullName) {
    for (const ItemRec& item : table.items)
        if (item.fullName == fullName) return test::ShowItem(item);
    return "missing " + fullName;
}

// A TestApp whose information prompts are shown (the stop options hold them back otherwise).
struct ItemsApp : TestApp {
    ItemsApp() { app.frmMain.SetOption(*app.frmMain.Find("optStopOnInfo"), true); }
    void Read(const std::string& iif) {
        dir.Write("Items.iif", iif);
        ReadItemsIIF(app);
    }
};

TEST(ItemsTest, SampleExportOfEveryKind) {
    ItemsApp t;
    t.Read(test::FileBytes(std::string(PELMARK_SOURCE_DIR) + "/samples/Items.iif"));
    const ItemTable& table = t.app.items;
    EXPECT_EQ(table.count(), 41u);
    EXPECT_TRUE(t.prompter.shown.empty());
    EXPECT_EQ(ShowNamed(table, "Hardware:Screws:Wood Screw"),
              "Wood Screw|Hardware:Screws:Wood Screw|3|3|Wood screw, #8 x 1-1/4\" flat head|0.10|"
              "0.03|Tax");
    EXPECT_EQ(
        ShowNamed(table, "Contractor Discount"),
        "Contractor Discount|Contractor Discount|1|7|10% discount for contractors|-10.0%||Non");
    EXPECT_EQ(table.salesTaxGroups.size(), 4u);  // COMPTAX
    EXPECT_EQ(table.items[table.salesTaxItems.at("San Tomas Combined")].price, "7.75%");
}

// tests/data/iif-layouts.txt: a file of tests/data/iif|items read|the first, as Show writes it.
TEST(ItemsTest, LayoutsQuickBooksAndEditorsWrite) {
    for (const auto& row : test::DataRows("iif-layouts.txt")) {
        SCOPED_TRACE(row[0]);
        ItemsApp t;
        t.Read(test::FileBytes(std::string(PELMARK_SOURCE_DIR) + "/tests/data/iif/" + row[0]));
        EXPECT_TRUE(t.prompter.shown.empty());
        ASSERT_EQ(t.app.items.count(), std::stoul(row[1]));
        std::string first;
        for (std::size_t i = 2; i < row.size(); ++i) first += (i > 2 ? "|" : "") + row[i];
        EXPECT_EQ(row[1] == "0" ? "" : test::ShowItem(t.app.items.items[0]), first);
    }
}

TEST(ItemsTest, TaxCollectionsAndReload) {
    ItemsApp t;
    ItemRec kept;
    kept.fullName = "From QuickBooks";
    AddItem(t.app.items, kept);
    ReadItemsIIF(t.app);  // no file: the table stays as it was
    ASSERT_EQ(t.app.items.count(), 1u);

    t.Read(
        "!INVITEM\tNAME\tINVITEMTYPE\tDESC\tPRICE\r\nINVITEM\tState Tax\tSTAX\tfirst\t6%\r\n"
        "INVITEM\tCounty\tCOMPTAX\tgroup\t7.5%\r\nINVITEM\tSTATE TAX\tstax\tsecond\t9%\r\n");
    const ItemTable& table = t.app.items;
    ASSERT_EQ(table.count(), 3u);  // the file's list replaced the table
    ASSERT_EQ(table.salesTaxItems.size(), 1u);
    EXPECT_EQ(table.items[table.salesTaxItems.at("state tax")].desc, "first");
    EXPECT_EQ(table.items[table.salesTaxGroups.at("COUNTY")].price, "7.5%");
}

}  // namespace
}  // namespace pelmark
