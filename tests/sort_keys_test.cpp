// The ordering the sort plan really uses, in one table that holds natively (ICU) and under Wine
// (Windows' own linguistic order): numbers as numbers, text in the locale's order with digit
// runs as numbers, case as a tie-break only when asked, descending levels and stable ties.
#include <gtest/gtest.h>
#ifndef _WIN32
#include <unicode/uloc.h>
#endif

#include <random>
#include <string>
#include <vector>

#include "sort/collate.h"
#include "sort/engine.h"

namespace pelmark::sort {
namespace {

struct Row {
    const char* item;
    const char* desc = "";
    const char* qty = "";
    const char* amount = "";
    const char* tax = "";
    const char* color = "";  // a custom field, beside another the level does not name
};

TEST(SortOrder, OrdersAsAUserExpects) {
    const std::string longA = "P:" + std::string(200, 'x') + "a",
                      longB = longA.substr(0, 202) + "b";
    struct Case {
        const char* name;
        std::vector<SortLevel> levels;
        std::vector<Row> rows;
        std::vector<std::string> expected;
        bool keepBlank = false;
    };
    const std::vector<Case> cases = {
        {"quantities as numbers",
         {{"Qty"}},
         {{"ten", "", "10"}, {"two", "", "2"}, {"twenty", "", "20"}, {"one", "", "1"}},
         {"one", "two", "ten", "twenty"}},
        {"odd numbers: negative first, then text that is not a number, blank last",
         {{"Qty"}},
         {{"blank"},
          {"abc", "", "abc"},
          {"big", "", "1,000.50"},
          {"neg", "", "-3"},
          {"two", "", " 2000 "},
          {"zero", "", "-0"}},
         {"neg", "zero", "big", "two", "abc", "blank"}},
        {"descending numbers reverse the whole order",
         {{"Qty", true}},
         {{"two", "", "2"}, {"blank"}, {"ten", "", "10"}},
         {"blank", "ten", "two"}},
        {"amount by the line amount",
         {{"Amount"}},
         {{"c", "", "", "30.00"}, {"a", "", "", "5.00"}, {"b", "", "", "-2.00"}},
         {"b", "a", "c"}},
        {"digit runs as numbers, accents among their letters",
         {{"Item Full Name"}},
         {{"Zinc bracket"},
          {"Bolt M10"},
          {"\xC3\x89"
           "clair finish"},
          {"Bolt M6"},
          {"Eagle"},
          {"Fig"}},
         {"Bolt M6", "Bolt M10", "Eagle",
          "\xC3\x89"
          "clair finish",
          "Fig", "Zinc bracket"}},
        {"case ignored, ties keep their order",
         {{"Item Full Name"}},
         {{"banana"}, {"Apple"}, {"Cherry"}, {"apple"}},
         {"Apple", "apple", "banana", "Cherry"}},
        {"case-sensitive box: case breaks the tie",
         {{"Item Full Name", false, true}},
         {{"banana"}, {"Apple"}, {"Cherry"}, {"apple"}},
         {"apple", "Apple", "banana", "Cherry"}},
        {"descending level keeps ties in incoming order, ascending second level",
         {{"Desc", true}, {"Item Full Name"}},
         {{"z", "a"}, {"y", "b"}, {"x", "b"}, {"w", "a"}, {"v", "c"}},
         {"v", "x", "y", "w", "z"}},
        {"keep blank items makes later levels irrelevant",
         {{"Item Full Name"}, {"Desc", true}},
         {{"B", "1"}, {"A", "1"}, {"B", "2"}, {"A", "2"}},
         {"A", "A", "B", "B"},
         true},
        {"item name after the last colon",
         {{"Item Name"}},
         {{"Parts:Screws"}, {"Other:Screw"}, {"Bolt"}},
         {"Bolt", "Other:Screw", "Parts:Screws"}},
        {"a level after the item level breaks its ties",
         {{"Item Name"}, {"Desc"}},
         {{"P:A", "2"}, {"Q:A", "1"}},
         {"Q:A", "P:A"}},
        {"item names compare their first 132 bytes only",
         {{"Item Full Name"}},
         {{longB.c_str()}, {longA.c_str()}},
         {longB, longA}},
        {"a custom field",
         {{"Color"}},
         {{"a", "", "", "", "", "Red"},
          {"b", "", "", "", "", "Blue"},
          {"c", "", "", "", "", "Green"}},
         {"b", "c", "a"}},
        {"tax code carried from the line above",
         {{"Tax Code"}},
         {{"A"}, {"B", "", "", "", "Tax"}, {"C"}, {"D", "", "", "", "Non"}},
         {"A", "D", "B", "C"}},
    };
    for (const Case& c : cases) {
        std::vector<qb::TxnLine> table;
        for (const Row& r : c.rows) {
            qb::TxnLine& line = table.emplace_back();
            line.lineType = qb::kLineItem;
            line.itemFullName = r.item;
            line.desc = r.desc;
            line.quantity = r.qty;
            line.amount = r.amount;
            line.salesTaxCodeFullName = r.tax;
            line.customFields = {{"Size", "L"}, {"Color", r.color}};
        }
        SortSettings settings;
        settings.levels = c.levels;
        settings.keepBlankItems = c.keepBlank;
        std::vector<std::string> sorted;
        for (const PlanStep& step :
             BuildSortPlan(table, 0, table.size(), settings, {}, qb::TxnKind::Invoice, "T").steps)
            sorted.push_back(table[step.row].itemFullName);
        EXPECT_EQ(sorted, c.expected) << c.name;
    }
}

// Short keys must order printable ASCII exactly as the locale keys do: random texts of letters in
// both cases, spaces, punctuation and digit runs with leading zeros, compared both ways.
TEST(SortOrder, ShortKeysOrderAsLocaleKeys) {
#ifdef _WIN32
    EXPECT_FALSE(ShortCollationKeys());  // Windows' locale keys have no shortcut
    return;
#else
    // English and the root order keep ASCII as it is; other locales (Czech "ch") may not.
    const std::string locale = uloc_getDefault();
    if (locale.rfind("en", 0) == 0 || locale.find("POSIX") != std::string::npos) {
        ASSERT_TRUE(ShortCollationKeys()) << locale;
    }
    if (!ShortCollationKeys()) return;
#endif
    std::mt19937 rng(11);
    const std::string alphabet = " -.,/#&'()aAbBzZ0001999";
    auto text = [&] {
        std::string t;
        for (std::size_t n = rng() % 8; n > 0; --n) t += alphabet[rng() % alphabet.size()];
        return t;
    };
    auto sign = [](int c) { return (c > 0) - (c < 0); };
    for (int i = 0; i < 20000; ++i) {
        const std::string a = text(), b = text();
        std::string la, lb, sa, sb;
        AppendCollationKey(la, a, false);
        AppendCollationKey(lb, b, false);
        AppendShortCollationKey(sa, a);
        AppendShortCollationKey(sb, b);
        ASSERT_EQ(sign(la.compare(lb)), sign(sa.compare(sb))) << "'" << a << "' '" << b << "'";
    }
}

}  // namespace
}  // namespace pelmark::sort
