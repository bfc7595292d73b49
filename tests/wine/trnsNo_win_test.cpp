// Identifying the open transaction end to end: GetTrnsNo on the Win32 desktop against a
// running fake QuickBooks, by real keystrokes and clipboard, and by window messages; and the
// fake QuickBooks showing a company file's transaction again when it is asked to display it.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "app/context.h"
#include "fakes/fakes.h"
#include "screen/WindowsStuff.h"
#include "screen/desktop.h"
#include "wine/fakeqb_win.h"
#include "wine/qbcom_win.h"
#include "wine/screenshot_win.h"

namespace pelmark::screen {
namespace {

using test::FakeQbProgram;

const char* const kCompany = "HOLY GHOST ASSOC. INC.";
const char* const kInvoice =
    "invoice;customer=Abercrombie, Kristy:Family Room;class=Remodel;"
    "template=Intuit Product Invoice;date=12/15/2014;number=1098";

struct WinTrnsNoTest : ::testing::Test {
    WinTrnsNoTest() {
        t.app.sys.desktop = desktop.get();
        for (const char* name : {"Intuit Product Invoice", "Custom Estimate", "Custom S.O.",
                                 "Custom Sales Receipt", "Custom Purchase Order"})
            t.app.qb.templates.push_back({name, "", "", true});
    }
    std::vector<std::string> Prompts() const {
        std::vector<std::string> r;
        for (const auto& p : t.prompter.shown) r.push_back(p.text);
        return r;
    }

    std::unique_ptr<Desktop> desktop = MakeWin32Desktop();
    test::TestApp t;
};

TEST_F(WinTrnsNoTest, ReadsTheOpenInvoiceByKeystrokesAndTheClipboard) {
    FakeQbProgram qb({"--company", kCompany, "--version", "pro2014", "--window", kInvoice});
    ASSERT_NE(qb.main(), nullptr);
    EXPECT_EQ(GetTrnsNo(t.app), "1098");
    const ScreenState& s = t.app.screen;
    EXPECT_EQ(s.customerName, "Abercrombie, Kristy:Family Room");
    EXPECT_EQ(s.trnsDate, "12/15/2014");
    EXPECT_EQ(s.templateName, "Intuit Product Invoice");
    EXPECT_EQ(s.qbYear, "2014");
    EXPECT_EQ(s.qbAppTitle, kCompany);
    EXPECT_EQ(s.chosenKind, TrnsKind::Invoice);
    EXPECT_TRUE(Prompts().empty()) << Prompts()[0];
}

TEST_F(WinTrnsNoTest, ReadsTheHeaderByMessagesWithoutTouchingTheClipboard) {
    // The keys go to the active window, the one opened last.
    FakeQbProgram qb({"--company", kCompany, "--version", "enterprise18", "--window",
                      "purchaseorder;customer=Perry Windows;number=6235", "--window",
                      "salesreceipt;customer=Cash Customer;template=Custom Sales Receipt;"
                      "date=09/10/2018;number=3003"});
    ASSERT_NE(qb.main(), nullptr);
    t.app.screen.messageMode = true;
    ASSERT_TRUE(desktop->ClearClipboard());
    // An open purchase order beside one sales receipt does not count as a second kind.
    EXPECT_EQ(GetTrnsNo(t.app), "3003");
    EXPECT_EQ(t.app.screen.customerName, "Cash Customer");
    EXPECT_EQ(t.app.screen.trnsDate, "09/10/2018");
    EXPECT_EQ(t.app.screen.qbYear, "2018");
    EXPECT_EQ(t.app.screen.chosenKind, TrnsKind::SalesReceipt);
    EXPECT_TRUE(Prompts().empty()) << Prompts()[0];
    // No copy keystroke went out in message mode.
    EXPECT_EQ(desktop->GetClipboardText(), "");
}

TEST_F(WinTrnsNoTest, OldVersionWithTheDateTwoFieldsAfterTheTemplate) {
    FakeQbProgram qb({"--company", "Rock Castle", "--version", "old", "--window",
                      "estimate;customer=Baker's Professional;template=Custom Estimate;"
                      "extra=UPS;date=11/02/1998;number=612"});
    ASSERT_NE(qb.main(), nullptr);
    EXPECT_EQ(GetTrnsNo(t.app), "612");
    EXPECT_EQ(t.app.screen.qbYear, "1999");
    EXPECT_EQ(t.app.screen.custFieldKey, "c");
    EXPECT_EQ(t.app.screen.customerName, "Baker's Professional");
    EXPECT_EQ(t.app.screen.dateIndex, 4);
    EXPECT_TRUE(Prompts().empty()) << Prompts()[0];
}

TEST_F(WinTrnsNoTest, TwoKindsOpenOrAMaximizedWindowAreRefused) {
    {
        FakeQbProgram qb({"--company", kCompany, "--window", kInvoice, "--window",
                          "salesorder;customer=Cook, Brian;template=Custom S.O.;"
                          "date=12/20/2014;number=7"});
        ASSERT_NE(qb.main(), nullptr);
        EXPECT_EQ(GetTrnsNo(t.app), kTrnsSeveralKinds);
        EXPECT_EQ(Prompts(), std::vector<std::string>{kMsgMultipleScreens});
    }
    t.prompter.shown.clear();
    FakeQbProgram qb({"--company", kCompany, "--window", std::string(kInvoice) + ";maximized"});
    ASSERT_NE(qb.main(), nullptr);
    EXPECT_EQ(GetTrnsNo(t.app), kTrnsMaximized);
    EXPECT_EQ(Prompts(), std::vector<std::string>{kMsgFullScreen});
}

// The lines of a queried invoice listed again as new lines in reverse order, as a modify.
std::string ReversedLinesMod(pugi::xml_node invoice) {
    std::string lines;
    for (pugi::xml_node l : invoice.children("InvoiceLineRet")) {
        lines = "<InvoiceLineMod><TxnLineID>-1</TxnLineID><ItemRef><FullName>" +
                std::string(l.child("ItemRef").child_value("FullName")) +
                "</FullName></ItemRef><Desc>" + l.child_value("Desc") + "</Desc><Quantity>" +
                l.child_value("Quantity") + "</Quantity><Rate>" + l.child_value("Rate") +
                "</Rate><Amount>" + l.child_value("Amount") +
                "</Amount><SalesTaxCodeRef><FullName>" +
                l.child("SalesTaxCodeRef").child_value("FullName") +
                "</FullName></SalesTaxCodeRef></InvoiceLineMod>" + lines;
    }
    return std::string("<InvoiceModRq><InvoiceMod><TxnID>") + invoice.child_value("TxnID") +
           "</TxnID><EditSequence>" + invoice.child_value("EditSequence") + "</EditSequence>" +
           lines + "</InvoiceMod></InvoiceModRq>";
}

TEST_F(WinTrnsNoTest, ACompanyFilesTransactionIsShownAndShownAgainWhenDisplayed) {
    test::TempDir dir;
    const std::string company = test::CopySampleCompany(dir.path());
    test::QbComRegistration server(company);
    ASSERT_TRUE(server.ok());
    FakeQbProgram qb({"--company-file", company, "--open", "invoice:3001"});
    ASSERT_NE(qb.main(), nullptr);
    EXPECT_EQ(GetTrnsNo(t.app), "3001");
    EXPECT_EQ(t.app.screen.customerName, "Baker Hardware:Store 12");
    EXPECT_EQ(t.app.screen.trnsDate, "03/04/2024");
    EXPECT_EQ(t.app.screen.qbAppTitle, "Pelmark Sample Supply Co.");
    const std::vector<std::string> before{"Widget", "Bracket 2in", "Labor", "Freight"};
    EXPECT_EQ(FakeQbProgram::ShownItems(qb.TrnsWindow("Create Invoices")), before);
    test::TakeScreenshot("fakeqb-company-invoice-before");

    std::string response;
    qb::TransportResult r = test::AskThroughCom(
        "<InvoiceQueryRq><RefNumber>3001</RefNumber><IncludeLineItems>true</IncludeLineItems>"
        "</InvoiceQueryRq>",
        &response);
    ASSERT_TRUE(r.ok) << r.message;
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(response.c_str()));
    pugi::xml_node invoice = doc.select_node("//InvoiceRet").node();
    r = test::AskThroughCom(ReversedLinesMod(invoice) +
                                "<TxnDisplayModRq><TxnDisplayModType>Invoice</TxnDisplayModType>"
                                "<TxnID>" +
                                invoice.child_value("TxnID") + "</TxnID></TxnDisplayModRq>",
                            &response);
    ASSERT_TRUE(r.ok) << r.message;
    ASSERT_EQ(response.find("statusSeverity=\"Error\""), std::string::npos) << response;

    const std::vector<std::string> after(before.rbegin(), before.rend());
    EXPECT_TRUE(test::WaitUntil(
        [&] { return FakeQbProgram::ShownItems(qb.TrnsWindow("Create Invoices")) == after; },
        5000));
    EXPECT_EQ(FakeQbProgram::ShownItems(qb.TrnsWindow("Create Invoices")), after);
    test::TakeScreenshot("fakeqb-company-invoice-after");
}

}  // namespace
}  // namespace pelmark::screen
