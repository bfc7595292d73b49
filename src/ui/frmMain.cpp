// The main form's control set: every command, option, sort level and setting the user can see.
#include "ui/frmMain.h"

#include <algorithm>
#include <initializer_list>
#include <string>

#include "app/context.h"
#include "app/run.h"
#include "app/settings.h"
#include "app/text.h"
#include "screen/WindowsStuff.h"

namespace pelmark::ui {

namespace {

// Appends controls to the form in creation order; the settings file is written in this order.
class Builder {
  public:
    explicit Builder(Form& form) : form_(form) {}

    // Controls created after this call stand in the frame (and option buttons share its group).
    void Frame(const std::string& name, const std::string& caption, const std::string& tip = {}) {
        Control c;
        c.kind = ControlKind::Frame;
        c.name = name;
        c.caption = caption;
        c.tip = tip;
        form_.Add(std::move(c));
        frame_ = name;
    }
    void NoFrame() { frame_.clear(); }

    Control& Command(const std::string& name, const std::string& caption,
                     const std::string& tip = {}, int index = -1) {
        Control c = Make(ControlKind::CommandButton, name, caption, tip, index);
        return form_.Add(std::move(c));
    }

    Control& Check(const std::string& name, const std::string& caption, const std::string& tip = {},
                   int value = 0, int index = -1) {
        Control c = Make(ControlKind::CheckBox, name, caption, tip, index);
        c.value = value;
        c.holdsSetting = true;
        return form_.Add(std::move(c));
    }

    Control& Option(const std::string& name, const std::string& caption, bool set = false) {
        Control c = Make(ControlKind::OptionButton, name, caption, {}, -1);
        c.group = frame_;
        c.value = set ? 1 : 0;
        c.holdsSetting = true;
        return form_.Add(std::move(c));
    }

    Control& Text(const std::string& name, const std::string& caption, const std::string& text,
                  const std::string& tip = {}, bool holdsSetting = true) {
        Control c = Make(ControlKind::TextBox, name, caption, tip, -1);
        c.text = text;
        c.holdsSetting = holdsSetting;
        return form_.Add(std::move(c));
    }

    Control& Combo(const std::string& name, const std::string& caption,
                   std::vector<std::string> list = {}, int index = -1) {
        Control c = Make(ControlKind::ComboBox, name, caption, {}, index);
        c.list = std::move(list);
        c.holdsSetting = true;
        return form_.Add(std::move(c));
    }

    // A label whose caption holds a setting, edited with an up-down control next to it. The
    // label's descriptive name is its tip and the up-down's caption.
    void NumberLabel(const std::string& name, const std::string& description, int value, int max) {
        Control label = Make(ControlKind::Label, name, std::to_string(value), description, -1);
        label.holdsSetting = true;
        form_.Add(std::move(label));

        Control upDown = Make(ControlKind::UpDown, "UpDown" + name, description, {}, -1);
        upDown.buddy = name;
        upDown.value = value;
        upDown.min = 0;
        upDown.max = max;
        form_.Add(std::move(upDown));
    }

    Control& Label(const std::string& name, const std::string& caption, const std::string& tip = {},
                   bool holdsSetting = false) {
        Control c = Make(ControlKind::Label, name, caption, tip, -1);
        c.holdsSetting = holdsSetting;
        return form_.Add(std::move(c));
    }

    Control& Plain(ControlKind kind, const std::string& name, const std::string& caption = {}) {
        return form_.Add(Make(kind, name, caption, {}, -1));
    }

  private:
    Control Make(ControlKind kind, const std::string& name, const std::string& caption,
                 const std::string& tip, int index) const {
        Control c;
        c.kind = kind;
        c.name = name;
        c.index = index;
        c.caption = caption;
        c.tip = tip;
        c.frame = frame_;
        return c;
    }

    Form& form_;
    std::string frame_;
};

}  // namespace

std::vector<std::string> SortFieldVocabulary(const std::vector<std::string>& customFields) {
    std::vector<std::string> words = {"",         "Amount", "Item Name", "Item Full Name",
                                      "Desc",     "Class",  "Qty",       "Price",
                                      "Tax Code", "Other1", "Other2"};
    words.insert(words.end(), customFields.begin(), customFields.end());
    return words;
}

Form MakeMainFormModel() {
    Form form("frmMain");
    Builder b(form);

    // Commands and status: all that the small form shows.
    b.Command("cmdGo", "Sort", "Click here to sort the transaction");
    b.Command("cmdStop", "Stop");
    b.Command("cmdUndo", "Undo last sort", "Put the last sorted transaction back as it was");
    b.Command("cmdSave", "Save Settings");
    b.Command("cmdEnd", "&End", "End Program");
    b.Command("cmdExpand", "Expand", "Click here to see settings");
    b.Label("lblStatus", "");
    b.Plain(ControlKind::ListBox, "lstMsgs");
    Control& tabs = b.Plain(ControlKind::TabStrip, "SSTab1");
    tabs.list = {"Sort", "Options", "Lines", "Batch"};

    b.Frame("fraTransType", "Transaction Type");
    b.Option("optInvoice", "Invoice", true);
    b.Option("optSalesReceipt", "Sales Recipt");
    b.Option("optEstimate", "Estimate");
    b.Option("optSalesOrder", "Sales Order");
    b.Option("optPurchaseOrder", "Purchase Order");
    // A per-run override of the number on the screen, so it is never kept between runs.
    b.Text("txtRefNo", "Ref No", "", "Transaction number to sort instead of the open one", false);
    b.Check("chkPreview", "Preview before writing",
            "Show the lines in their new order and write them only when asked");

    b.Frame("fraSortCriteria", "Sort Criteria (Sort Order)" + std::string(18, ' ') + "Case");
    const std::vector<std::string> vocabulary = SortFieldVocabulary({});
    for (int i = 0; i < kSortLevels; ++i) {
        b.Combo("cboSortField", "Level " + std::to_string(i + 1), vocabulary, i);
        b.Check("chkSortDesc", "Check for Descending", {}, 0, i);
        b.Check("chkSortCaseSensitive", "Case", {}, 0, i);
    }

    b.Frame("fraBlankLines", "Blank Lines");
    b.Option("optBlankLinesNone", "None", true);
    b.Option("optBlankLinesBefore", "Before");
    b.Option("optBlankLinesAfter", "After");
    b.Text("txtBlankLines", "# of Blank Lines", "1",
           "Insert this many blank lines before or after each item");
    b.Check("chkKeepBlankItems", "Keep Blank Items", "Keeps blank item names with item");

    b.Frame("fraSubTotals", "Subtotal Item between Tax Lines");
    b.Text("txtItemSubTotal", "SubTotal", "");
    b.Combo("cboItemSubTotal", "SubTotal Item");
    b.Combo("cboTotalsItem", "Totals Item");

    b.Frame("fraCustomFields", "Custom Fields");
    b.Check("chkSKIPCFs", "Skip Custom Flds copying", "If Custom Fields will not be copied.");
    b.Check("chkCombineCFs", "Combine CFs");
    b.Check("chkDefaultIfBlank", "Default Only If Blank",
            "If checked on blank fields to be replaced by default.");

    b.Frame("fraStopOnErrorLevel", "Stop On Error Level");
    // QuickBooks' refusals (a rejected modify, a failed query) are reported at the INFO level,
    // so by default the user is asked about those too.
    b.Option("optStopOnError", "Error only");
    b.Option("optStopOnWarning", "Warning + Higher");
    b.Option("optStopOnInfo", "Info + Higher", true);
    b.Option("optStopOnAll", "All");
    b.Option("optStopOnNone", "None");

    b.Frame("fraPerformance", "Performance Features");
    b.Check("chkSkipCustomerQueryEachTime", "Skip Customer Query Each Time",
            "Do not do a Customer Query each time - this will increase speed");
    b.Check("chkBypassCustomerQuery", "Bypass Initial Customer Query",
            "This will bypass the initial customer query");
    b.Check("chkBypassItemsQuery", "Bypass Initial Items Query");
    b.Check("chkUseItemsIIF", "Use Items.iif file instead of QB Item Query");

    b.Frame("fraFilesAndLogs", "Files and Logs");
    b.Check("chkUseExcelForCSV", "Use Excel For CSV files");
    b.Check("chkExcelOpenFileNotOpenSheet", "Excel Open File Not Open Sheet");
    b.Check("chkIniInUserAppData", "Settings In User Data Folder");
    b.Check("chkWriteErrsToLog", "Write Errors To Log", {}, 1);
    b.Check("chkEUAAccepted", "Agreement Accepted");
    b.Text("txtDebugLevel", "Debug Level", "1");
    b.Text("txtJournalsKept", "Journals Kept", "100", "How many sort journals Undo can use");

    b.Frame("fraKeystrokes", "Keystrokes");
    b.Check("chkDontUseSendMsg", "Don't Use Send Msg");
    b.Check("chkUseMyKeys", "UseMyKeys");

    b.Frame("fraTiming", "Sleep Timing", "Controls Time between events");
    b.NumberLabel("lblTimePreDelay", "Pre Delay", 100, 10000);
    b.NumberLabel("lblTimeProDelay", "Process Delay", 100, 10000);
    b.NumberLabel("lblTimeDoLinesDelay", "DoLines Delay", 100, 10000);
    b.NumberLabel("lblSlowTimePre", "Slow Time Pre", 500, 10000);
    b.NumberLabel("lblSlowTimePro", "Slow Time Pro", 500, 10000);
    b.NumberLabel("lblSlowTimeDoLines", "Slow Time Do Lines", 500, 10000);
    b.NumberLabel("lblSleepVBA", "Sleep VBA", 100, 10000);
    b.NumberLabel("lblMyKeysTime", "My Keys Timer", 50, 10000);
    b.NumberLabel("lblTimePreDelayTest", "Pre Delay Test", 100, 10000);
    b.NumberLabel("lblTimeProDelayTest", "Process Delay Test", 100, 10000);
    b.NumberLabel("lblTimeDoLinesDelayTest", "DoLines Delay Test", 100, 10000);

    b.Frame("fraInternalOptions", "Internal Options");
    {
        Control list;
        list.kind = ControlKind::ListBox;
        list.name = "lstOptionsInternal";
        list.frame = "fraInternalOptions";
        list.list = {"App Active Pre",   "App Active Pro",     "App Active Dolines",
                     "chkReadBypassNew", "Close QB Each Time", "Do All",
                     "ChkDebugLoop",     "TraceMsg",           "chkFullScreenMode",
                     "Phase One Only",   "Pass Group Lines"};
        list.selected.assign(list.list.size(), false);
        list.holdsSetting = true;
        form.Add(std::move(list));
    }

    b.Frame("fraDisplay", "Display");
    b.Check("chkAlwaysOnTop", "Always On Top on other windows");
    b.Check("chkCompressedWindow", "Compressed Window");
    b.Label("lblScreenPos", "Screen Pos Left Top");
    // The small form's position, kept as label captions so that it is saved with the rest.
    b.Label("lblScreenLeft", "0", "Screen Pos Left Top", true);
    b.Label("lblScreenTop", "0", "Screen Pos Left Top", true);
    b.Text("txtLinesMax", "Lines Max", "200");
    b.Plain(ControlKind::Grid, "grdLines").list = {"Line", "Item", "Description", "Qty", "Amount"};

    // Custom fields that receive weights, boxes and dimensions; their lists are the custom
    // field names read from QuickBooks.
    b.Frame("fraWeights", "Weights");
    b.Combo("cboCFNetWeight", "Net Weight");
    b.Combo("cboCFItemNetWeightTotal", "Item Net Weight Total");
    b.Combo("cboCFGrossWeight", "Gross Weight");
    b.Combo("cboCFGrossWeightTotal", "Gross Weight Total");
    b.Combo("cboCFCustNetWeightTotal", "Customer Net Weight Total");

    b.Frame("fraBoxes", "Boxes");
    b.Combo("cboCFTotalBoxes", "Total Boxes");
    b.Combo("cboCFUnitsPer", "Units Per");

    b.Frame("fraDimensions", "Dimensions");
    b.Combo("cboCFItemDimensions", "Item Dimensions");
    b.Combo("cboCFCustomerDimensionsTotal", "Customer Dimensions Total");

    b.Frame("fraColumnFactors", "Column Factors");
    b.Combo("cboCFItemTaxSelector", "Item Tax Selector");
    b.NumberLabel("lblColFactor4", "Column Factor 4", 1, 1000);
    b.NumberLabel("lblColFactor5", "Column Factor 5", 1, 1000);

    b.Frame("fraBuilds", "Assembly Builds");
    b.Check("chkDoBuild", "Do Build");
    b.Check("chkDoBuildAsmWAsm", "Build Assemblies Within Assemblies");
    b.NumberLabel("lblAsmWAsmMaxDepth", "Assembly Max Depth", 5, 99);
    b.NumberLabel("lblBuildReserveQty", "Build Reserve Qty", 0, 100000);
    b.NumberLabel("lblBuildMinQty", "Build Min Qty", 0, 100000);
    b.NumberLabel("lblIterationMax", "Iteration Max", 100, 100000);

    // The Batch page: the choices of the command line's batch, chosen anew each time.
    b.Frame("fraBatch", "Batch", "Sort every transaction of a kind in a date range");
    Control& kind =
        b.Combo("cboBatchKind", "Kind", {"Invoice", "Estimate", "Sales Order", "Sales Receipt"});
    kind.holdsSetting = false;
    kind.listIndex = 0;
    b.Text("txtBatchFrom", "From", "", "First transaction date, YYYY-MM-DD", false);
    b.Text("txtBatchTo", "To", "", "Last transaction date, YYYY-MM-DD", false);
    b.Text("txtBatchCustomer", "Customer", "", "The customer's full name; blank for all", false);
    b.Check("chkBatchDryRun", "Dry run (write nothing)").holdsSetting = false;
    b.Command("cmdBatchStart", "Start");
    b.Command("cmdBatchStop", "Stop", "Stops after the transaction being sorted");
    b.Plain(ControlKind::ProgressBar, "prgBatch");
    b.Label("lblBatchMessage", "");
    b.Frame("fraBatchResults", "Results");
    b.Plain(ControlKind::Grid, "grdBatch").list = {"Number", "Lines", "Result"};

    // Controls for testing only.
    b.Frame("fraTesting", "Testing");
    for (int i = 0; i < 2; ++i) {
        b.Check("chks", "Test " + std::to_string(i), {}, 0, i);
        b.Command("cmds", "Test " + std::to_string(i), {}, i);
    }
    b.NoFrame();

    return form;
}

int MainControlId(const Form& form, const std::string& name, int index) {
    const Control* c = form.Find(name, index);
    if (c == nullptr) return 0;
    return kFirstControlId + static_cast<int>(c - form.controls().data());
}

namespace {

// txtLinesMax: how many lines the grid holds, a whole number.
std::optional<std::string> CheckLinesMax(const std::string& text) {
    std::string reason;
    if (ValidateField(text, FieldLimits{1, 9999, false, true}, &reason)) return std::nullopt;
    return std::string("Invalid number. Must be between ") + "1" + "-" + "9999" + " " + reason;
}

std::optional<std::string> CheckJournalsKept(const std::string& text) {
    std::string reason;
    if (ValidateField(text, FieldLimits{1, 10000, false, true}, &reason)) return std::nullopt;
    return std::string("Invalid number. Must be between ") + "1" + "-" + "10000" + " " + reason;
}

struct FieldCheck {
    const char* name;
    std::optional<std::string> (*check)(const std::string&);
};
constexpr FieldCheck kFieldChecks[] = {
    {"txtBlankLines", CheckBlankLines},
    {"txtDebugLevel", CheckDebugLevel},
    {"txtLinesMax", CheckLinesMax},
    {"txtJournalsKept", CheckJournalsKept},
};

const FieldCheck* FindFieldCheck(const std::string& name) {
    for (const FieldCheck& f : kFieldChecks) {
        if (EqualsNoCase(name, f.name)) return &f;
    }
    return nullptr;
}

// A saved coordinate must bring the form back onto the screen.
std::string SavedScreenPos(int pos, int extent) {
    return pos < 0 || (extent > 0 && pos >= extent) ? "0" : std::to_string(pos);
}

}  // namespace

std::optional<std::string> CheckMainField(const std::string& name, const std::string& text) {
    const FieldCheck* f = FindFieldCheck(name);
    return f ? f->check(text) : std::nullopt;
}

bool HasFieldCheck(const std::string& name) {
    return FindFieldCheck(name) != nullptr;
}

void CmdSave(App& app, const FormPlacement& placement) {
    Form& form = app.frmMain;
    Control* left = form.Find("lblScreenLeft");
    Control* top = form.Find("lblScreenTop");
    if (placement.small) {
        left->caption = std::to_string(placement.left);
        top->caption = std::to_string(placement.top);
    }
    left->caption =
        SavedScreenPos(static_cast<int>(LeadingNumber(left->caption)), placement.screenWidth);
    top->caption =
        SavedScreenPos(static_cast<int>(LeadingNumber(top->caption)), placement.screenHeight);
    SaveSettings(app, {&form});
    ShowStatus(app, "Settings Saved");
}

std::string BatchPageOptions(const Form& form, BatchOptions& options) {
    const std::string kind = form.ComboText("cboBatchKind");
    const std::optional<qb::TxnKind> k = BatchKind(ReplaceAll(kind, " ", ""));
    if (!k) return "Choose the kind of transaction to sort";
    options.kind = *k;
    options.from = Trim(form.Text("txtBatchFrom"));
    options.to = Trim(form.Text("txtBatchTo"));
    options.customer = Trim(form.Text("txtBatchCustomer"));
    options.dryRun = form.Checked("chkBatchDryRun");
    return CheckBatchOptions(options);
}

std::string CmdBatch(App& app, const BatchProgress& progress) {
    BatchOptions options;
    std::string message = BatchPageOptions(app.frmMain, options);
    std::size_t total = 0;
    if (message.empty()) {
        const std::vector<BatchItem> items = RunBatch(
            app, options,
            [&](std::size_t done, std::size_t all, const BatchItem& item) {
                total = all;
                return !progress || progress(done, all, item);
            },
            message);
        if (message.empty() && items.empty()) message = "No transaction of that kind and range";
        if (message.empty()) {
            // One count per result: "3 sorted, 1 already in order, 1 failed".
            std::vector<std::pair<std::string, int>> counts;
            for (const BatchItem& i : items) {
                const std::string what = i.failed ? "failed" : i.result;
                auto at = std::find_if(counts.begin(), counts.end(),
                                       [&](const auto& c) { return c.first == what; });
                if (at == counts.end()) at = counts.insert(counts.end(), {what, 0});
                ++at->second;
            }
            message = std::to_string(items.size()) + " of " + std::to_string(total) +
                      " transactions done:";
            for (const auto& [what, n] : counts)
                message +=
                    (&what == &counts.front().first ? " " : ", ") + std::to_string(n) + " " + what;
            if (items.size() < total) message += " (stopped)";
        }
    }
    app.frmMain.Find("lblBatchMessage")->caption = message;
    return message;
}

void DoAlwaysOnTop(App& app, std::uintptr_t form, int left, int top, int width, int height) {
    const screen::WindowRect rect{left, top, width, height};
    if (app.frmMain.Checked("chkAlwaysOnTop")) {
        screen::MakeTopMost(app, form, rect);
    } else {
        screen::MakeNotTopMost(app, form, rect);
    }
}

}  // namespace pelmark::ui
