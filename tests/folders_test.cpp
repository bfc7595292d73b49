// Tests of the program folders: building them per Windows version, making them, developer
// mode, the settings file name and the move of old files out of the program folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "app/folders.h"
#include "app/run.h"
#include "fakes/fakes.h"

namespace pelmark {
namespace {

namespace fs = std::filesystem;
using test::TestApp;

// root + a relative path written with "/", in the platform's form.
std::string P(const std::string& root, std::string rel) {
    std::replace(rel.begin(), rel.end(), '/', kPathSep);
    return root + rel;
}

void SetWindows(TestApp& t, const std::string& product, const std::string& version) {
    const char* key = "Software\\Microsoft\\Windows NT\\CurrentVersion";  // no trailing "\"
    RegWriteValue(t.registry, RegRoot::LocalMachine, key, "ProductName", kRegSz, product);
    RegWriteValue(t.registry, RegRoot::LocalMachine, key, "CurrentVersion", kRegSz, version);
}

// Which folders are built, which is the data folder and which are made, per system; which
// program folder is a developer's (tests/data/folders.txt).
TEST(FoldersTest, FoldersPerWindowsVersionAndDeveloperMode) {
    for (const auto& row : test::DataRows("folders.txt")) {
        if (row[0] == "vista") continue;  // the splash screen's platform: auxForms_test.cpp
        TestApp t;
        CommonHouseKeeper(t.app, {row[1], "pelmark.exe", t.dir.path(), false});
        EXPECT_EQ(t.app.common.developerMode, row[2] == "yes") << row[1];
    }
    // tests/data/folder-layouts.txt: product|Public set|others set|shared folder.
    for (const auto& row : test::DataRows("folder-layouts.txt")) {
        const std::string product = row[0], shared = row[3];
        const bool withPublic = row[1] == "yes", withEnv = row[2] == "yes";
        SCOPED_TRACE(shared);
        TestApp t;
        t.app.frmMain.Find("txtDebugLevel")->text = "0";  // no log in the default folder
        const bool vista = product != "Microsoft Windows XP";
        SetWindows(t, product, vista ? "6.1" : "5.1");
        std::string root = t.dir.path();
        if (withEnv) {
            t.env.values = {{"ProgramFiles", root + "pf"},
                            {"APPDATA", root + "ad"},
                            {"USERPROFILE", P(root, "Users/bob")},
                            {"ALLUSERSPROFILE", root + "AllUsers"}};
        }
        if (withPublic) t.env.values["Public"] = root + "Pub";

        CommonHouseKeeper(t.app, {root, "pelmark.exe", "", false});
        const Folders& f = t.app.folders;
        if (!withEnv) {
            EXPECT_EQ(f.sharedData + f.product + f.userData, "");
            EXPECT_EQ(f.data, "C:\\Program Files\\Corvalt\\Pelmark\\");
#ifndef _WIN32
            EXPECT_FALSE(fs::exists("C:\\Program Files")) << "default folder made off Windows";
#endif
            continue;
        }
        const std::string programFiles = P(root, "pf/Corvalt/Pelmark/");
        EXPECT_EQ(f.product + "|" + f.sharedData + "|" + f.userData,
                  programFiles + "|" + P(root, shared) + "|" + P(root, "ad/Corvalt/Pelmark/"));
        EXPECT_EQ(f.data, vista ? f.sharedData : programFiles);
        EXPECT_EQ(t.app.settings.path, f.data + "Pelmark.ini");
        for (const std::string& made : {f.data + "Tables", f.sharedData, f.userData})
            EXPECT_TRUE(fs::is_directory(made)) << made;
        EXPECT_EQ(fs::exists(programFiles), !vista);  // Program Files is left alone from Vista on
    }
}

TEST(FoldersTest, GivenDataFolderTracesAndFailures) {
    TestApp t;
    SetWindows(t, "Windows 7 Professional", "6.1");
    std::string root = t.dir.path();
    t.dir.Write("Pub", "a file where the Public folder should be");
    t.env.values = {
        {"USERPROFILE", root + "bob"}, {"APPDATA", root + "ad"}, {"Public", root + "Pub"}};

    // Given without its trailing separator.
    CommonHouseKeeper(t.app, {root, "pelmark.exe", root.substr(0, root.size() - 1), false});
    const Folders& f = t.app.folders;
    EXPECT_EQ(f.data, root);
    EXPECT_TRUE(fs::is_directory(root + "Tables"));
    const std::string expected[] = {"USERPROFILE=" + root + "bob",
                                    "SystemDrive=SystemDrive",
                                    "OS=Windows 7 Professional 6.1 Vista=True",
                                    "MkDir " + root + "Tables" + kPathSep,
                                    "MkDir failed " + root + "Pub" + kPathSep,
                                    "VistaMsg: INIFFN=" + root + "Pelmark.ini"};
    for (const std::string& line : expected) EXPECT_TRUE(t.Logged(line)) << line;

    t.app.frmMain.Find("chkIniInUserAppData")->value = 1;
    EXPECT_EQ(GetIniFFN(t.app, "frmMain", false), f.userData + "Pelmark.ini");
    EXPECT_EQ(t.app.settings.tempPath, f.userData + "Pelmark.ino");

    // A data folder that cannot be written is reported at once, and the run refuses to start.
    TestApp ro;
    ro.files.failPathPart = "write-test";
    CommonHouseKeeper(ro.app, {root, "pelmark.exe", root, false});
    EXPECT_NE(ro.prompter.shown.at(0).text.find("no logs and no journal"), std::string::npos);
    EXPECT_FALSE(PreProcess(ro.app));
    EXPECT_NE(ro.app.run.lastError.find("cannot be written"), std::string::npos);
}

TEST(FoldersTest, OldFilesMoveToTheSharedFolder) {
    for (const char* product : {"Windows 7", "Microsoft Windows XP"}) {
        for (bool asked : {true, false}) {
            TestApp t;
            SetWindows(t, product, "");
            std::string root = t.dir.path();
            t.env.values = {{"ProgramFiles", root + "pf"}, {"Public", root + "Pub"}};
            std::string old = P(root, "pf/Corvalt/Pelmark/");
            std::string shared = P(root, "Pub/Documents/Corvalt/Pelmark/");
            fs::create_directories(old);
            fs::create_directories(shared);
            for (const char* name : {"Pelmark.exe", "Pelmark.ini", "Items.iif", "Pelmark.bak",
                                     "Locked.dat", "Kept.txt"})
                t.files.WriteAll(old + name, std::string("old ") + name);
            t.files.WriteAll(shared + "Kept.txt", "current");
            t.files.failPathPart = "Locked.dat";  // held open by another program: not copied

            CommonHouseKeeper(t.app, {root, "pelmark.exe", root, asked});
            bool moved = asked && t.app.folders.vista;
            EXPECT_EQ(t.files.ReadAll(shared + "Pelmark.ini"),
                      moved ? std::optional<std::string>("old Pelmark.ini") : std::nullopt);
            if (!moved) {
                EXPECT_EQ(t.app.folders.movedNote, "");
                continue;
            }
            for (const char* gone : {"Pelmark.exe", "Pelmark.bak", "Locked.dat"})
                EXPECT_FALSE(fs::exists(shared + gone)) << gone;
            EXPECT_EQ(t.files.ReadAll(shared + "Kept.txt"), "current");
            for (const char* name : {"Pelmark.exe", "Pelmark.ini", "Pelmark.bak", "Locked.dat"})
                EXPECT_TRUE(fs::exists(old + name)) << name << " must stay in the old folder";
            EXPECT_EQ(t.app.folders.movedNote,
                      root +
                          "\r\nNow using the Shared Documents file below.  Please do not put "
                          "or change any files in Program files but use the folder below "
                          "instead");
            for (const std::string& line :
                 {"checking " + shared, "copy failed " + old + "Locked.dat",
                  std::string("copying done")})
                EXPECT_TRUE(t.Logged("VistaMsg: " + line)) << line;
        }
    }
}

}  // namespace
}  // namespace pelmark
