// The SendKeys notation parser and the "Like" wildcard comparison, as tables.
#include <gtest/gtest.h>

#include <map>
#include <string>

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

TEST(ScreenSendKeysTest, ParsesTheNotation) {
    struct Case {
        const char* keys;
        const char* strokes;
    } cases[] = {
        {"", ""},
        {"%a", "A-A"},
        {"^c", "C-C"},
        {"(^{HOME})", "C-Home"},
        {"(^(+{END}))", "C-S-End"},
        {"^+{END}", "C-S-End"},
        {"{HOME}+({END})", "Home S-End"},
        {"{TAB}", "Tab"},
        {"+{TAB 3}", "S-Tab S-Tab S-Tab"},
        {"{TAB 0}", ""},
        {"{h 3}", "'h' 'h' 'h'"},
        {"%{F4}", "A-F4"},
        {"{F16}", "F16"},
        {"{DOWN}{UP}{PGDN}{BS}{BREAK}", "Down Up PgDn Back Break"},
        {"~", "Enter"},
        {"ab", "'a' 'b'"},
        {"+(ab)", "S-A S-B"},
        {"^ ", "C-Space"},
        {"%-", "A-'-'"},
        {"[x]", "'[' 'x' ']'"},
        {"{(}{)}{%}{+}{^}{~}{{}{}}", "'(' ')' '%' '+' '^' '~' '{' '}'"},
        {"{} 2}", "'}' '}'"},
        {"^{+}", "C-'+'"},
    };
    for (const Case& c : cases) {
        SendKeysParse p = ParseSendKeys(c.keys);
        ASSERT_TRUE(p.ok) << c.keys << ": " << p.error << " at " << p.position;
        EXPECT_EQ(Show(p.strokes), c.strokes) << c.keys;
    }
}

TEST(ScreenSendKeysTest, NamesWhatIsMalformedAndWhere) {
    struct Case {
        const char* keys;
        size_t position;
        const char* words;
    } cases[] = {
        {"{TAB", 0, "no closing \"}\""},
        {"ab{FOO}", 2, "unknown key name \"{FOO}\""},
        {"{F17}", 0, "unknown key name"},
        {"a{TAB x}", 1, "bad repeat count"},
        {"{TAB 5000}", 0, "repeat count above"},
        {"x(^{HOME}", 1, "no closing \")\""},
        {"ab)", 2, "no opening \"(\""},
        {"a}", 1, "no opening \"{\""},
        {"^", 0, "modifier \"^\" is not followed by a key"},
        {"(a+)", 2, "modifier \"+\" is not followed by a key"},
        {"()", 0, "empty group"},
        {"{}", 0, "empty braces"},
    };
    for (const Case& c : cases) {
        SendKeysParse p = ParseSendKeys(c.keys);
        EXPECT_FALSE(p.ok) << c.keys;
        EXPECT_EQ(p.position, c.position) << c.keys;
        EXPECT_NE(p.error.find(c.words), std::string::npos) << c.keys << ": " << p.error;
        EXPECT_TRUE(p.strokes.empty()) << c.keys;
    }
}

TEST(ScreenLikeTest, MatchesAsTheClassicLikeOperator) {
    struct Case {
        const char* text;
        const char* pattern;
        bool match;
    } cases[] = {
        {"", "", true},
        {"", "*", true},
        {"a", "", false},
        {"abc", "abc", true},
        {"abc", "ABC", false},  // case counts
        {"Create Invoices - Accounts Receivable", "*Create Invoices*", true},
        {"Create Invoices - Accounts Receivable", "*Create Invoices", false},
        {"abcbc", "*bc", true},
        {"abcd", "a*c*d", true},
        {"ab", "a?", true},
        {"a", "a?", false},
        {"a1", "a#", true},
        {"ab", "a#", false},
        {"B", "[A-Z]", true},
        {"b", "[A-Z]", false},
        {"x", "[!0-9]", true},
        {"5", "[!0-9]", false},
        {"c", "[abc]", true},
        {"-", "[a-]", true},
        {"b", "[-a]", false},
        {"a*b", "a[*]b", true},
        {"#1", "[#]#", true},
        {"[", "[[]", true},
        {"a]", "a]", true},
        {"ab", "a[]b", true},
        {"[abc", "[abc", false},  // an unclosed list matches nothing
        {"2024-05-01", "####-##-##", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Like(c.text, c.pattern), c.match)
            << '"' << c.text << "\" Like \"" << c.pattern << '"';
}

TEST(ScreenLikeTest, EscapedTextMatchesOnlyItself) {
    for (const char* text : {"Smith #2 [East] *?", "HOLY GHOST ASSOC. INC.", "[Create Invoices]"})
        EXPECT_TRUE(Like(text, LikeEscape(text))) << text;
    EXPECT_FALSE(Like("Smith 12", LikeEscape("Smith #2")));
    EXPECT_FALSE(Like("C", LikeEscape("[Create Invoices]")));
}

}  // namespace
}  // namespace pelmark::screen
