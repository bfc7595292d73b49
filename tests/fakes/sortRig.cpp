// The sort run rig.
#include "fakes/sortRig.h"

#include <filesystem>
#include <functional>
#include <sstream>

#include "ui/frmMain.h"

namespace pelmark::test {

qb::TransportResult TamperingTransport::ProcessRequest(const std::string& ticket,
                                                       const std::string& request,
                                                       std::string* response) {
    const std::string sent = edit ? edit(request) : request;
    requests.push_back(sent);
    if (stopAt > 0 && static_cast<int>(requests.size()) >= stopAt) throw Stopped{};
    return SimTransport::ProcessRequest(ticket, sent, response);
}

SortRig::SortRig(const std::string& ref, const std::string& kind, const std::string& company)
    : app(t.app), companyPath(t.dir.File("company.xml")) {
    std::filesystem::copy_file(company, companyPath);
    std::filesystem::copy_file(kSampleSettings, t.dir.File("Pelmark.ini"));
    Open(ref, kind);
    transport = std::make_unique<TamperingTransport>(companyPath);
    app.sys.qbTransport = transport.get();
    LoadMainForm(app);
    Set("txtDebugLevel", "5");
    t.prompter.shown.clear();
}

void SortRig::Open(const std::string& ref, const std::string& kind) {
    sim::SimQuickBooks next = sim::StartSimQuickBooks(companyPath, ref, kind);
    if (!qb.transport) {
        qb = std::move(next);
    } else {
        // The same QuickBooks, another window.
        qb.desktop = std::move(next.desktop);
        qb.txn = next.txn;
        qb.lastShown = next.lastShown;
    }
    app.sys.desktop = qb.desktop.get();
    app.screen = {};
}

void SortRig::Levels(const std::vector<std::string>& fields) {
    for (int i = 0; i < ui::kSortLevels; ++i) {
        std::string field = i < static_cast<int>(fields.size()) ? fields[i] : "";
        const bool descending = !field.empty() && field[0] == '-';
        if (descending) field.erase(0, 1);
        Set("cboSortField", field, i);
        app.frmMain.Find("chkSortDesc", i)->value = descending;
    }
}

void SortRig::Check(const std::string& name, bool on) {
    ui::Control* c = app.frmMain.Find(name);
    c->kind == ui::ControlKind::OptionButton ? app.frmMain.SetOption(*c, on) : void(c->value = on);
}

void SortRig::Set(const std::string& name, const std::string& text, int index) {
    ui::Control* c = app.frmMain.Find(name, index);
    c->text = text;
    c->listIndex = -1;
}

sim::Company SortRig::Company() const {
    sim::Company company;
    company.LoadFile(companyPath);
    return company;
}

std::vector<std::string> SortRig::Items() const {
    const sim::Company company = Company();
    pugi::xml_node txn = company.FindTxn(qb.txn.kind, qb.txn.txnID);
    const std::string lineRet = qb.txn.kind + "LineRet", groupRet = qb.txn.kind + "LineGroupRet";
    std::vector<std::string> items;
    for (pugi::xml_node line : txn.children()) {
        if (line.name() == lineRet) items.push_back(sim::FullNameOf(line.child("ItemRef")));
        if (line.name() != groupRet) continue;
        items.push_back(sim::FullNameOf(line.child("ItemGroupRef")));
        for (pugi::xml_node member : line.children(lineRet.c_str()))
            items.push_back("  " + sim::FullNameOf(member.child("ItemRef")));
    }
    return items;
}

bool SortRig::Shown(const std::string& text) const {
    for (const auto& s : t.prompter.shown)
        if (s.text.find(text) != std::string::npos) return true;
    return false;
}

std::string SortRig::Content() const {
    pugi::xml_document doc;
    doc.append_copy(Company().FindTxn(qb.txn.kind, qb.txn.txnID));
    std::function<void(pugi::xml_node)> strip = [&](pugi::xml_node n) {
        for (const char* name : {"TxnLineID", "EditSequence", "TimeModified"})
            while (n.child(name)) n.remove_child(name);
        for (pugi::xml_node c : n.children()) strip(c);
    };
    strip(doc);
    std::ostringstream out;
    doc.save(out);
    return out.str();
}

void SortRig::Fault(int request, const std::string& kind) {
    sim::Company company = Company();
    pugi::xml_node fault = company.Root().append_child("QBSimFault");
    fault.append_attribute("request").set_value(request);
    fault.append_attribute("kind").set_value(kind.c_str());
    company.SaveFile(companyPath);
}

}  // namespace pelmark::test
