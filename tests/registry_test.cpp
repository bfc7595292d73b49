// Tests of the typed registry operations and of the in-memory registry they run on off Windows.
#include <gtest/gtest.h>

#include "app/registry.h"

namespace pelmark {
namespace {

constexpr const char* kKey = "Software\\Corvalt\\Pelmark";
constexpr RegRoot kHkcu = RegRoot::CurrentUser;

TEST(RegistryTest, TypedValuesRoundTripUnderKeysOfAnyCase) {
    struct {
        unsigned type;
        std::string written;  // through RegWriteValue, or raw bytes when `raw`
        bool raw;
        std::optional<std::string> bytes;  // as stored; none when the write is refused
        const char* read;                  // RegReadValue
        const char* shown;                 // GetKeyValue
    } cases[] = {
        {kRegSz, "Pelmark", false, std::string("Pelmark\0", 8), "Pelmark", "Pelmark"},
        {kRegDword, "258", false, std::string("\x02\x01\0\0", 4), "258", "&h00000102"},
        {kRegDword, "-1", false, "\xFF\xFF\xFF\xFF", "-1", "&hFFFFFFFF"},
        {kRegDword, " 4294967295 ", false, "\xFF\xFF\xFF\xFF", "-1", "&hFFFFFFFF"},
        {kRegDword, "4294967296", false, std::nullopt, "", ""},
        {kRegDword, "12ab", false, std::nullopt, "", ""},
        // Written by other programs: text after the NUL, an expandable string, binary, short.
        {kRegSz, std::string("C:\\MSINFO\0junk", 14), true, std::nullopt, "C:\\MSINFO",
         "C:\\MSINFO"},
        {2, std::string("%windir%\0", 9), true, std::nullopt, "%windir%", "%windir%"},
        {3, "\x01\x02", true, std::nullopt, "", ""},
        {kRegDword, "\x05", true, std::nullopt, "5", "&h00000005"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.written);
        MemoryRegistry reg;
        if (c.raw) {
            reg.Set(kHkcu, kKey, "V", {c.type, c.written});
        } else {
            bool ok = RegWriteValue(reg, kHkcu, kKey, "V", static_cast<RegType>(c.type), c.written);
            ASSERT_EQ(ok, c.bytes.has_value());
            if (!ok) continue;
            EXPECT_EQ(reg.Query(kHkcu, kKey, "V")->bytes, *c.bytes);
        }
        EXPECT_EQ(RegReadValue(reg, kHkcu, kKey, "V"), c.read);
        EXPECT_EQ(GetKeyValue(reg, kHkcu, kKey, "V"), c.shown);
        // Keys and names ignore case and a trailing backslash; another root stays missing.
        EXPECT_EQ(RegReadValue(reg, kHkcu, "SOFTWARE\\corvalt\\pelmark\\", "v"), c.read);
        EXPECT_EQ(RegReadValue(reg, RegRoot::LocalMachine, kKey, "V"), "");
        EXPECT_EQ(GetKeyValue(reg, kHkcu, "Software\\Corv", "V"), std::nullopt);
    }
}

}  // namespace
}  // namespace pelmark
