// The auxiliary forms' rules: splash and About texts, the agreement file, the size of the
// company file, and what the folder links, support page and system information start.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/context.h"
#include "app/text.h"
#include "app/version.h"
#include "fakes/fakes.h"
#include "ui/auxForms.h"

namespace pelmark::ui {
namespace {

using test::TempDir;
using test::TestApp;

TEST(AuxFormsTest, SplashShowsBuildPlatformAndWorkingFolder) {
    // The "vista" rows of tests/data/folders.txt: product|version|yes or no.
    for (const auto& row : test::DataRows("folders.txt")) {
        if (row[0] != "vista") continue;
        SCOPED_TRACE(row[1]);
        TestApp t;
        t.app.folders.productName = row[1];
        t.app.folders.currentVersion = row[2];
        SplashTexts s = MakeSplashTexts(t.app);
        EXPECT_EQ(s.productName, "Pelmark Bld" + std::to_string(kVersionRevision));
        EXPECT_EQ(s.company, "Corvalt");
        EXPECT_EQ(s.platform, row[3] == "yes" ? "Windows 2003, XP, VISTA, 2008, Windows 7"
                                              : "Windows 2003, XP");
        EXPECT_EQ(s.workingFolder, t.dir.path());
    }
}

TEST(AuxFormsTest, AgreementFileFoundAndMissing) {
    TestApp t;
    TempDir program;
    t.app.folders.program = program.path();
    const std::string name = "EUA_Pelmark.txt";

    // Missing: the form closes itself.
    AgreementText missing = LoadAgreement(t.app);
    EXPECT_FALSE(missing.found);
    EXPECT_EQ(missing.fileName, program.File(name));
    EXPECT_TRUE(t.Logged("frm eua = file not found " + program.File(name)));

    // In the data folder only; every line ends in CR LF, the last one too, whatever the file
    // used, and a UTF-8 byte-order mark is not shown.
    t.dir.Write(name, "\xEF\xBB\xBFPelmark End-User Agreement\n\n1. Use\r\n2. Caf\xC3\xA9");
    AgreementText found = LoadAgreement(t.app);
    EXPECT_TRUE(found.found);
    EXPECT_EQ(found.fileName, t.dir.File(name));
    EXPECT_EQ(found.text, "Pelmark End-User Agreement\r\n\r\n1. Use\r\n2. Caf\xC3\xA9\r\n");
    EXPECT_TRUE(t.Logged("frm eua = file found " + t.dir.File(name)));

    // The copy beside the program comes first.
    program.Write(name, "Program folder copy");
    EXPECT_EQ(LoadAgreement(t.app).text, "Program folder copy\r\n");
    // The same folder twice is looked in once.
    t.app.folders.program = t.app.folders.data;
    EXPECT_EQ(AgreementFileNames(t.app), std::vector<std::string>{t.dir.File(name)});
}

TEST(AuxFormsTest, AboutTextsFoldersAndCompanyFile) {
    // tests/data/kilobytes.txt: bytes|text.
    for (const auto& row : test::DataRows("kilobytes.txt"))
        EXPECT_EQ(FormatKilobytes(std::stoull(row[0])), row[1]) << row[0];
    EXPECT_EQ(TransactionLogName("C:\\QB\\Rock Castle.QBW"), "C:\\QB\\Rock Castle.TLG");
    EXPECT_EQ(TransactionLogName("C:\\QB.2014\\Company"), "C:\\QB.2014\\Company.TLG");
    EXPECT_EQ(TransactionLogName("Company.qbw"), "Company.TLG");
    TestApp t;
    Folders& f = t.app.folders;
    f.vista = true;
    f.sharedData = Upper(t.dir.path());  // the data folder compares without regard to case
    AboutTexts a = MakeAboutTexts(t.app);
    EXPECT_EQ(a.caption, "About Pelmark");
    EXPECT_EQ(a.version, "Version " + std::to_string(kVersionMajor) + "." +
                             std::to_string(kVersionMinor) + " Build " +
                             std::to_string(kVersionRevision));
    EXPECT_EQ(a.programFolder + "|" + a.workingFolder, t.dir.path() + "|" + t.dir.path());
    EXPECT_FALSE(a.unusualFolder);
    // No session: no company file to measure.
    EXPECT_EQ(a.companyFile + a.qbwSize + a.tlgSize, "frm About load - QB file not found");
    EXPECT_TRUE(t.Logged("frm About load - QB file not found"));

    // Before Vista the normal folder is the product folder: tests/wine/auxForms_win_test.cpp.

    // A small company file without its log, then a large file with a large log (sparse).
    t.app.qb.companyFileName = t.dir.File("Rock Castle.QBW");
    t.dir.Write("Rock Castle.QBW", std::string(3000, 'x'));
    a = MakeAboutTexts(t.app);
    EXPECT_EQ(a.companyFile, t.app.qb.companyFileName);
    EXPECT_EQ(a.qbwSize + "|" + a.tlgSize, "QBW Size 3K|");
    EXPECT_FALSE(a.qbwLarge);

    t.dir.Write("Rock Castle.TLG", "");
    for (int over : {0, 1}) {  // at the limit is not yet large
        std::filesystem::resize_file(t.dir.File("Rock Castle.QBW"), (kQbwLargeKB + over) * 1024);
        std::filesystem::resize_file(t.dir.File("Rock Castle.TLG"), (kTlgLargeKB + over) * 1024);
        a = MakeAboutTexts(t.app);
        const std::string large = over ? "is large " : "";
        EXPECT_EQ(a.qbwLarge + a.tlgLarge, 2 * over);
        EXPECT_EQ(a.qbwSize, "QBW Size " + large + (over ? "1,000,001K" : "1,000,000K"));
        EXPECT_EQ(a.tlgSize, "TLG Size " + large + (over ? "500,001K" : "500,000K"));
        EXPECT_TRUE(!over || (t.Logged(a.qbwSize) && t.Logged(a.tlgSize)));
    }
}

// The links' targets as the About form starts them: tests/wine/auxForms_win_test.cpp.
TEST(AuxFormsTest, WebPagesEncodeTheirQueryAndFailedStartsAreTold) {
    TestApp t;
    t.app.qb.hostProductName = "Pro & Co";
    EXPECT_TRUE(OpenSupportPage(t.app));
    EXPECT_TRUE(EndsWith(t.launcher.started.at(0).target, "&extra=Pro%20%26%20Co"));
    EXPECT_EQ(UrlEncode("a-b_c.d~e/f?g=h\xC3\xA9"), "a-b_c.d~e%2Ff%3Fg%3Dh%C3%A9");

    // A failed start is traced and told to the user; no launcher at all is a failure too.
    t.launcher.failOnCall = 2;
    EXPECT_FALSE(OpenFolder(t.app, "D:\\Data\\"));
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].title, "Pelmark");
    EXPECT_NE(t.prompter.shown[0].text.find("Explorer.exe /e, \"D:\\Data\\\""), std::string::npos);
    EXPECT_TRUE(t.Logged("Launch failed injected failure starting Explorer.exe"));
    t.app.sys.launcher = nullptr;
    EXPECT_FALSE(OpenProductPage(t.app));
    EXPECT_EQ(t.prompter.shown.size(), 2u);
}

TEST(AuxFormsTest, SystemInformationFromTheRegistry) {
    const std::string msinfoKey = "SOFTWARE\\Microsoft\\Shared Tools\\MSINFO";
    const std::string locationKey = "SOFTWARE\\Microsoft\\Shared Tools Location";
    // tests/data/sysinfo.txt: case|path|location|program there|failing start|started.
    for (const auto& row : test::DataRows("sysinfo.txt")) {
        SCOPED_TRACE(row[0]);
        const bool path = row[1] == "yes", started = row[5] == "yes";
        TestApp t;
        const RegRoot hklm = RegRoot::LocalMachine;
        const std::string tools = t.dir.path() + "Tools";
        // The registry holds Windows paths: the program is the folder + "\MSINFO32.EXE" here
        // too, which off Windows is one file name.
        const std::string exe = tools + "\\MSINFO32.EXE";
        if (path) RegWriteValue(t.registry, hklm, msinfoKey, "PATH", kRegSz, "C:\\MSINFO.EXE");
        if (row[2] == "yes")
            RegWriteValue(t.registry, hklm, locationKey, "MSINFO", kRegSz, tools + "\\");
        std::filesystem::create_directory(tools);  // used on Windows only
        if (row[3] == "yes") t.dir.Write("Tools\\MSINFO32.EXE", "");
        t.launcher.failOnCall = std::stoi(row[4]);

        EXPECT_EQ(StartSysInfo(t.app), started);
        if (started) {
            ASSERT_EQ(t.launcher.started.size(), 1u);
            EXPECT_EQ(t.launcher.started[0].target, path ? "C:\\MSINFO.EXE" : exe);
            EXPECT_TRUE(t.prompter.shown.empty());
        } else {
            // One message, not a second for the failure.
            EXPECT_EQ(t.prompter.Texts(),
                      std::vector<std::string>{"System Information Is Unavailable At This Time"});
        }
    }
}

}  // namespace
}  // namespace pelmark::ui
