// The main form without a window: its control set (names, option groups, what is saved, the
// control ids the window and its tests share), Save with the form's position, the field checks.
#include <gtest/gtest.h>

#include <map>

#include "fakes/fakes.h"
#include "ui/frmMain.h"

namespace pelmark::ui {
namespace {

using test::TestApp;

TEST(MainFormSave, KeepsTheSmallFormsPositionAndZeroForAnOffScreenCoordinate) {
    // tests/data/screen-positions.txt: small or expanded|left|top|saved left|saved top.
    for (const auto& row : test::DataRows("screen-positions.txt")) {
        TestApp t;
        t.app.frmMain.Find("lblScreenLeft")->caption = "45";
        t.app.frmMain.Find("lblScreenTop")->caption = "46";
        CmdSave(t.app, {row[0] == "small", std::stoi(row[1]), std::stoi(row[2]), 1280, 1024});
        const std::string file = t.dir.Read("Pelmark.ini");
        EXPECT_NE(file.find("\r\nlblScreenLeft=" + row[3] + "\r\n"), std::string::npos) << file;
        EXPECT_NE(file.find("\r\nlblScreenTop=" + row[4] + "\r\n"), std::string::npos) << file;
        EXPECT_EQ(t.app.frmMain.Caption("lblStatus"), "Settings Saved");
        EXPECT_EQ(t.app.frmMain.Find("lstMsgs")->list.back(), "Settings Saved");
    }
}

TEST(MainForm, InvariantsAndFieldChecks) {
    // tests/data/field-checks.txt: field|text|message, "-" where the text is accepted.
    for (const auto& row : test::DataRows("field-checks.txt"))
        EXPECT_EQ(CheckMainField(row[0], row[1]).value_or("-"), row[2]) << row[0] << "=" << row[1];
    EXPECT_FALSE(HasFieldCheck("txtRefNo"));
    const Form f = MakeMainFormModel();
    std::map<std::string, int> setPerGroup;
    for (const Control& c : f.controls()) {
        // Every control has its own id from its place in the model, leading back to it.
        const int id = MainControlId(f, c.name, c.index);
        EXPECT_LT(id, 0xFFFF);  // Windows keeps 0xFFFF for static controls
        EXPECT_EQ(&f.controls().at(static_cast<size_t>(id - kFirstControlId)), &c) << c.name;
        if (c.kind == ControlKind::OptionButton) setPerGroup[c.group] += c.value;
        if (c.kind == ControlKind::UpDown) {
            // Every up-down sets a saved label, and is not saved itself.
            const Control* label = f.Find(c.buddy);
            ASSERT_NE(label, nullptr) << c.name;
            EXPECT_EQ(c.name, "UpDown" + c.buddy);
            EXPECT_TRUE(label->holdsSetting && !c.holdsSetting) << c.name;
            EXPECT_EQ(std::to_string(c.value), label->caption) << c.name;
        }
    }
    EXPECT_EQ(MainControlId(f, "cmdNoSuch"), 0);
    // Transaction type, blank lines and stop level: one button set in each.
    EXPECT_EQ(setPerGroup,
              (std::map<std::string, int>{
                  {"fraTransType", 1}, {"fraBlankLines", 1}, {"fraStopOnErrorLevel", 1}}));
    EXPECT_EQ(f.Find("lstOptionsInternal")->list.at(screen::kOptFullScreenMode),
              "chkFullScreenMode");
}

}  // namespace
}  // namespace pelmark::ui
