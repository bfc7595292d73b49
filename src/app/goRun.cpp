// The sort run: the Go, Stop and End commands, PreProcess and DoBackGround, and the main form's
// load stages that make the program ready for its first run.
#include <cmath>

#include "app/context.h"
#include "app/fieldLists.h"
#include "app/logs.h"
#include "app/run.h"
#include "app/settings.h"
#include "app/text.h"
#include "qb/qbCommon.h"
#include "screen/WindowsStuff.h"
#include "sort/engine.h"
#include "ui/frmMain.h"

namespace pelmark {

namespace {

inline constexpr int kSaveWaitMs = 300;
inline constexpr int kMaxSaveRounds = 60;

void LetEventsRun(App& app) {
    if (app.sys.events) app.sys.events->DoEvents();
}

// The kind's name as the run's messages give it: the window title from its 7th character on.
std::string KindText(const qb::TxnKindInfo& k) {
    const std::string title = k.windowTitle;
    return title.size() > 6 ? title.substr(6) : title;
}

// The kind of the one transaction window open.
qb::TxnKind OpenKind(const screen::ScreenState& s) {
    if (s.invoiceWnd) return qb::TxnKind::Invoice;
    if (s.salesReceiptWnd) return qb::TxnKind::SalesReceipt;
    if (s.salesOrderWnd) return qb::TxnKind::SalesOrder;
    if (s.estimateWnd) return qb::TxnKind::Estimate;
    return qb::TxnKind::None;
}

void CheckOpenWindows(App& app) {
    screen::GetTrnsWindows(app);
    app.run.openCount = screen::OpenTrnsKinds(app.screen);
}

bool FailWith(App& app, const std::string& text) {
    app.run.lastError = text;
    DebugLog(app, text, 1);
    ShowMessage(app, text);
    return false;
}

bool PromptFail(App& app, const std::string& text) {
    app.run.lastError = text;
    DebugLog(app, text, 1);
    ContinueOrTerminate(app, "ERROR\t" + text);
    return false;
}

// Saves and closes the open transaction window: "%a" every 300 ms until it is gone.
bool SaveAndClose(App& app) {
    RunState& run = app.run;
    DebugLog(app, "Do back Ground -Getting AppActivate ", 3);
    app.sys.desktop->AppActivate(app.screen.qbWindowKey);
    LetEventsRun(app);
    run.saveRounds = 0;
    for (;;) {
        CheckOpenWindows(app);
        if (run.openCount >= 2)
            return FailWith(app, "Only 1 order type of transaction is supported");
        if (run.openCount == 0) return true;
        app.sys.clock->Sleep(kSaveWaitMs);
        LetEventsRun(app);
        screen::SendKeysEscaped(app, "%a", true);
        ++run.saveRounds;
        ShowStatus(app, std::to_string(run.saveRounds));
        ShowStatus(app, "Cannot save");
        if (run.saveRounds > kMaxSaveRounds) return PromptFail(app, "Cannot save transaction");
    }
}

// The query of the transaction by kind, number and customer. False after its report.
bool OrderQuerySub(App& app, const qb::TxnKindInfo& k, const std::string& number,
                   const std::string& customer) {
    qb::TxnQueryOptions query;
    query.refNumber = number;
    query.customer = customer == "none" ? "" : customer;
    if (qb::TxnQuerySub(app, k.kind, query)) return true;
    if (app.qb.txn.statusCode == qb::kStatusNoMatch)
        return PromptFail(
            app, std::string(k.kindWord) + number + " for cust " + customer + " was not found");
    return FailWith(app, "Invoice collection is nothing, somehow");
}

std::vector<std::string> CustomFieldNames(const App& app) {
    std::vector<std::string> names;
    for (const qb::DataExtDef& def : app.qb.dataExtDefs) names.push_back(def.name);
    return names;
}

}  // namespace

void ShowStatus(App& app, const std::string& text) {
    app.run.status = text;
    if (ui::Control* label = app.frmMain.Find("lblStatus")) label->caption = text;
    if (ui::Control* list = app.frmMain.Find("lstMsgs")) {
        list->list.push_back(text);
        list->selected.push_back(false);
    }
    DebugLog(app, text, 3);
    if (app.statusHook) app.statusHook(text);
}

bool LoadMainForm(App& app) {
    std::string stage = "HouseKeeping";
    auto step = [&](const std::string& text) {
        stage = text;
        ShowStatus(app, text);
    };
    try {
        step("HouseKeeping");
        step("Load back from Housekeeper");
        step("Load doing Templates ");
        step("Load doing Templates complete ");
        step("Getting Ini and Map files");
        ReadIni(app, app.frmMain);
        step("Loading other forms");
        step("Load 2b New Files Ctls");
        step("B4  bUseNewFileCtls");
        step("Load Get Map ");
        step("Load Back from Get Map ");
        // QuickBooks and its lists; the sort levels list the company's custom fields.
        const bool opened = qb::QBInit(app);
        FillCustomFieldLists(app, CustomFieldNames(app), opened);
        step("Loaded ");
        step("Load Complete Exiting ");
        return opened;
    } catch (const ProgramEnd&) {
        throw;
    } catch (const std::exception& e) {
        DebugLog(app, std::string("Load err=") + e.what() + " whereat=" + stage, 1);
        WriteErr(app, std::string("ERROR\tLoad err=") + e.what() + " whereat=" + stage);
        return false;
    }
}

bool CmdGo(App& app) {
    RunState& run = app.run;
    if (run.running) return false;
    run.running = true;
    run.succeeded = false;
    run.checkProblems.clear();
    run.roundTrips = 0;
    app.qb.roundTrips = 0;
    DebugLog(app, "cmd Go entered", 1);
    const std::string version = VersionText();
    ShowStatus(app, version);
    screen::SetMessageMode(app);
    bool ok = false;
    try {
        ok = PreProcess(app);
        if (!ok && run.status == version) ShowStatus(app, "PreProcess failed");
    } catch (...) {
        run.running = false;
        run.roundTrips = app.qb.roundTrips;
        throw;
    }
    run.roundTrips = app.qb.roundTrips;
    DebugLog(app, "Round trips to QuickBooks in this run: " + std::to_string(run.roundTrips), 1);
    run.succeeded = ok;
    run.running = false;
    return ok;
}

void CmdStop(App& app) {
    app.run.stopRequested = true;
    ShowStatus(app, "Stopping");
}

void CmdEnd(App& app) {
    if (ShowMessage(app, "Are you sure you want to exit?", kMbYesNo | kMbQuestion) == kAnsYes)
        CloseEnd(app, 0);
}

bool PreProcess(App& app) {
    RunState& run = app.run;
    DebugLog(app, "Pre Process", 3);
    LetEventsRun(app);
    if (run.stopRequested) {
        run.stopRequested = false;
        if (ui::Control* stop = app.frmMain.Find("cmdStop")) stop->caption = "Stop";
        ShowStatus(app, "Stopped (1)");
        return false;
    }
    ++run.runCounter;

    std::string number = Trim(app.frmMain.Text("txtRefNo"));
    std::string customer;
    screen::ScreenState& s = app.screen;
    if (!number.empty()) {
        // The number typed in stands; QuickBooks is still looked for by its title.
        if (s.qbWindowKey.empty()) {
            s.qbFoundFlag = true;
            std::string unused;
            screen::IdentifyQuickBooks(app, unused);
        }
    } else {
        number = screen::GetTrnsNo(app);
        customer = s.customerName;
    }
    run.trnsNoValue = static_cast<long>(std::lround(NumVal(number)));

    if (number.empty() && customer.empty())
        return FailWith(app, "No customer or Transaction Window found or is not open or is hidden");

    if (!customer.empty()) {
        if (!app.frmMain.Checked("chkSkipCustomerQueryEachTime")) qb::CustomerQuerySub(app);
        bool known = false;
        for (const qb::CustomerRec& c : app.qb.customers)
            if (c.fullName == customer || c.name == customer) known = true;
        if (!known) {
            DebugLog(app, "Pre Process Customer not found QB", 1);
            return FailWith(app, std::string("Customer not found in ") + qb::kQuickBooks);
        }
    }
    if (run.trnsNoValue < 0) {
        ShowStatus(app, "EstN < 0");
        return false;
    }
    if (number.empty()) {
        run.lastError = "Pgm err - no Trns No";
        DebugLog(app, run.lastError, 1);
        number = "none";
    }
    if (customer.empty()) {
        run.lastError = "Pgm err - no Customer";
        DebugLog(app, run.lastError, 1);
        customer = "none";
    }
    run.trnsNo = number;
    run.customer = customer;

    const std::string key = s.qbWindowKey.empty() ? "QuickBooks" : s.qbWindowKey;
    if (screen::GetWindowsHandle4Text(app, 0, "*" + screen::LikeEscape(key) + "*", "*") == 0)
        return FailWith(app, "Can not find app screen51 " + key);
    return DoBackGround(app, customer, number);
}

bool DoBackGround(App& app, const std::string& customer, const std::string& trnsNo) {
    RunState& run = app.run;
    CheckOpenWindows(app);
    if (run.openCount >= 2) return FailWith(app, "Only 1 order type of transaction is supported");
    if (run.openCount == 0) return FailWith(app, "There is on order type of transaction opened");
    const qb::TxnKindInfo& k = qb::KindInfo(OpenKind(app.screen));

    if (!SaveAndClose(app)) return false;

    ShowStatus(app, "Getting and moding trans ");
    if (!OrderQuerySub(app, k, trnsNo, customer)) return false;
    const std::size_t count = app.qb.txn.txns.size();
    const std::string about = KindText(k) + " " + trnsNo + " for cust " + customer;
    if (count == 0) return PromptFail(app, about + " Trans Collection count is zero ");
    DebugLog(app, "Do back Ground - Trns Obj Ret ", 5);
    if (count > 1)
        return PromptFail(app, about + " has more than 1 transactions with the same #, count=" +
                                   std::to_string(count));
    DebugLog(app, "Do Back Ground setting Trns obj Ret ", 5);
    if (!(app.qb.*k.ret))
        return FailWith(app, "Order Query Sub Failed somehow, TrnsObjRet is nothing ");
    return sort::DoSortTrans(app, k.kind, 0);
}

}  // namespace pelmark
