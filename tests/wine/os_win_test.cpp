// Tests of the real Windows registry and of the start-up folders on the real system (run under
// Wine, which reports itself as Windows 7).
#include <gtest/gtest.h>

#include <filesystem>

#include "app/folders.h"
#include "app/registry.h"
#include "app/text.h"
#include "fakes/fakes.h"

namespace pelmark {
namespace {

constexpr const char* kTestKey = "Software\\Corvalt\\PelmarkTest";

TEST(WinRegistryTest, RealRegistryRoundTrip) {
    Registry& reg = RealRegistry();
    const RegRoot hkcu = RegRoot::CurrentUser;
    ASSERT_TRUE(RegWriteValue(reg, hkcu, kTestKey, "Text", kRegSz, "Pelmark test"));
    ASSERT_TRUE(RegWriteValue(reg, hkcu, kTestKey, "Number", kRegDword, "258"));
    EXPECT_TRUE(RegKeyExists(reg, hkcu, kTestKey));

    EXPECT_EQ(RegReadValue(reg, hkcu, std::string(kTestKey) + "\\", "text"), "Pelmark test");
    EXPECT_EQ(RegReadValue(reg, hkcu, kTestKey, "Number"), "258");
    EXPECT_EQ(GetKeyValue(reg, hkcu, kTestKey, "Number"), "&h00000102");
    EXPECT_TRUE(RegDeleteValue(reg, hkcu, kTestKey, "Text"));
    EXPECT_TRUE(RegDeleteValue(reg, hkcu, kTestKey, "Number"));
    EXPECT_FALSE(RegDeleteValue(reg, hkcu, kTestKey, "Number"));
    EXPECT_EQ(GetKeyValue(reg, hkcu, kTestKey, "Text"), std::nullopt);

    const std::string missing = std::string(kTestKey) + "\\NoSuchKey";
    EXPECT_FALSE(RegKeyExists(reg, hkcu, missing));
    EXPECT_EQ(RegReadValue(reg, hkcu, missing, "Text"), "");
    EXPECT_EQ(GetKeyValue(reg, hkcu, missing, "Text"), std::nullopt);
}

TEST(WinFoldersTest, HouseKeeperOnTheRealSystem) {
    test::TestApp t;
    t.app.sys.registry = &RealRegistry();
    t.app.sys.env = &RealEnvironment();
    t.app.sys.files = &RealFileSystem();
    // Before the data folder is known a trace would open the log in the default folder.
    t.app.frmMain.Find("txtDebugLevel")->text = "0";

    CommonHouseKeeper(t.app, {"C:\\Program Files\\Corvalt\\Pelmark", "pelmark.exe", "", false});
    const Folders& f = t.app.folders;
    EXPECT_NE(f.productName.find("Windows"), std::string::npos);
    EXPECT_TRUE(f.vista) << f.productName << " " << f.currentVersion;
    EXPECT_FALSE(t.app.common.developerMode);
    ASSERT_FALSE(f.sharedData.empty());
    EXPECT_EQ(f.data, f.sharedData);
    EXPECT_TRUE(EndsWith(Upper(f.data), "\\DOCUMENTS\\CORVALT\\PELMARK\\")) << f.data;
    EXPECT_TRUE(EndsWith(f.product, "\\Corvalt\\Pelmark\\")) << f.product;
    EXPECT_TRUE(std::filesystem::is_directory(f.data + "Tables"));
    EXPECT_EQ(t.app.settings.path, f.data + "Pelmark.ini");
}

}  // namespace
}  // namespace pelmark
