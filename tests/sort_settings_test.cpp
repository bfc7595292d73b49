// Tests of reading the sort settings from the main form.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "app/run.h"
#include "fakes/fakes.h"
#include "fakes/sortRig.h"
#include "sim/simRun.h"
#include "sort/engine.h"
#include "ui/frmMain.h"

namespace pelmark::sort {
namespace {

TEST(SortSettings, ReadFromTheMainForm) {
    ui::Form form = ui::MakeMainFormModel();
    ui::Control& field = *form.Find("cboSortField", 1);  // chosen from its list
    field.listIndex = static_cast<int>(std::find(field.list.begin(), field.list.end(), "Desc") -
                                       field.list.begin());
    ASSERT_LT(field.listIndex, static_cast<int>(field.list.size()));
    form.Find("chkSortDesc", 1)->value = 1;
    form.Find("chkSortCaseSensitive", 1)->value = 1;
    form.Find("chkKeepBlankItems")->value = 1;
    form.SetOption(*form.Find("optBlankLinesAfter"), true);
    form.Find("txtBlankLines")->text = " 99999";
    const SortSettings s = ReadSortSettings(form);
    EXPECT_EQ(s.levels.size(), static_cast<std::size_t>(ui::kSortLevels));
    ASSERT_EQ(ActiveLevels(s.levels).size(), 1u);
    EXPECT_EQ(s.levels[1].field, "Desc");
    EXPECT_TRUE(s.levels[1].descending && s.levels[1].caseSensitive && s.keepBlankItems);
    EXPECT_EQ(s.blankLines, BlankLines::After);
    EXPECT_EQ(s.blankCount, 32767);  // kept as a 16-bit number
}

// A level or weight naming a custom field is chosen once the company's fields are known, with
// no start-up question; only a name the company lacks is reported, once.
TEST(SortSettings, CustomFieldChoicesWaitForTheCompanysFieldNames) {
    test::TestApp t;
    std::string ini = test::FileBytes(test::kSampleSettings);
    for (auto [from, to] : {std::pair{"(0)=Item Full Name", "(0)=color"},
                            {"cboCFNetWeight=--None--", "cboCFNetWeight=Net Weight"},
                            {"cboCFItemNetWeightTotal=--None--", "cboCFItemNetWeightTotal=Gone"}})
        ini.replace(ini.find(from), std::string(from).size(), to);
    t.dir.Write("Pelmark.ini", ini);
    std::filesystem::copy_file(test::kSampleCompany, t.dir.File("company.xml"));
    sim::SimQuickBooks qb = sim::StartSimQuickBooks(t.dir.File("company.xml"), "3001");
    t.app.sys.qbTransport = qb.transport.get();
    t.app.sys.desktop = qb.desktop.get();
    LoadMainForm(t.app);

    const SortSettings s = ReadSortSettings(t.app.frmMain);
    EXPECT_EQ(s.levels[0].field, "Color");
    EXPECT_EQ(s.netWeightField, "Net Weight");
    EXPECT_EQ(s.netWeightTotalField, "Gone");  // kept for the next save
    const ui::Control& weights = *t.app.frmMain.Find("cboCFItemNetWeightTotal");
    ASSERT_FALSE(weights.list.empty());
    EXPECT_EQ(weights.list.front(), "");  // a choice can be cleared
    EXPECT_NE(std::find(weights.list.begin(), weights.list.end(), "Net Weight"),
              weights.list.end());
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    const std::string& said = t.prompter.shown[0].text;
    EXPECT_NE(said.find("cboCFItemNetWeightTotal(Gone)"), std::string::npos) << said;
    EXPECT_EQ(said.find("cboSortField"), std::string::npos) << said;
}

}  // namespace
}  // namespace pelmark::sort
