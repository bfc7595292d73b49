// The simulated desktop: fake QuickBooks windows that answer keystrokes, messages and copy.
#include "sim/simDesktop.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "app/text.h"
#include "screen/sendKeys.h"

namespace pelmark::sim {
namespace {

using screen::KeyStroke;

std::string Cut(const std::string& text, int maxChars) {
    // A buffer of maxChars holds maxChars - 1 characters and the terminating NUL.
    if (maxChars <= 0) return {};
    size_t keep = static_cast<size_t>(maxChars - 1);
    return text.size() > keep ? text.substr(0, keep) : text;
}

// "2024-05-01" as QuickBooks shows it with US regional settings: "05/01/2024".
std::string ScreenDate(const std::string& isoDate) {
    if (isoDate.size() != 10 || isoDate[4] != '-' || isoDate[7] != '-') return isoDate;
    return isoDate.substr(5, 2) + "/" + isoDate.substr(8, 2) + "/" + isoDate.substr(0, 4);
}

std::optional<TrnsKind> KindOf(std::string_view kind) {
    if (kind == "Invoice") return TrnsKind::Invoice;
    if (kind == "Estimate") return TrnsKind::Estimate;
    if (kind == "SalesOrder") return TrnsKind::SalesOrder;
    if (kind == "SalesReceipt") return TrnsKind::SalesReceipt;
    if (kind == "PurchaseOrder") return TrnsKind::PurchaseOrder;
    return std::nullopt;
}

std::string RefName(pugi::xml_node txn, const char* ref) {
    return ChildText(txn.child(ref), "FullName");
}

}  // namespace

std::string QbMainTitle(QbTitleFormat format, const std::string& company) {
    switch (format) {
        case QbTitleFormat::ProEdition2004:
            return company + " - QuickBooks Pro Edition 2004";
        case QbTitleFormat::PremierEdition2006:
            return company + " - QuickBooks Premier Edition 2006";
        case QbTitleFormat::EnterpriseSolutions5:
            return company + " - QuickBooks Enterprise Solutions 5.0";
        case QbTitleFormat::Pro2014:
            return company + "  - QuickBooks Pro 2014";
        case QbTitleFormat::EnterpriseAccountant18:
            return company + "  - Intuit QuickBooks Enterprise Solutions: Accountant 18.0";
        case QbTitleFormat::Pro1999:
            return company + " - QuickBooks: Pro Edition";
        case QbTitleFormat::SimpleStart2008:
            return company + " - QuickBooks Simple Start Edition 2008";
    }
    return company;
}

std::string TrnsWindowTitle(TrnsKind kind) {
    std::string title = screen::TrnsKindTitle(kind);
    if (kind == TrnsKind::Invoice) title += " - Accounts Receivable";
    return title;
}

SimTrnsWindow MakeTrnsWindow(TrnsKind kind, const HeaderValues& v, bool withTemplateField) {
    SimTrnsWindow w;
    w.kind = kind;
    const std::string& name = v.customer;
    switch (kind) {
        case TrnsKind::PurchaseOrder:
            w.header = {{"Vendor", name},         {"Class", v.className},
                        {"Drop Ship To", ""},     {"Template", v.templateName},
                        {"Date", v.date},         {"P.O. No.", v.number},
                        {"Vendor Address", name}, {"Ship To", ""}};
            break;
        case TrnsKind::SalesReceipt:
            w.header = {
                {"Customer:Job", name}, {"Class", v.className},     {"Template", v.templateName},
                {"Date", v.date},       {"Sale No.", v.number},     {"Sold To", name},
                {"Check No.", ""},      {"Payment Method", "Check"}};
            break;
        case TrnsKind::Estimate:
            w.header = {{"Customer:Job", name},
                        {"Class", v.className},
                        {"Template", v.templateName},
                        {"Date", v.date},
                        {"Estimate #", v.number},
                        {"Name / Address", name},
                        {"Ship To", name},
                        {"Rep", ""}};
            break;
        case TrnsKind::SalesOrder:
            w.header = {
                {"Customer:Job", name}, {"Class", v.className}, {"Template", v.templateName},
                {"Date", v.date},       {"S.O. No.", v.number}, {"Name / Address", name},
                {"Ship To", name},      {"P.O. No.", ""}};
            break;
        case TrnsKind::Invoice:
        case TrnsKind::None:
            w.header = {
                {"Customer:Job", name}, {"Class", v.className},  {"Template", v.templateName},
                {"Date", v.date},       {"Invoice #", v.number}, {"Bill To", name},
                {"Ship To", name},      {"P.O. No.", ""},        {"Terms", "Net 30"}};
            break;
    }
    if (!withTemplateField) {
        std::erase_if(w.header, [](const SimField& f) { return f.label == "Template"; });
    }
    return w;
}

std::optional<TxnOnScreen> ReadTxnForScreen(const Company& company, std::string_view kind,
                                            std::string_view txnID) {
    auto k = KindOf(kind);
    if (!k) return std::nullopt;
    pugi::xml_node txn = company.FindTxn(kind, txnID);
    if (!txn) return std::nullopt;
    TxnOnScreen t;
    t.kind = *k;
    HeaderValues& v = t.header;
    v.customer = RefName(txn, *k == TrnsKind::PurchaseOrder ? "VendorRef" : "CustomerRef");
    v.className = RefName(txn, "ClassRef");
    v.templateName = RefName(txn, "TemplateRef");
    v.date = ScreenDate(ChildText(txn, "TxnDate"));
    v.number = ChildText(txn, "RefNumber");

    const std::string lineRet = std::string(kind) + "LineRet";
    const std::string groupRet = std::string(kind) + "LineGroupRet";
    auto add = [&t](pugi::xml_node line, const char* itemRef, const char* amount) {
        std::string rate = ChildText(line, "Rate");
        if (rate.empty() && line.child("RatePercent")) rate = ChildText(line, "RatePercent") + "%";
        t.lines.push_back({RefName(line, itemRef), ChildText(line, "Desc"),
                           ChildText(line, "Quantity"), rate, ChildText(line, amount)});
    };
    for (pugi::xml_node row : txn.children()) {
        if (row.name() == lineRet) add(row, "ItemRef", "Amount");
        if (row.name() != groupRet) continue;
        add(row, "ItemGroupRef", "TotalAmount");
        for (pugi::xml_node line : row.children(lineRet.c_str())) add(line, "ItemRef", "Amount");
    }
    return t;
}

std::string TxnIDByRefNumber(const Company& company, std::string_view kind,
                             std::string_view refNumber) {
    for (pugi::xml_node txn : company.Objects(std::string(kind) + "Ret"))
        if (ChildText(txn, "RefNumber") == refNumber) return ChildText(txn, "TxnID");
    return {};
}

std::optional<SimTrnsWindow> TrnsWindowFromCompany(const Company& company, std::string_view kind,
                                                   std::string_view txnID) {
    auto t = ReadTxnForScreen(company, kind, txnID);
    if (!t) return std::nullopt;
    return MakeTrnsWindow(t->kind, t->header);
}

std::optional<SimScenario> ScenarioFromCompany(const Company& company, std::string_view kind,
                                               std::string_view txnID, QbTitleFormat format) {
    auto window = TrnsWindowFromCompany(company, kind, txnID);
    if (!window) return std::nullopt;
    SimScenario s;
    s.company = ChildText(company.CompanyInfo(), "CompanyName");
    s.titleFormat = format;
    s.windows.push_back(std::move(*window));
    return s;
}

// ---- The window tree -------------------------------------------------------------------------

SimDesktop::SimDesktop(const SimScenario& scenario)
    : company_(scenario.company),
      format_(scenario.titleFormat),
      mainTitle_(scenario.mainTitle),
      maximized_(scenario.maximized) {
    desktop_ = NewWindow(0, Role::Desktop, "#32769", "");
    for (const std::string& title : scenario.otherWindows)
        NewWindow(desktop_, Role::Plain, "OtherProgramWindow", title);
    if (!scenario.qbRunning) return;
    main_ = NewWindow(desktop_, Role::Main, kMainClass, "");
    mdiClient_ = NewWindow(main_, Role::MdiClient, "MDIClient", "");
    // Opened from the last to the first, so that the first ends up the active one.
    for (auto it = scenario.windows.rbegin(); it != scenario.windows.rend(); ++it)
        OpenTransactionWindow(*it);
}

Hwnd SimDesktop::NewWindow(Hwnd parent, Role role, const std::string& className,
                           const std::string& text, bool front) {
    Hwnd h = next_;
    next_ += 0x10;
    Node n;
    n.parent = parent;
    n.className = className;
    n.text = text;
    n.role = role;
    nodes_[h] = n;
    if (parent != 0) {
        auto& kids = nodes_[parent].children;
        if (front)
            kids.insert(kids.begin(), h);
        else
            kids.push_back(h);
    }
    return h;
}

Hwnd SimDesktop::OpenTransactionWindow(const SimTrnsWindow& window) {
    if (mdiClient_ == 0) return 0;
    std::string title = window.title.empty() ? TrnsWindowTitle(window.kind) : window.title;
    Hwnd w = NewWindow(mdiClient_, Role::Trns, kTrnsClass, title, true);
    Trns t;
    t.def = window;
    // The form's first "Edit" child is its field editor: it holds the text of the field with
    // the focus, which is what a read by messages (no copy keystroke) gets from the form. The
    // fields follow as "Edit" controls of their own, in tab order.
    t.editor = NewWindow(w, Role::Editor, "Edit", "");
    nodes_[t.editor].trns = w;
    for (size_t i = 0; i < window.header.size(); ++i) {
        Hwnd f = NewWindow(w, Role::Field, "Edit", "");
        nodes_[f].trns = w;
        nodes_[f].field = static_cast<int>(i);
        t.fieldWnds.push_back(f);
    }
    for (const char* label :
         {"Pre&vious", "&Next", "Prin&t", "To be printe&d", "S&ave && Close", "&Save && New"})
        NewWindow(w, Role::Plain, "Button", label);
    NewWindow(w, Role::Plain, "Button", window.unsaved ? "Revert" : "Clear");
    trns_[w] = std::move(t);
    return w;
}

Hwnd SimDesktop::AddTopLevelWindow(const std::string& title, const std::string& className,
                                   bool front) {
    return NewWindow(desktop_, Role::Plain, className, title, front);
}

Hwnd SimDesktop::AddDialog(const std::string& title, bool onSave) {
    if (onSave) {
        dialogOnSave_ = title;
        return 0;
    }
    AnswerDialog();
    dialog_ = NewWindow(desktop_, Role::Plain, "#32770", title, true);
    nodes_[dialog_].owner = main_;
    foreground_ = dialog_;
    return dialog_;
}

void SimDesktop::AnswerDialog() {
    if (dialog_ == 0) return;
    Destroy(dialog_);
    dialog_ = 0;
    foreground_ = main_;
}

Hwnd SimDesktop::AddChildWindow(Hwnd parent, const std::string& className,
                                const std::string& text) {
    if (!IsWindow(parent)) return 0;
    return NewWindow(parent, Role::Plain, className, text);
}

void SimDesktop::Destroy(Hwnd wnd) {
    auto it = nodes_.find(wnd);
    if (it == nodes_.end()) return;
    std::vector<Hwnd> kids = it->second.children;
    for (Hwnd k : kids) Destroy(k);
    Hwnd parent = nodes_[wnd].parent;
    if (parent != 0) std::erase(nodes_[parent].children, wnd);
    nodes_.erase(wnd);
    trns_.erase(wnd);
    if (foreground_ == wnd) foreground_ = 0;
}

std::string SimDesktop::TextOf(Hwnd wnd) const {
    auto it = nodes_.find(wnd);
    if (it == nodes_.end()) return {};
    const Node& n = it->second;
    switch (n.role) {
        case Role::Main: {
            std::string title = mainTitle_.empty() ? QbMainTitle(format_, company_) : mainTitle_;
            Hwnd active = ActiveTrns();
            if (maximized_ && active != 0) title += " - [" + nodes_.at(active).text + "]";
            return title;
        }
        case Role::Editor: {
            const Trns& t = trns_.at(n.trns);
            int f = t.focus;
            return f >= 0 && f < static_cast<int>(t.def.header.size()) ? t.def.header[f].text
                                                                       : std::string();
        }
        case Role::Field:
            return trns_.at(n.trns).def.header[n.field].text;
        default:
            return n.text;
    }
}

Hwnd SimDesktop::GetWindow(Hwnd wnd, int relation) {
    auto it = nodes_.find(wnd);
    if (it == nodes_.end()) return 0;
    if (relation == screen::kGwOwner) return it->second.owner;
    if (relation == screen::kGwChild)
        return it->second.children.empty() ? 0 : it->second.children.front();
    if (relation == screen::kGwHwndNext && it->second.parent != 0) {
        const auto& sib = nodes_.at(it->second.parent).children;
        auto pos = std::find(sib.begin(), sib.end(), wnd);
        if (pos != sib.end() && pos + 1 != sib.end()) return *(pos + 1);
    }
    return 0;
}

Hwnd SimDesktop::GetParent(Hwnd wnd) {
    auto it = nodes_.find(wnd);
    // A top-level window has no parent, as GetParent reports it.
    if (it == nodes_.end() || it->second.parent == desktop_) return 0;
    return it->second.parent;
}

std::string SimDesktop::WindowText(Hwnd wnd, int maxChars) {
    return Cut(TextOf(wnd), maxChars);
}

std::string SimDesktop::WindowClass(Hwnd wnd, int maxChars) {
    auto it = nodes_.find(wnd);
    return it == nodes_.end() ? std::string() : Cut(it->second.className, maxChars);
}

Hwnd SimDesktop::FindChild(Hwnd parent, Hwnd after, const std::string& className,
                           const std::string& title) {
    if (parent == 0) parent = desktop_;
    auto it = nodes_.find(parent);
    if (it == nodes_.end()) return 0;
    const auto& kids = it->second.children;
    auto pos = kids.begin();
    if (after != 0) {
        pos = std::find(kids.begin(), kids.end(), after);
        if (pos == kids.end()) return 0;
        ++pos;
    }
    for (; pos != kids.end(); ++pos) {
        // Windows compares class names and titles here without regard to case.
        if (!className.empty() && !EqualsNoCase(nodes_.at(*pos).className, className)) continue;
        if (!title.empty() && !EqualsNoCase(TextOf(*pos), title)) continue;
        return *pos;
    }
    return 0;
}

int SimDesktop::GetTextLength(Hwnd wnd) {
    return static_cast<int>(TextOf(wnd).size());
}

std::string SimDesktop::GetTextByMessage(Hwnd wnd, int maxChars) {
    return Cut(TextOf(wnd), maxChars);
}

Hwnd SimDesktop::GetMdiActiveChild(Hwnd mdiClient) {
    return mdiClient != 0 && mdiClient == mdiClient_ ? ActiveTrns() : 0;
}

Hwnd SimDesktop::ActiveTrns() const {
    if (mdiClient_ == 0) return 0;
    const auto& kids = nodes_.at(mdiClient_).children;
    return kids.empty() ? 0 : kids.front();
}

Hwnd SimDesktop::TrnsWindow(TrnsKind kind) const {
    if (mdiClient_ == 0) return 0;
    for (Hwnd w : nodes_.at(mdiClient_).children)
        if (trns_.at(w).def.kind == kind) return w;
    return 0;
}

Hwnd SimDesktop::EditorOf(Hwnd trnsWnd) const {
    auto it = trns_.find(trnsWnd);
    return it == trns_.end() ? 0 : it->second.editor;
}

void SimDesktop::SetRefuseClose(Hwnd trnsWnd, bool refuse) {
    auto it = trns_.find(trnsWnd);
    if (it != trns_.end()) it->second.def.refuseClose = refuse;
}

void SimDesktop::BringToFront(Hwnd wnd) {
    Hwnd parent = nodes_.at(wnd).parent;
    if (parent == 0) return;
    auto& kids = nodes_.at(parent).children;
    std::erase(kids, wnd);
    kids.insert(kids.begin(), wnd);
}

// ---- Focus, activation and keys --------------------------------------------------------------

bool SimDesktop::SetFocus(Hwnd wnd) {
    auto it = nodes_.find(wnd);
    if (it == nodes_.end()) return false;
    const Node& n = it->second;
    if (n.role == Role::Field || n.role == Role::Editor) {
        BringToFront(n.trns);
        foreground_ = main_;
        if (n.role == Role::Field) Focus(trns_.at(n.trns), n.field);
    }
    return true;
}

bool SimDesktop::SetTopMost(Hwnd wnd, bool on, int left, int top, int width, int height) {
    topMostCalls.push_back({wnd, on, left, top, width, height});
    auto it = nodes_.find(wnd);
    if (it == nodes_.end()) return false;
    it->second.topMost = on;
    return true;
}

bool SimDesktop::Activate(Hwnd w) {
    auto it = nodes_.find(w);
    if (it == nodes_.end() || it->second.parent != desktop_) return false;
    activated.push_back(TextOf(w));
    // The main window is disabled while a modal dialog shows: Windows activates the dialog
    // instead.
    foreground_ = w == main_ && dialog_ != 0 ? dialog_ : w;
    BringToFront(w);
    return true;
}

bool SimDesktop::ClearClipboard() {
    clipboard_.reset();
    return true;
}

void SimDesktop::Focus(Trns& t, int field) {
    t.focus = std::max(field, 0);
    // Tabbing into a field selects its whole text, as in every Windows form.
    size_t len =
        t.focus < static_cast<int>(t.def.header.size()) ? t.def.header[t.focus].text.size() : 0;
    t.anchor = 0;
    t.caret = len;
}

void SimDesktop::Edit(Trns& t, std::string_view insert, int erase) {
    if (t.focus < 0 || t.focus >= static_cast<int>(t.def.header.size())) return;
    std::string& text = t.def.header[t.focus].text;
    size_t from = std::min(t.anchor, t.caret), to = std::max(t.anchor, t.caret);
    if (from == to && erase < 0 && from > 0) --from;        // Backspace
    if (from == to && erase > 0 && to < text.size()) ++to;  // Delete
    text.replace(from, to - from, insert);
    t.anchor = t.caret = from + insert.size();
}

bool SimDesktop::SendKeys(const std::string& keys, bool /*wait*/) {
    keysSent.push_back(keys);
    screen::SendKeysParse parsed = screen::ParseSendKeys(keys);
    if (!parsed.ok) return false;
    bool reached = false;
    for (const KeyStroke& k : parsed.strokes) reached = Press(k) || reached;
    if (!reached) lostKeys.push_back(keys);
    return true;
}

// One stroke to the active transaction window of QuickBooks; false when none has the focus.
bool SimDesktop::Press(const KeyStroke& k) {
    if (foreground_ == 0 || foreground_ != main_) return false;
    Hwnd w = ActiveTrns();
    if (w == 0) return false;
    Trns& t = trns_.at(w);

    // QuickBooks 99 (no version in its title) put the customer field on Alt+C; later versions on
    // Alt+J.
    const bool old = mainTitle_.empty()
                         ? format_ == QbTitleFormat::Pro1999
                         : mainTitle_.find_first_of("0123456789") == std::string::npos;
    int fieldKey = old ? 'C' : 'J';
    if (k.alt && k.vk == fieldKey) {
        Focus(t, 0);
        return true;
    }
    if (k.alt && k.vk == 'A') {
        ++altACount;
        if (!dialogOnSave_.empty()) {
            AddDialog(std::exchange(dialogOnSave_, std::string()));
            return true;
        }
        if (t.def.refuseClose) return true;
        SimSave save;
        save.kind = t.def.kind;
        for (const SimField& f : t.def.header) save.header.push_back(f.text);
        saves.push_back(std::move(save));
        Destroy(w);
        foreground_ = main_;
        return true;
    }
    if (t.focus < 0) return true;  // the keys reach the form, but no field has the focus

    const int fields = static_cast<int>(t.def.header.size());
    const size_t len = t.focus < fields ? t.def.header[t.focus].text.size() : 0;
    auto move = [&](size_t to) {
        t.caret = to;
        if (!k.shift) t.anchor = to;
    };
    switch (k.vk) {
        case screen::kVkTab:
            Focus(t, k.shift ? t.focus - 1 : t.focus + 1);
            return true;
        case screen::kVkHome:
            move(0);
            return true;
        case screen::kVkEnd:
            move(len);
            return true;
        case screen::kVkLeft:
            move(t.caret > 0 ? t.caret - 1 : 0);
            return true;
        case screen::kVkRight:
            move(std::min(t.caret + 1, len));
            return true;
        case screen::kVkBack:
            Edit(t, "", -1);
            return true;
        case screen::kVkDelete:
            Edit(t, "", 1);
            return true;
        default:
            break;
    }
    if (k.ctrl && k.vk == 'C') {
        if (t.focus < fields && t.anchor != t.caret) {
            size_t from = std::min(t.anchor, t.caret), to = std::max(t.anchor, t.caret);
            clipboard_ = t.def.header[t.focus].text.substr(from, to - from);
        }
        return true;
    }
    if (k.ch != 0 && !k.ctrl && !k.alt) Edit(t, std::string(1, k.ch), 0);
    return true;
}

}  // namespace pelmark::sim
