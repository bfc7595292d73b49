// QuickBooks simulated for a sort run: qbsim answering over a company file, and a desktop that
// shows the chosen transaction's window and opens it again when a display request asks for it.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "sim/show.h"
#include "sim/simDesktop.h"
#include "sim/simTransport.h"

namespace pelmark::sim {

struct SimQuickBooks {
    std::unique_ptr<SimTransport> transport;
    std::unique_ptr<SimDesktop> desktop;
    TxnRef txn;          // the transaction whose window is open
    std::string error;   // why QuickBooks could not be set up; empty when it was
    long lastShown = 0;  // the sequence of the last display request that was shown
};

// QuickBooks running with the company at `companyPath`, the window of transaction `ref` (of
// `kind` when given; the company's first sales transaction with an empty ref) open.
SimQuickBooks StartSimQuickBooks(const std::string& companyPath, std::string_view ref,
                                 std::string_view kind = {});

// Opens the window of every display request recorded in the company file since the last call,
// as QuickBooks does; returns how many windows were opened.
int ShowDisplayedTransactions(SimQuickBooks& qb, const std::string& companyPath);

}  // namespace pelmark::sim
