// Tests of the sort keys and their ordering: segment widths and rules, carried values, and the
// level-by-level comparison with stable ties.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sort/engine.h"

namespace pelmark::sort {
namespace {

qb::TxnLine Line(std::string item, std::string desc = {}, std::string qty = {},
                 std::string tax = {}) {
    qb::TxnLine line;
    line.lineType = qb::kLineItem;
    line.itemFullName = std::move(item);
    line.desc = std::move(desc);
    line.quantity = std::move(qty);
    line.salesTaxCodeFullName = std::move(tax);
    return line;
}

std::vector<SortKey> Keys(const std::vector<qb::TxnLine>& lines, const SortSettings& settings) {
    std::vector<const qb::TxnLine*> pointers;
    for (const qb::TxnLine& line : lines) pointers.push_back(&line);
    return BuildSortKeys(pointers, settings);
}

std::string Padded(std::string s) {
    s.resize(std::max<std::size_t>(s.size(), kSegmentWidth), ' ');
    return s;
}

// The new order of the lines, as item names.
std::vector<std::string> Sorted(const std::vector<qb::TxnLine>& lines,
                                const SortSettings& settings) {
    std::vector<std::string> items;
    for (std::size_t p : SortOrder(Keys(lines, settings))) items.push_back(lines[p].itemFullName);
    return items;
}

TEST(SortKeys, SegmentRules) {
    qb::TxnLine line = Line(" Parts: Screws ", "hex bolt", "10", "Tax");
    line.rate = "1.5abc";
    line.classFullName = "East";
    line.other1 = "o1";
    line.other2 = "o2";
    line.customFields = {{"Color", "red"}, {"Bin", "b7"}, {"Color", "blue"}};
    // Plain texts only: GCC 12 misreports string members of a braced case table at -O3.
    struct Case {
        const char* field;
        bool caseSensitive, keepBlank;
        const char* text;
        bool itemWidth;  // the text is first filled to the item name width
    };
    const Case cases[] = {
        {"Item Full Name", false, false, " PARTS: SCREWS ", true},
        {"Item Full Name", false, true, " PARTS: SCREWS ", true},
        {"Item Full Name", true, false, " Parts: Screws ", true},
        {"Item Name", false, false, "SCREWS", false},
        {"Item Name", false, true, "SCREWS", false},
        {"Item Name", true, false, "Screws", false},
        {"Desc", false, false, "HEX BOLT", false},
        {"Desc", true, false, "hex bolt", false},
        {"Class", false, false, "EAST", false},
        {"Tax Code", false, false, "TAX  ", false},
        {"Price", false, false, "1.5abc", false},
        {"Qty", false, false, "10", false},
        {"Other1", false, false, "O1", false},
        {"Other2", true, false, "o2", false},
        {"Color", false, false, "RED", false},  // the first field of that name
        {"Bin", true, false, "b7", false},
        {"No Such Field", false, false, "", false},
        {"Amount", false, false, "", false},  // no text level built yet
    };
    for (const Case& c : cases) {
        SortSettings settings;
        settings.levels = {{c.field, false, c.caseSensitive}};
        settings.keepBlankItems = c.keepBlank;
        std::string expected = c.text;
        if (c.itemWidth) expected.resize(kItemNameWidth, ' ');
        if (c.keepBlank) expected += "0000";
        const std::vector<SortKey> keys = Keys({line}, settings);
        ASSERT_EQ(keys.size(), 1u);
        ASSERT_EQ(keys[0].segments.size(), 1u) << c.field;
        EXPECT_EQ(keys[0].segments[0], Padded(expected)) << c.field;
    }
}

TEST(SortKeys, LongValuesAreCutOnlyForItemNames) {
    const std::string longName = "P:" + std::string(300, 'x');
    SortSettings settings;
    settings.levels = {{"Item Full Name"}, {"Item Name"}, {"Desc"}};
    const std::vector<SortKey> keys = Keys({Line(longName, std::string(250, 'd'))}, settings);
    EXPECT_EQ(keys[0].segments[0], Padded("P:" + std::string(kItemNameWidth - 2, 'X')));
    EXPECT_EQ(keys[0].segments[1], Padded(std::string(kItemNameWidth, 'X')));
    EXPECT_EQ(keys[0].segments[2], std::string(250, 'D'));
}

TEST(SortKeys, EntryAndLevels) {
    SortSettings settings;
    settings.levels = {{""}, {"Qty"}, {""}};
    std::vector<qb::TxnLine> lines(8, Line("A", "", "3"));
    const std::vector<SortKey> keys = Keys(lines, settings);
    EXPECT_EQ(keys[7].Entry(), Padded("3") + "\t00007\t");

    std::vector<SortLevel> many(25, SortLevel{"Desc"});
    many[0].field = "";
    EXPECT_EQ(ActiveLevels(many).size(), kMaxSortLevels);
}

TEST(SortKeys, TaxCodeIsCarriedFromTheLineAbove) {
    SortSettings settings;
    settings.levels = {{"Tax Code"}};
    const std::vector<SortKey> keys =
        Keys({Line("A"), Line("B", "", "", "Tax"), Line("C"), Line("D", "", "", "Non")}, settings);
    EXPECT_EQ(keys[0].segments[0], Padded(""));
    EXPECT_EQ(keys[1].segments[0], Padded("TAX  "));
    EXPECT_EQ(keys[2].segments[0], Padded("TAX  "));
    EXPECT_EQ(keys[3].segments[0], Padded("NON  "));
}

TEST(SortKeys, AmountRepeatsTheMostRecentTextSegment) {
    SortSettings settings;
    settings.levels = {{"Amount"}, {"Desc"}, {"Amount"}};
    const std::vector<SortKey> keys = Keys({Line("A", "first"), Line("B", "second")}, settings);
    EXPECT_EQ(keys[0].segments[0], Padded(""));
    EXPECT_EQ(keys[0].segments[2], Padded("FIRST"));
    EXPECT_EQ(keys[1].segments[0], Padded("FIRST"));  // from the line above
    EXPECT_EQ(keys[1].segments[2], Padded("SECOND"));
}

TEST(SortOrder, OrdersAsTheSortedListDoes) {
    struct Case {
        const char* name;
        std::vector<SortLevel> levels;
        bool keepBlank;
        std::vector<qb::TxnLine> lines;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases = {
        {"quantities compare as text",
         {{"Qty"}},
         false,
         {Line("nine", "", "9"), Line("ten", "", "10"), Line("two", "", "2")},
         {"ten", "two", "nine"}},
        {"equal keys keep their order",
         {{"Item Full Name"}, {"Desc"}},
         false,
         {Line("B", "x"), Line("A", "y"), Line("B", "x"), Line("A", "y")},
         {"A", "A", "B", "B"}},
        {"amount alone keeps the incoming order",
         {{"Amount"}},
         false,
         {Line("C"), Line("A"), Line("B")},
         {"C", "A", "B"}},
        {"case-insensitive even when the case box is checked",
         {{"Item Full Name", false, true}},
         false,
         {Line("banana"), Line("Cherry"), Line("apple")},
         {"apple", "banana", "Cherry"}},
        {"descending level keeps ties in incoming order",
         {{"Desc", true}},
         false,
         {Line("b1", "b"), Line("a", "a"), Line("b2", "b"), Line("c", "c")},
         {"c", "b1", "b2", "a"}},
        {"descending first level, ascending second",
         {{"Desc", true}, {"Item Full Name"}},
         false,
         {Line("z", "a"), Line("y", "b"), Line("x", "b"), Line("w", "a")},
         {"x", "y", "w", "z"}},
        {"keep blank items makes later levels irrelevant",
         {{"Item Full Name"}, {"Desc", true}},
         true,
         {Line("B", "1"), Line("A", "1"), Line("B", "2"), Line("A", "2")},
         {"A", "A", "B", "B"}},
        {"shorter name first on the item name level",
         {{"Item Name"}},
         false,
         {Line("Parts:Screws"), Line("Other:Screw"), Line("Bolt")},
         {"Bolt", "Other:Screw", "Parts:Screws"}},
    };
    for (const Case& c : cases) {
        SortSettings settings;
        settings.levels = c.levels;
        settings.keepBlankItems = c.keepBlank;
        EXPECT_EQ(Sorted(c.lines, settings), c.expected) << c.name;
    }
}

}  // namespace
}  // namespace pelmark::sort
