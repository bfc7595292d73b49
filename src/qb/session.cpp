// The one QuickBooks session of the run: opening it, choosing the qbXML version, reading the
// company, closing it, and the list loading the main form asks for at start.
#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "app/version.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {

namespace {

// A failure of one step of QBOpen, for its error handler.
struct OpenFailure {
    uint32_t number;
    std::string description;
};

// Ends whatever QBOpen began, so that the next QBOpen starts from the connection again.
void EndTransport(App& app) {
    QbState& qb = app.qb;
    QbTransport* transport = app.sys.qbTransport;
    if (transport && qb.sessionBegun) {
        TransportResult r = transport->EndSession(qb.ticket);
        if (!r.ok) DebugLog(app, "QBClose EndSession " + r.message, 1);
    }
    if (transport && qb.connectionOpen) {
        TransportResult r = transport->CloseConnection();
        if (!r.ok) DebugLog(app, "QBClose CloseConnection " + r.message, 1);
    }
    qb.sessionBegun = false;
    qb.connectionOpen = false;
    qb.ticket.clear();
    qb.sessionOpen = false;
}

// Response 0 of a round trip that must succeed; throws OpenFailure otherwise.
Response FirstResponse(const SendResult& sent, const char* what) {
    if (!sent.ok) throw OpenFailure{sent.error, sent.description};
    Response response = sent.responseSet.ResponseList().GetAt(0);
    if (response.IsNull()) {
        throw OpenFailure{kErrBadResponse,
                          std::string("QuickBooks did not answer the ") + what + " query"};
    }
    return response;
}

void ReadHost(App& app) {
    QbState& qb = app.qb;
    MsgSetRequest hostSet("US", 1, 0);
    hostSet.Append("HostQueryRq");
    Response response = FirstResponse(DoRequests(app, hostSet), "host");
    View host = response.Detail();
    if (host.Name() != "HostRet") {
        throw OpenFailure{kErrBadResponse, "QuickBooks did not describe itself (host query: " +
                                               std::to_string(response.StatusCode()) + " " +
                                               response.StatusMessage() + ")"};
    }
    qb.hostProductName = GetFieldString(host, "ProductName");
    qb.hostMajorVersion = GetFieldString(host, "MajorVersion");
    qb.hostMinorVersion = GetFieldString(host, "MinorVersion");
    DebugLog(app,
             "QB Open Host Product Name is " + qb.hostProductName + " V" + qb.hostMajorVersion +
                 "." + qb.hostMinorVersion,
             5);

    qb.highestQbxmlVersion = 0;
    qb.highestQbxmlVersionText.clear();
    for (const View& version : host.Children("SupportedQBXMLVersion")) {
        std::string text = version.GetValue();
        double value = LeadingNumber(text);  // "CA3.0" and the like count as 0
        if (value > qb.highestQbxmlVersion) {
            qb.highestQbxmlVersion = value;
            qb.highestQbxmlVersionText = text;
        }
    }
    if (qb.highestQbxmlVersion < 1)
        throw OpenFailure{kErrBadResponse, "QuickBooks named no qbXML version it accepts"};
}

// Whether the session's version lets a custom field be written on a transaction line. A line
// modify carries no custom fields of its own; they are written with DataExtAdd/DataExtMod
// naming the line's TxnLineID, which qbXML has from 3.0 on. A request the version does not
// know (InvoiceModRq before 2.1) answers the same way: not supported.
bool ProbeLineCustomFields(MsgSetRequest& set) {
    bool supported = true;
    try {
        Node& mod = set.Append("InvoiceModRq").Child("InvoiceMod");
        mod.Field("TxnID").SetValue("abc");
        mod.Field("EditSequence").SetValue("test");
        Node& line = mod.Append("InvoiceLineMod");
        line.Field("TxnLineID").SetValue("-1");
        line.Field("ItemRef/FullName").SetValue("000ItemTest");
        line.Field("Desc").SetValue("test");

        Node& ext = set.Append("DataExtModRq").Child("DataExtMod");
        ext.Field("OwnerID").SetValue(kOwnerUser);
        ext.Field("DataExtName").SetValue("test");
        ext.Field("TxnDataExtType").SetValue("Invoice");
        ext.Field("TxnID").SetValue("abc");
        ext.Field("DataExtValue").SetValue("test");
        if (ext.Supports("TxnLineID")) {
            ext.Field("TxnLineID").SetValue("abc");
        } else {
            supported = false;
        }
    } catch (const QbxmlError& e) {
        if (e.kind() == QbxmlErrorKind::NotInVersion) supported = false;
    }
    set.ClearRequests();
    return supported;
}

// The pay-sales-tax preference, when the company's answer carries the preferences.
std::string PaySalesTax(const ResponseSet& set) {
    const ResponseList& list = set.ResponseList();
    for (std::size_t i = 0; i < list.Count(); ++i) {
        View detail = list.GetAt(i).Detail();
        if (detail.Name() == "PreferencesRet")
            return detail.GetValue("SalesTaxPreferences/PaySalesTax");
    }
    return "";
}

void OpenSteps(App& app, int openMode) {
    QbState& qb = app.qb;
    QbTransport* transport = app.sys.qbTransport;
    if (!transport) throw OpenFailure{kErrNoSession, "no way to reach QuickBooks is set up"};

    TransportResult r = transport->OpenConnection("", qb.appName);
    if (!r.ok) throw OpenFailure{r.hresult, r.message};
    qb.connectionOpen = true;
    std::string ticket;
    r = transport->BeginSession("", openMode, &ticket);
    if (!r.ok) throw OpenFailure{r.hresult, r.message};
    qb.sessionBegun = true;
    qb.ticket = ticket;

    std::string fileName;
    r = transport->GetCurrentCompanyFileName(qb.ticket, &fileName);
    qb.companyFileName = r.ok ? fileName : "";
    DebugLog(app, "QB Open, FFN=" + qb.companyFileName, 5);

    ReadHost(app);
    if (qb.highestQbxmlVersion < 2.1) {
        qb.cannotModifyInvoices = ShowMessage(
            app,
            std::string("This version of QuickBooks does not support Invoice modifications.") +
                kCrLf + "You will have to paste the data into the invoice." + kCrLf +
                "The data will be copied automatically into the clipboard." + kCrLf +
                "So please follow the prompts",
            kMbInformation | kMbOKOnly);
    }

    auto [major, minor] = ChooseRequestVersion(qb.highestQbxmlVersionText);
    qb.requestMajorVersion = major;
    qb.requestMinorVersion = minor;
    // The trace's OE flag is the main form's Estimate option.
    DebugLog(app,
             "QB Opening as " + major + "." + minor +
                 "OE=" + BoolText(app.frmMain.Checked("optEstimate")),
             5);

    const int majorValue = static_cast<int>(LeadingNumber(major));
    const int minorValue = static_cast<int>(LeadingNumber(minor));
    for (auto& set : qb.requestSets) {
        set.emplace("US", majorValue, minorValue);
        set->ClearRequests();
        set->attributes.onError = OnError::stopOnError;
    }

    MsgSetRequest& main = *qb.requestSets[kRsDefault];
    main.Append("CompanyQueryRq");
    // The preferences go in the same round trip, as QuickBooks' own samples send them (a real
    // HostQueryRs, CompanyQueryRs, PreferencesQueryRs answer); PaySalesTax is among them.
    if (main.Supports("PreferencesQueryRq")) main.Append("PreferencesQueryRq");
    SendResult company = DoRequests(app, main);
    Response companyRs = FirstResponse(company, "company");
    qb.lastResponseSet = company.responseSet;
    ParseCompanyQueryRs(app, companyRs, "US");
    qb.paySalesTax = PaySalesTax(company.responseSet);

    main.ClearRequests();
    if (main.Supports("DataExtDefQueryRq")) {
        main.Append("DataExtDefQueryRq").Append("OwnerID").SetValue(kOwnerUser);
        SendResult defs = DoRequests(app, main);
        // The definitions are read with errors ignored: a company without them still sorts.
        if (defs.ok) {
            FillDataExts(app, defs.responseSet);
        } else if (!qb.connectionOpen) {
            throw OpenFailure{defs.error, defs.description};  // QuickBooks went away meanwhile
        } else {
            DebugLog(app, "FillDataExts unexpexcted Error - " + defs.description, 1);
        }
        main.ClearRequests();
    }

    qb.lineCustomFieldsSupported = ProbeLineCustomFields(main);
    DebugLog(app, std::string("QB Open Support LineDE ") + BoolText(qb.lineCustomFieldsSupported),
             5);
    DebugLog(app, "QB Open PaySalesTax=" + qb.paySalesTax, 5);
    main.ClearRequests();
}

}  // namespace

std::string ApplicationName() {
    std::string company = Upper(kCompanyName);
    std::string product = Upper(kProductName);
    if (product.substr(0, company.size()) != company)
        return std::string(kCompanyName) + "'s " + kProductName;
    return kProductName;
}

std::pair<std::string, std::string> ChooseRequestVersion(const std::string& highestText) {
    std::string major = highestText, minor = "0";
    if (std::size_t dot = highestText.find('.'); dot != std::string::npos) {
        major = highestText.substr(0, dot);
        minor = highestText.substr(dot + 1);
    }
    double majorValue = LeadingNumber(major), minorValue = LeadingNumber(minor);
    // The requests are built for qbXML 13.0 at most, the newest reference the message model
    // holds; a newer host answers 13.0 requests with 13.0 elements only.
    if (majorValue > 13 || (majorValue == 13 && minorValue > 0)) return {"13", "0"};
    return {major, minor};
}

MsgSetRequest* RequestSet(App& app, RequestSetId id) {
    auto& set = app.qb.requestSets[id];
    return set ? &*set : nullptr;
}

bool QBOpen(App& app, int openMode) {
    QbState& qb = app.qb;
    qb.appName = ApplicationName();
    if (qb.sessionOpen) return true;
    DebugLog(app, "QB Open Entered ", 5);
    // IncludeRetElement takes the element names of the item Rets as Intuit's reference spells
    // them: the price, cost and preferred vendor are SalesPrice, PurchaseCost and PrefVendorRef.
    qb.itemFieldNames = {"Name",       "FullName",     "ListID",       "EditSequence",
                         "SalesPrice", "PurchaseCost", "PrefVendorRef"};
    try {
        OpenSteps(app, openMode);
    } catch (const OpenFailure& f) {
        // Closed again before the prompt, so that the next SDK use tries once more.
        EndTransport(app);
        ReportError(app, "ERROR", "QB Open", f.number, f.description);
        return false;
    } catch (const QbxmlError& e) {
        EndTransport(app);
        ReportError(app, "ERROR", "QB Open", kErrBadRequest, e.what());
        return false;
    }
    qb.sessionOpen = true;
    if (!qb.closeRegistered) {
        qb.closeRegistered = true;
        app.closeSteps.push_back([&app] { QBClose(app); });
    }
    return true;
}

void QBClose(App& app) {
    DebugLog(app, "QBClose Entered ", 5);
    EndTransport(app);
    app.qb.requestSets[kRsDefault].reset();
    app.qb.requestSets[kRsSecond].reset();
}

void QBCloseAfterFailure(App& app) {
    if (!app.qb.connectionOpen) return;
    DebugLog(app, "QB session ended after a failed request", 3);
    EndTransport(app);
}

void ParseCompanyQueryRs(App& app, const Response& response, const std::string& country) {
    DebugLog(app, "ParseCompanyQueryRs Entered ", 5);
    View company = response.Detail();
    if (company.Name() != "CompanyRet") return;
    DebugLog(app, "Parse Company Ret Entered ", 5);
    CompanyInfo& info = app.qb.company;
    info.name = GetFieldString(company, "CompanyName");
    info.legalName = GetFieldString(company, "LegalCompanyName");
    DebugLog(app, "Opening company " + info.name, 5);
    if (country == "CA") {
        info.state = GetFieldString(company, "Address/Province");
        info.businessNumber = GetFieldString(company, "BusinessNumber");
    } else {
        info.state = GetFieldString(company, "Address/State");
    }
}

bool QBInit(App& app) {
    DebugLog(app, "QB Init Entered ", 5);
    QbState& qb = app.qb;
    const ui::Form& form = app.frmMain;
    const std::string qbName = kQuickBooks;

    app.items.Clear();
    qb.itemsByFullName.clear();

    ShowStatus(app, "Opening " + qbName);
    if (!QBOpen(app)) {
        DebugLog(app, "QB Init QB Open failed ", 1);
        return false;
    }

    ShowStatus(app, "Getting Customers from " + qbName);
    if (!form.Checked("chkBypassCustomerQuery")) {
        DebugLog(app, "QB Init Getting All Customers ", 5);
        CustomerQuerySub(app);
    } else {
        DebugLog(app, "QB Init Bypassed Query Customers ", 5);
        qb.customers.clear();
    }

    DebugLog(app, "QB Init Getting Templates ", 5);
    ShowStatus(app, "Getting Templates from " + qbName);
    std::string hostMajor = qb.hostMajorVersion;
    if (hostMajor.empty() || hostMajor > "17") hostMajor = "17";  // compared as text
    TemplateQuerySub(app, hostMajor);

    ShowStatus(app, "Getting Items from " + qbName);
    app.items.Clear();
    qb.itemsByFullName.clear();
    if (form.Checked("chkUseItemsIIF")) {
        DebugLog(app, "QB Init Items from Items.iif ", 5);
        ReadItemsIIF(app);
        IndexItems(app);
    } else if (form.Checked("chkBypassItemsQuery")) {
        DebugLog(app, "QB Init Bypassed Query Items ", 5);
    } else {
        ItemQuerySub(app, true);
    }
    DebugLog(app, "QB Init Complete ", 5);
    return true;
}

}  // namespace pelmark::qb
