// The simulated desktop: an in-memory window tree with a fake QuickBooks main window whose
// transaction windows answer keystrokes, the clipboard and window messages as QuickBooks does.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "screen/WindowsStuff.h"
#include "screen/desktop.h"
#include "screen/sendKeys.h"
#include "sim/company.h"

namespace pelmark::sim {

using screen::Hwnd;
using screen::TrnsKind;

// Main-window titles of QuickBooks versions, for a company named C:
enum class QbTitleFormat {
    ProEdition2004,          // "C - QuickBooks Pro Edition 2004"
    PremierEdition2006,      // "C - QuickBooks Premier Edition 2006"
    EnterpriseSolutions5,    // "C - QuickBooks Enterprise Solutions 5.0"
    Pro2014,                 // "C  - QuickBooks Pro 2014" (two blanks before the dash)
    EnterpriseAccountant18,  // "C  - Intuit QuickBooks Enterprise Solutions: Accountant 18.0"
    Pro1999,                 // "C - QuickBooks: Pro Edition" (no year in the title)
    SimpleStart2008,         // "C - QuickBooks Simple Start Edition 2008" (not a served version)
};
std::string QbMainTitle(QbTitleFormat format, const std::string& company);

// Window classes of the simulated QuickBooks.
inline constexpr const char* kMainClass = "MauiFrame";
inline constexpr const char* kTrnsClass = "MauiForm";

struct SimField {
    std::string label;
    std::string text;
};

struct SimTrnsWindow {
    TrnsKind kind = TrnsKind::Invoice;
    std::string title;             // empty: the kind's own (see TrnsWindowTitle)
    std::vector<SimField> header;  // the header fields in tab order
    bool refuseClose = false;      // Alt+A does not close it (QuickBooks is asking something)
    bool unsaved = false;          // an edited transaction: "Revert" in place of "Clear"
};

// "Create Invoices - Accounts Receivable" for invoices, the kind's title for the others.
std::string TrnsWindowTitle(TrnsKind kind);

struct HeaderValues {
    std::string customer;  // the vendor for a purchase order
    std::string className;
    std::string templateName;
    std::string date;  // as the screen shows it: "12/15/2024"
    std::string number;
};

// A transaction window with the header QuickBooks lays out for the kind: customer, class,
// template, date, number, then the address and terms fields (a purchase order has its "Drop Ship
// To" before the template). Without the template field, as in a layout that leaves it out.
SimTrnsWindow MakeTrnsWindow(TrnsKind kind, const HeaderValues& values,
                             bool withTemplateField = true);

struct SimScenario {
    std::string company = "Rock Castle Construction";
    QbTitleFormat titleFormat = QbTitleFormat::ProEdition2004;
    std::string mainTitle;  // when set, the main window's whole title instead of the format's
    bool qbRunning = true;
    // The active transaction window is maximized: its title shows in brackets in the main title.
    bool maximized = false;
    std::vector<SimTrnsWindow> windows;     // open transaction windows; the first is the active one
    std::vector<std::string> otherWindows;  // titles of other programs' windows, above QuickBooks
};

// One row of a transaction window's line grid: item, description, quantity, rate (a percentage
// rate with "%") and amount, as the company file holds them. A line group shows as its group item
// with the total, followed by its own lines.
struct ScreenLine {
    std::string item, desc, quantity, rate, amount;
};

// What a transaction window shows of a stored transaction: its header and its lines in the order
// they are stored, which is the order QuickBooks shows them in.
struct TxnOnScreen {
    TrnsKind kind = TrnsKind::Invoice;
    HeaderValues header;
    std::vector<ScreenLine> lines;
};
std::optional<TxnOnScreen> ReadTxnForScreen(const Company& company, std::string_view kind,
                                            std::string_view txnID);
// The TxnID of the stored transaction of a kind with that RefNumber; "" when there is none.
std::string TxnIDByRefNumber(const Company& company, std::string_view kind,
                             std::string_view refNumber);

// The transaction window of a stored transaction ("Invoice", "Estimate", "SalesOrder",
// "SalesReceipt") as QuickBooks shows it; unset when there is no such transaction.
std::optional<SimTrnsWindow> TrnsWindowFromCompany(const Company& company, std::string_view kind,
                                                   std::string_view txnID);
// QuickBooks with the company open and that transaction's window open.
std::optional<SimScenario> ScenarioFromCompany(const Company& company, std::string_view kind,
                                               std::string_view txnID,
                                               QbTitleFormat format = QbTitleFormat::Pro2014);

struct SimSave {
    TrnsKind kind = TrnsKind::None;
    std::vector<std::string> header;  // the field texts when it was saved
};

struct SimTopMost {
    Hwnd wnd = 0;
    bool on = false;
    int left = 0, top = 0, width = 0, height = 0;
};

class SimDesktop : public screen::Desktop {
  public:
    explicit SimDesktop(const SimScenario& scenario = {});

    Hwnd GetDesktopWindow() override { return desktop_; }
    Hwnd GetWindow(Hwnd wnd, int relation) override;
    Hwnd GetParent(Hwnd wnd) override;
    std::string WindowText(Hwnd wnd, int maxChars = 255) override;
    std::string WindowClass(Hwnd wnd, int maxChars = 255) override;
    Hwnd FindChild(Hwnd parent, Hwnd after, const std::string& className,
                   const std::string& title) override;
    int GetTextLength(Hwnd wnd) override;
    std::string GetTextByMessage(Hwnd wnd, int maxChars) override;
    Hwnd GetMdiActiveChild(Hwnd mdiClient) override;
    bool IsWindow(Hwnd wnd) override { return nodes_.count(wnd) != 0; }
    bool IsVisible(Hwnd wnd) override { return nodes_.count(wnd) != 0; }
    bool SetFocus(Hwnd wnd) override;
    bool SetTopMost(Hwnd wnd, bool on, int left, int top, int width, int height) override;
    bool Activate(Hwnd wnd) override;
    bool SendKeys(const std::string& keys, bool wait) override;
    bool ClearClipboard() override;
    std::optional<std::string> GetClipboardText() override { return clipboard_; }

    // Opens a transaction window as the active one, as QuickBooks does when it is asked to show
    // a transaction. This is where qbsim's display request reopens the window it closed.
    Hwnd OpenTransactionWindow(const SimTrnsWindow& window);
    // A top-level window of another program; in front of the others when `front`.
    Hwnd AddTopLevelWindow(const std::string& title, const std::string& className, bool front);
    // A plain child window (a control of any class).
    Hwnd AddChildWindow(Hwnd parent, const std::string& className, const std::string& text);
    // A dialog of QuickBooks (owned by its main window, in front, taking the keys); with
    // `onSave`, it shows at the next Alt+A instead of the window closing, as "Recording
    // Transaction" does. Answer it with AnswerDialog.
    Hwnd AddDialog(const std::string& title, bool onSave = false);
    void AnswerDialog();
    void SetMaximized(bool on) { maximized_ = on; }
    // Another company (or version) opened in the same QuickBooks.
    void SetMainTitle(const std::string& title) { mainTitle_ = title; }
    void SetRefuseClose(Hwnd trnsWnd, bool refuse);
    void SetClipboardText(const std::string& text) { clipboard_ = text; }

    Hwnd MainWindow() const { return main_; }
    Hwnd MdiClient() const { return mdiClient_; }
    // The open window of a kind (the front one when several), 0 when none.
    Hwnd TrnsWindow(TrnsKind kind) const;
    Hwnd EditorOf(Hwnd trnsWnd) const;
    Hwnd Foreground() const { return foreground_; }

    // What the program did.
    std::vector<std::string> keysSent;   // every SendKeys text, in order
    std::vector<std::string> lostKeys;   // texts sent while no transaction window had the focus
    std::vector<std::string> activated;  // titles of the windows Activate brought up
    int altACount = 0;                   // Alt+A strokes a transaction window received
    std::vector<SimSave> saves;
    std::vector<SimTopMost> topMostCalls;

  private:
    enum class Role { Plain, Desktop, Main, MdiClient, Trns, Editor, Field };
    struct Node {
        Hwnd parent = 0, owner = 0;
        std::vector<Hwnd> children;  // z-order, top first
        std::string className, text;
        Role role = Role::Plain;
        Hwnd trns = 0;  // Editor and Field: their transaction window
        int field = -1;
        bool topMost = false;
    };
    struct Trns {
        SimTrnsWindow def;
        Hwnd editor = 0;
        std::vector<Hwnd> fieldWnds;
        int focus = -1;  // header field with the focus; header size and above: the line grid
        size_t anchor = 0, caret = 0;
    };

    Hwnd NewWindow(Hwnd parent, Role role, const std::string& className, const std::string& text,
                   bool front = false);
    void Destroy(Hwnd wnd);
    std::string TextOf(Hwnd wnd) const;
    Hwnd ActiveTrns() const;
    void BringToFront(Hwnd wnd);
    void Focus(Trns& t, int field);
    bool Press(const screen::KeyStroke& k);
    void Edit(Trns& t, std::string_view insert, int erase);

    Hwnd next_ = 0x10010;
    std::map<Hwnd, Node> nodes_;
    std::map<Hwnd, Trns> trns_;
    Hwnd desktop_ = 0, main_ = 0, mdiClient_ = 0, foreground_ = 0;
    std::string company_;
    QbTitleFormat format_ = QbTitleFormat::ProEdition2004;
    std::string mainTitle_;
    std::string dialogOnSave_;
    Hwnd dialog_ = 0;
    bool maximized_ = false;
    std::optional<std::string> clipboard_;
};

}  // namespace pelmark::sim
