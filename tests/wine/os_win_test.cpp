// The real Windows registry: values written and read in both forms. (The start-up folders
// on the real system are the window's test: pelmark.exe keeps its settings under "Public".)
#include <gtest/gtest.h>

#include "app/registry.h"

namespace pelmark {
namespace {

constexpr const char* kTestKey = "Software\\Corvalt\\PelmarkTest";

TEST(WinRegistryTest, RealRegistryRoundTrip) {
    Registry& reg = RealRegistry();
    const RegRoot hkcu = RegRoot::CurrentUser;
    ASSERT_TRUE(RegWriteValue(reg, hkcu, kTestKey, "Text", kRegSz, "Pelmark test"));
    ASSERT_TRUE(RegWriteValue(reg, hkcu, kTestKey, "Number", kRegDword, "258"));

    EXPECT_EQ(RegReadValue(reg, hkcu, std::string(kTestKey) + "\\", "text"), "Pelmark test");
    EXPECT_EQ(RegReadValue(reg, hkcu, kTestKey, "Number"), "258");
    EXPECT_EQ(GetKeyValue(reg, hkcu, kTestKey, "Number"), "&h00000102");
    EXPECT_EQ(GetKeyValue(reg, hkcu, kTestKey, "Missing"), std::nullopt);

    const std::string missing = std::string(kTestKey) + "\\NoSuchKey";
    EXPECT_EQ(RegReadValue(reg, hkcu, missing, "Text"), "");
    EXPECT_EQ(GetKeyValue(reg, hkcu, missing, "Text"), std::nullopt);
}

}  // namespace
}  // namespace pelmark
