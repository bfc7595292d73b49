// Tests of the form model and of the main form's control set.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "app/text.h"
#include "screen/WindowsStuff.h"
#include "ui/frmMain.h"

namespace pelmark::ui {
namespace {

TEST(Form, FindsByNameInAnyCaseAndKeepsOptionGroupsExclusive) {
    Form f = MakeMainFormModel();
    ASSERT_NE(f.Find("CMDGO"), nullptr);
    EXPECT_EQ(f.Find("cmdgo"), f.Find("cmdGo"));
    EXPECT_EQ(f.Find("cboSortField"), nullptr);  // an array needs its index
    EXPECT_EQ(f.Find("cboSortField", kSortLevels), nullptr);
    EXPECT_TRUE(f.IsArray("CBOSORTFIELD"));
    EXPECT_FALSE(f.IsArray("cmdGo"));

    f.SetOption(*f.Find("optSalesOrder"), true);
    f.SetOption(*f.Find("optBlankLinesAfter"), true);
    const std::map<std::string, bool> want = {{"optSalesOrder", true},
                                              {"optInvoice", false},
                                              {"optBlankLinesAfter", true},
                                              {"optBlankLinesNone", false},
                                              {"optStopOnInfo", true}};
    for (const auto& [name, on] : want) EXPECT_EQ(f.Checked(name), on) << name;
}

TEST(Form, MainFormInvariants) {
    const Form f = MakeMainFormModel();
    std::map<std::string, int> setPerGroup;
    std::set<std::string> keys;
    for (const Control& c : f.controls()) {
        EXPECT_TRUE(keys.insert(Lower(c.name) + "/" + std::to_string(c.index)).second) << c.name;
        if (c.kind == ControlKind::OptionButton) setPerGroup[c.group] += c.value;
        if (c.kind == ControlKind::UpDown) {
            // Every up-down sets a saved label, and is not saved itself.
            const Control* label = f.Find(c.buddy);
            ASSERT_NE(label, nullptr) << c.name;
            EXPECT_EQ(c.name, "UpDown" + c.buddy);
            EXPECT_TRUE(label->holdsSetting && !c.holdsSetting) << c.name;
            EXPECT_EQ(std::to_string(c.value), label->caption) << c.name;
        }
        const bool transient = c.kind == ControlKind::CommandButton ||
                               c.kind == ControlKind::Frame || c.kind == ControlKind::Grid ||
                               c.kind == ControlKind::TabStrip || c.name == "txtRefNo" ||
                               c.name == "lstMsgs" || c.name == "lblStatus";
        EXPECT_TRUE(!transient || !c.holdsSetting) << c.name;
    }
    // Transaction type, blank lines and stop level: one button set in each.
    EXPECT_EQ(setPerGroup,
              (std::map<std::string, int>{
                  {"fraTransType", 1}, {"fraBlankLines", 1}, {"fraStopOnErrorLevel", 1}}));
    EXPECT_EQ(f.Find("lstOptionsInternal")->list.at(screen::kOptFullScreenMode),
              "chkFullScreenMode");
    EXPECT_EQ(f.Find("lstOptionsInternal")->selected.size(), 11u);
}

}  // namespace
}  // namespace pelmark::ui
