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

// Files that differ in column order, line ends, quoting, row length and other lists.
TEST(ItemsTest, LayoutsQuickBooksAndEditorsWrite) {
    const std::string header = "!INVITEM\tNAME\tINVITEMTYPE\tDESC\tPRICE\r\n";
    struct {
        std::string iif;
        size_t count;
        const char* first;  // the first item, as Show writes it
    } cases[] = {
        {"\xEF\xBB\xBF!INVITEM\tPRICE\tSALESTAXCODE\tDESC\tCOST\tINVITEMTYPE\tNAME\r\n"
         "INVITEM\t12.50\tTax\tHourly labor\t4.00\tserv\tLabor:Site:Cleanup\r\n",
         1, "Cleanup|Labor:Site:Cleanup|3|0|Hourly labor|12.50|4.00|Tax"},
        {"!INVITEM\tNAME\tINVITEMTYPE\tDESC\tPRICE\nINVITEM\t  Bolt  \t PART \t Hex bolt \t 0.25 "
         "\n",
         1, "Bolt|Bolt|1|1|Hex bolt|0.25||"},
        {header + "INVITEM\t\"Pipe, 1/2\"\"\"\tINVENTORY\t\"Copper, \"\"L\"\"\"\t\"1,200.00\"\r\n",
         1, "Pipe, 1/2\"|Pipe, 1/2\"|1|3|Copper, \"L\"|1,200.00||"},
        {header + "INVITEM\tFee\tOTHC\r\n", 1, "Fee|Fee|1|2||||"},  // short row
        {"!HDR\tPROD\r\nHDR\tQuickBooks Pro\r\n!CUST\tNAME\r\nCUST\tAcme\r\n" + header +
             "INVITEM\tTruck\tFIXEDASSET\tF-150\t0\r\n!VEND\tNAME\r\nVEND\tPatton\r\n"
             "INVITEM\tLast\tGRP\t\t\r\n",
         2, "Truck|Truck|1|-1|F-150|0||"},  // unknown code: kind unset
        {"!CUST\tNAME\r\nCUST\tAcme\r\n", 0, ""},
        {"INVITEM\tEarly\tSERV\r\n" + header + "INVITEM\tLate\tSUBT\tSub\t\r\n\r\n", 1,
         "Late|Late|1|6|Sub|||"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.iif);
        ItemsApp t;
        t.Read(c.iif);
        EXPECT_TRUE(t.prompter.shown.empty());
        ASSERT_EQ(t.app.items.count(), c.count);
        EXPECT_EQ(c.count ? test::ShowItem(t.app.items.items[0]) : "", c.first);
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
