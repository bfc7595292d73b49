// The SendKeys notation parser and the "Like" wildcard comparison, as tables.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "fakes/fakes.h"
#include "screen/WindowsStuff.h"
#include "screen/sendKeys.h"

namespace pelmark::screen {
namespace {

std::string KeyName(int vk) {
    const std::map<int, const char*> names = {
        {kVkTab, "Tab"},     {kVkReturn, "Enter"}, {kVkHome, "Home"}, {kVkEnd, "End"},
        {kVkDown, "Down"},   {kVkUp, "Up"},        {kVkBack, "Back"}, {kVkNext, "PgDn"},
        {kVkSpace, "Space"}, {0x03, "Break"}};
    if (names.count(vk)) return names.at(vk);
    if (vk >= kVkF1 && vk < kVkF1 + 16) return "F" + std::to_string(vk - kVkF1 + 1);
    if (vk >= '0' && vk <= 'Z') return std::string(1, static_cast<char>(vk));
    return "vk" + std::to_string(vk);
}

// The strokes as "C-S-End 'a' A-A": modifiers, then a key name or a quoted typed character.
std::string Show(const std::vector<KeyStroke>& strokes) {
    std::string r;
    for (const KeyStroke& k : strokes) {
        if (!r.empty()) r += ' ';
        if (k.ctrl) r += "C-";
        if (k.shift) r += "S-";
        if (k.alt) r += "A-";
        r += k.vk != 0 ? KeyName(k.vk) : "'" + std::string(1, k.ch) + "'";
    }
    return r;
}

// tests/data/sendkeys.txt: keys|strokes for notation that parses, keys|position|words for
// notation that does not (nothing is sent, and the error says what and where).
TEST(ScreenSendKeysTest, ParsesTheNotationAndNamesWhatIsMalformedAndWhere) {
    for (const auto& row : test::DataRows("sendkeys.txt")) {
        SendKeysParse p = ParseSendKeys(row[0]);
        if (row.size() == 2) {
            ASSERT_TRUE(p.ok) << row[0] << ": " << p.error << " at " << p.position;
            EXPECT_EQ(Show(p.strokes), row[1]) << row[0];
            continue;
        }
        EXPECT_FALSE(p.ok) << row[0];
        EXPECT_EQ(std::to_string(p.position), row[1]) << row[0];
        EXPECT_NE(p.error.find(row[2]), std::string::npos) << row[0] << ": " << p.error;
        EXPECT_TRUE(p.strokes.empty()) << row[0];
    }
}

// tests/data/like.txt: text|pattern|yes or no; escaped text matches only itself.
TEST(ScreenLikeTest, MatchesAsTheClassicLikeOperator) {
    for (const auto& row : test::DataRows("like.txt"))
        EXPECT_EQ(Like(row[0], row[1]), row[2] == "yes")
            << '"' << row[0] << "\" Like \"" << row[1] << '"';
    for (const char* text : {"Smith #2 [East] *?", "HOLY GHOST ASSOC. INC.", "[Create Invoices]"})
        EXPECT_TRUE(Like(text, LikeEscape(text))) << text;
    EXPECT_FALSE(Like("Smith 12", LikeEscape("Smith #2")));
    EXPECT_FALSE(Like("C", LikeEscape("[Create Invoices]")));
}

}  // namespace
}  // namespace pelmark::screen
