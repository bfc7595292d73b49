// Tests of the settings file: reading, saving, the reports of what could not be applied, checks.
#include <gtest/gtest.h>

#include "app/settings.h"
#include "app/text.h"
#include "fakes/fakes.h"
#include "ui/frmMain.h"

namespace pelmark {
namespace {

using test::TestApp;
using ui::Control;
using ui::ControlKind;

std::string SourceFile(const std::string& relative) {
    return test::FileBytes(std::string(PELMARK_SOURCE_DIR) + "/" + relative);
}

// A settings file under tests/data as this version writes it.
std::string Golden(const std::string& name) {
    std::string text = SourceFile("tests/data/" + name);
    return text.replace(0, text.find("\r\n"), ";Ver=" + VersionText());
}

// Gives every setting of the form a value other than its default, the same one every time.
void SetEverySetting(ui::Form& form) {
    int n = 0;
    for (Control& c : form.controls()) {
        if (!c.holdsSetting) continue;
        ++n;
        if (c.kind == ControlKind::CheckBox) c.value = 1 - c.value;
        if (c.kind == ControlKind::TextBox) c.text = "v" + std::to_string(n) + "=x y";
        if (c.kind == ControlKind::Label) c.caption = std::to_string(1000 + n);
        if (c.kind == ControlKind::ListBox) c.selected[8] = c.selected[10] = true;
        if (c.kind == ControlKind::ComboBox) {
            // Lists that QuickBooks fills later stay empty in a fresh form.
            if (c.list.empty()) c.list = {"CF A", "CF B"};
            c.listIndex = static_cast<int>(c.list.size()) - 1;
        }
    }
    for (const char* name : {"optPurchaseOrder", "optBlankLinesAfter", "optStopOnNone"})
        form.SetOption(*form.Find(name), true);
}

TEST(SettingsFile, GoldenRoundTripOfTheMainForm) {
    TestApp t;
    ui::Form saved = ui::MakeMainFormModel();
    SetEverySetting(saved);
    SaveSettings(t.app, {&saved});

    EXPECT_EQ(t.dir.Read("Pelmark.ini"), Golden("frmMain_settings.ini"));

    ui::Form fresh = ui::MakeMainFormModel();
    ReadIni(t.app, fresh, {{}, false});
    EXPECT_TRUE(t.app.settings.notFoundControls.empty());
    // Custom-field names the fresh lists do not hold yet wait, unreported, for the lists.
    EXPECT_EQ(fresh.ComboText("cboCFNetWeight"), "CF B");
    // Every setting read back: the fresh form saves the same file.
    const std::string first = t.dir.Read("Pelmark.ini");
    SaveSettings(t.app, {&fresh});
    EXPECT_EQ(t.dir.Read("Pelmark.ini"), first);
    EXPECT_EQ(t.dir.Read("Pelmark.ino"), first);
}

TEST(SettingsFile, LineEndsByteOrderMarkAndForcedHeader) {
    // tests/data/settings-*.ini of each line end, the last line with or without one, blanks
    // around a record, a byte-order mark; none with a form's header.
    for (const char* name : {"crlf", "lf", "cr", "bom"}) {
        SCOPED_TRACE(name);
        TestApp t;
        t.dir.Write("Pelmark.ini", SourceFile("tests/data/settings-" + std::string(name) + ".ini"));
        ReadIni(t.app, t.app.frmMain);
        EXPECT_EQ(t.app.settings.version, "2.1.17");
        EXPECT_EQ(t.app.settings.records.front(), "[frmMain]");
        EXPECT_TRUE(t.app.frmMain.Checked("chkSortDesc", 1));
        EXPECT_EQ(t.app.frmMain.Text("txtBlankLines"), "3");
        EXPECT_TRUE(t.Logged("Read ini forced [frmMain]"));
        EXPECT_TRUE(t.prompter.shown.empty());
    }
    // No file at all: a warning that names it, and the defaults.
    TestApp t;
    t.app.frmMain.SetOption(*t.app.frmMain.Find("optStopOnAll"), true);
    ReadIni(t.app, t.app.frmMain);
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].title, "Pelmark WARNING");
    EXPECT_NE(t.prompter.shown[0].text.find(t.dir.File("Pelmark.ini")), std::string::npos);
    EXPECT_EQ(t.app.frmMain.Text("txtLinesMax"), "200");
}

// tests/data/settings-sections.ini: a record of another form, records 4 to 6 malformed, keys in
// other cases, repeated keys, values the lists do not hold, and records after the end mark.
TEST(SettingsFile, SectionsKeysAndValues) {
    TestApp t;
    ui::Form& f = t.app.frmMain;
    f.Find("txtItemSubTotal")->tag = "7";
    t.dir.Write("Pelmark.ini", SourceFile("tests/data/settings-sections.ini"));
    ReadIni(t.app, f);

    for (const char* bad : {"Array Ini=chkSortDesc(2, rec#=4", "Array Ini=chkSortDesc(x), rec#=5",
                            "ID Ini=cboTotalsItem[abc, rec#=6"})
        EXPECT_TRUE(t.Logged(std::string("Invalid Control ") + bad)) << bad;
    EXPECT_EQ(f.Find("UpDownlblTimeProDelay")->value, 250);
    EXPECT_EQ(f.Find("UpDownlblSleepVBA")->value, INT32_MAX);
    EXPECT_EQ(f.Find("cboSortField", 2)->listIndex, -1);
    EXPECT_EQ(t.app.settings.notFoundControls + t.app.settings.notFoundValues, "");
    // Every value as read, saved again: tests/data/settings-sections-saved.ini.
    SaveSettings(t.app, {&f});
    EXPECT_EQ(t.dir.Read("Pelmark.ini"), Golden("settings-sections-saved.ini"));

    // A value with line breaks stays one record; a restricted read touches only what it names.
    f.Find("txtLinesMax")->text = "2\r\n0\n0";
    SaveSettings(t.app, {&f});
    f.Find("txtLinesMax")->text = "";
    f.Find("chkSortDesc", 0)->value = 0;
    ReadIni(t.app, f, {{"TXTLINESMAX"}, true});
    EXPECT_EQ(f.Text("txtLinesMax"), "2 0 0");
    EXPECT_FALSE(f.Checked("chkSortDesc", 0));
}

TEST(SettingsFile, UnknownControlsAndValuesAreReportedOnceAtTheEnd) {
    TestApp t;
    ui::Form& f = t.app.frmMain;
    f.SetOption(*f.Find("optStopOnAll"), true);
    t.dir.Write("Pelmark.ini", SourceFile("tests/data/settings-unknown.ini"));
    ReadIni(t.app, f);

    EXPECT_EQ(t.app.settings.notFoundControls,
              "Rec#=2 form [frmMain], record=chkNoSuch=1\r\n"
              "Rec#=4 form [frmMain], record=cboSortField=Amount");
    EXPECT_EQ(t.app.settings.notFoundValues,
              "lstOptionsInternal(3,99)\r\n"
              "txtBlankLines(abc): Invalid number. Must be between 0-9 Not numeric");
    const std::vector<std::string> said = t.prompter.Texts();
    ASSERT_EQ(said.size(), 2u);
    EXPECT_NE(said[0].find("The following INI controls were not found. Usaully occurs when "
                           "updating versions. Continue?"),
              std::string::npos);
    EXPECT_NE(said[1].find("The settings INI value(s) for the below were not found: "),
              std::string::npos);
    EXPECT_NE(said[1].find(kContinueOrTerminate), std::string::npos);
    // Values the lists do not hold yet wait in the text and are saved as they were read.
    EXPECT_EQ(f.ComboText("cboSortField", 0), "Nope");
    EXPECT_EQ(f.ComboText("cboTotalsItem"), "Freight");
    SaveSettings(t.app, {&f});
    const std::string saved = t.dir.Read("Pelmark.ini");
    EXPECT_NE(saved.find("\r\ncboSortField(0)=Nope\r\n"), std::string::npos);
    EXPECT_NE(saved.find("\r\ncboCFNetWeight=Lbs\r\n"), std::string::npos);
}

TEST(SettingsFile, HeldFileIsRetriedAndThePreviousFileKept) {
    // The new file's first write fails as `status`; the old file holds "old".
    auto failingSave = [](TestApp& t, FileStatus status) {
        t.dir.Write("Pelmark.ini", "old");
        t.dir.Write("Pelmark.ino", "older");
        t.files.failPathPart = "Pelmark.ini";
        t.files.failOnCall = 1;
        t.files.failStatus = status;
        SaveSettings(t.app, {&t.app.frmMain});
    };
    TestApp yes, no, broken;
    yes.prompter.Answer(kAnsYes);
    failingSave(yes, FileStatus::HeldByOther);
    ASSERT_EQ(yes.prompter.shown.size(), 1u);
    EXPECT_EQ(yes.prompter.shown[0].text,
              yes.dir.File("Pelmark.ini") + " is held by another process, retry?");
    EXPECT_EQ(yes.prompter.shown[0].style, kMbYesNo | kMbQuestion);
    EXPECT_TRUE(StartsWith(yes.dir.Read("Pelmark.ini"), ";Ver="));
    no.prompter.Answer(kAnsNo);
    EXPECT_THROW(failingSave(no, FileStatus::HeldByOther), ProgramEnd);
    failingSave(broken, FileStatus::Failed);
    EXPECT_TRUE(broken.prompter.shown.empty());
    EXPECT_TRUE(broken.Logged("Save settings do it err=75 injected failure"));
    for (TestApp* t : {&yes, &no, &broken}) EXPECT_EQ(t->dir.Read("Pelmark.ino"), "old");
}

}  // namespace
}  // namespace pelmark
