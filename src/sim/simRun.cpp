// QuickBooks simulated for a sort run: the company file, qbsim and the simulated desktop.
#include "sim/simRun.h"

namespace pelmark::sim {

SimQuickBooks StartSimQuickBooks(const std::string& companyPath, std::string_view ref,
                                 std::string_view kind) {
    SimQuickBooks qb;
    Company company;
    const LoadResult loaded = company.LoadFile(companyPath);
    if (!loaded.ok()) {
        qb.error = companyPath + ": " + loaded.ToString();
        return qb;
    }
    std::optional<TxnRef> txn = FindSalesTxn(company, ref, kind);
    if (!txn) {
        qb.error =
            "there is no " + (kind.empty() ? std::string("sales transaction") : std::string(kind)) +
            (ref.empty() ? std::string() : " numbered " + std::string(ref)) + " in " + companyPath;
        return qb;
    }
    std::optional<SimScenario> scenario = ScenarioFromCompany(company, txn->kind, txn->txnID);
    if (!scenario) {
        qb.error = "the window of " + txn->kind + " " + txn->refNumber + " cannot be shown";
        return qb;
    }
    const std::vector<DisplayRequest> shown = company.DisplayRequests();
    qb.lastShown = shown.empty() ? 0 : shown.back().sequence;
    qb.txn = *txn;
    qb.transport = std::make_unique<SimTransport>(companyPath);
    qb.desktop = std::make_unique<SimDesktop>(*scenario);
    return qb;
}

int ShowDisplayedTransactions(SimQuickBooks& qb, const std::string& companyPath) {
    Company company;
    if (!qb.desktop || !company.LoadFile(companyPath).ok()) return 0;
    int opened = 0;
    for (const DisplayRequest& d : company.DisplayRequests()) {
        if (d.sequence <= qb.lastShown) continue;
        qb.lastShown = d.sequence;
        if (std::optional<SimTrnsWindow> window =
                TrnsWindowFromCompany(company, d.txnType, d.txnID)) {
            qb.desktop->OpenTransactionWindow(*window);
            ++opened;
        }
    }
    return opened;
}

}  // namespace pelmark::sim
