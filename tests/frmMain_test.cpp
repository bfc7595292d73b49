// The main form's commands and checks that need no window: Save with the form's position, the
// numeric field checks, and the control ids the window and its tests share.
#include <gtest/gtest.h>

#include <set>

#include "app/text.h"
#include "fakes/fakes.h"
#include "ui/frmMain.h"

namespace pelmark::ui {
namespace {

using test::TestApp;

bool HasLine(const std::string& text, const std::string& line) {
    for (const std::string& l : SplitLines(text)) {
        if (l == line) return true;
    }
    return false;
}

TEST(MainFormSave, KeepsTheSmallFormsPositionAndZeroForAnOffScreenCoordinate) {
    struct Case {
        FormPlacement placement;
        const char *left, *top;
    } cases[] = {
        {{true, 120, 90, 1280, 1024}, "120", "90"},
        {{true, -60, 70, 1280, 1024}, "0", "70"},       // half off the left edge
        {{true, 300, 1024, 1280, 1024}, "300", "0"},    // below the bottom of the screen
        {{true, 1400, 5, 1280, 1024}, "0", "5"},        // beyond the right edge
        {{false, -500, -500, 1280, 1024}, "45", "46"},  // expanded: the labels are kept
    };
    for (const Case& c : cases) {
        TestApp t;
        t.app.frmMain.Find("lblScreenLeft")->caption = "45";
        t.app.frmMain.Find("lblScreenTop")->caption = "46";
        CmdSave(t.app, c.placement);
        const std::string file = t.dir.Read("Pelmark.ini");
        EXPECT_TRUE(HasLine(file, std::string("lblScreenLeft=") + c.left)) << file;
        EXPECT_TRUE(HasLine(file, std::string("lblScreenTop=") + c.top)) << file;
        EXPECT_EQ(t.app.frmMain.Caption("lblStatus"), "Settings Saved");
        EXPECT_EQ(t.app.frmMain.Find("lstMsgs")->list.back(), "Settings Saved");
    }
}

TEST(MainFormChecks, NumericFieldsRefuseWithTheirMessages) {
    struct Case {
        const char *field, *text;
        const char* message;  // nullptr: accepted
    } cases[] = {
        {"txtBlankLines", "0", nullptr},
        {"txtBlankLines", "10", "Invalid number. Must be between 0-9 Out of valid Range"},
        {"txtBlankLines", "x", "Invalid number. Must be between 0-9 Not numeric"},
        {"TXTBLANKLINES", "", "Invalid number. Must be between 0-9 Is Blank"},
        {"txtDebugLevel", "5", nullptr},
        {"txtDebugLevel", "-1", "Invalid -1"},
        {"txtLinesMax", "0", "Invalid number. Must be between 1-9999 Out of valid Range"},
        {"txtLinesMax", "2.5", "Invalid number. Must be between 1-9999 Not numeric"},
        {"txtRefNo", "anything", nullptr},
    };
    for (const Case& c : cases)
        EXPECT_EQ(CheckMainField(c.field, c.text).value_or("(accepted)"),
                  c.message ? c.message : "(accepted)")
            << c.field << "=" << c.text;
    EXPECT_TRUE(HasFieldCheck("txtLinesMax"));
    EXPECT_FALSE(HasFieldCheck("txtRefNo"));
}

TEST(MainFormIds, EveryControlHasItsOwnIdFromItsPlaceInTheModel) {
    const Form form = MakeMainFormModel();
    std::set<int> ids;
    for (const Control& c : form.controls()) {
        int id = MainControlId(form, c.name, c.index);
        EXPECT_GE(id, kFirstControlId);
        EXPECT_LT(id, 0xFFFF);  // Windows keeps 0xFFFF for static controls
        EXPECT_EQ(&form.controls()[static_cast<size_t>(id - kFirstControlId)], &c);
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), form.controls().size());
    EXPECT_EQ(MainControlId(form, "cmdNoSuch"), 0);
    EXPECT_EQ(MainControlId(form, "cboSortField"), 0);  // an array needs its index
}

}  // namespace
}  // namespace pelmark::ui
