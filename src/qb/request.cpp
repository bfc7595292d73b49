// The one path by which requests reach QuickBooks and their status is judged, and the field
// helpers every request builder and response reader uses.
#include <cstdio>
#include <cstring>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {

namespace {

SendResult Send(App& app, std::string xml) {
    SendResult r;
    r.requestXml = std::move(xml);
    QbState& qb = app.qb;
    QbTransport* transport = app.sys.qbTransport;
    if (!transport || !qb.connectionOpen || !qb.sessionBegun) {
        r.error = kErrNoSession;
        r.description = "there is no open session with QuickBooks";
        return r;
    }
    std::string response;
    ++qb.roundTrips;
    TransportResult sent = transport->ProcessRequest(qb.ticket, r.requestXml, &response);
    if (!sent.ok) {
        QBCloseAfterFailure(app);
        r.error = sent.hresult;
        r.description =
            sent.message.empty() ? DescribeHresult("ProcessRequest", sent.hresult) : sent.message;
        return r;
    }
    r.responseText = std::move(response);
    ResponseParseResult parsed = ParseResponseSet(r.responseText);
    if (!parsed.ok()) {
        r.error = kErrBadResponse;
        r.description = "QuickBooks sent an answer that cannot be read: " + parsed.description;
        return r;
    }
    r.responseSet = std::move(parsed.set);
    r.ok = true;
    return r;
}

void AppendStatus(std::string& statusText, int code, const std::string& message,
                  const std::string& severity) {
    statusText += " Status: Code = " + std::to_string(code) + ", Message = " + message +
                  ", Severity = " + severity + kCrLf;
}

// Keeps the returned transaction of a response of one of the four kinds and, when asked,
// collects its lines. A query's answer holds its transactions in a list; the first is kept.
void KeepReturnedTxn(App& app, const Response& response) {
    const std::string type = response.TypeName();
    // "InvoiceQueryRq" answers with "InvoiceQueryRs".
    auto answers = [&](const char* request) {
        return request && type.size() > 2 &&
               type.compare(0, type.size() - 2, request, std::strlen(request) - 2) == 0 &&
               type.ends_with("Rs");
    };
    for (TxnKind kind :
         {TxnKind::Invoice, TxnKind::SalesOrder, TxnKind::SalesReceipt, TxnKind::Estimate}) {
        const TxnKindInfo& k = KindInfo(kind);
        if (!answers(k.queryRq) && !answers(k.modRq)) continue;
        View detail = response.Detail();
        View ret = detail.Name() == k.retName ? detail : detail.Child(k.retName);
        if (ret.IsNull()) return;
        app.qb.*k.ret = ret;
        return;
    }
    if (response.Type() == kRtUnknown)
        DebugLog(app, "qb Do Request unknown response type " + response.TypeName(), 3);
}

}  // namespace

std::string ErrNumberText(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(number));
    return text;
}

void ReportError(App& app, const std::string& level, const std::string& label, uint32_t number,
                 const std::string& description) {
    std::string text = label + " Err=" + ErrNumberText(number) + " " + description;
    DebugLog(app, text, 1);
    ContinueOrTerminate(app, level + "\t" + text);
}

void ReportRequestFailure(App& app, const std::string& callerLabel, const std::string& statusText) {
    ContinueOrTerminate(app, "INFO\t" + callerLabel + "\t" + statusText);
}

SendResult DoRequests(App& app, const MsgSetRequest& request) {
    std::string xml;
    try {
        xml = request.ToXMLString();
    } catch (const QbxmlError& e) {
        SendResult r;
        r.error = kErrBadRequest;
        r.description = std::string("the request cannot be written: ") + e.what();
        return r;
    }
    return Send(app, std::move(xml));
}

DoRequestResult DoRequest(App& app, const DoRequestOptions& options) {
    DebugLog(app, "qb Do Request Entered ", 5);
    QbState& qb = app.qb;
    DoRequestResult result;
    if (options.clearStoredError) qb.storedErrorText.clear();

    SendResult sent;
    std::size_t requestCount = 0;
    if (MsgSetRequest* set = options.request ? options.request : RequestSet(app)) {
        requestCount = set->Count();
        sent = DoRequests(app, *set);
    } else {
        sent.error = kErrNoSession;
        sent.description = "there is no request set: QuickBooks has not been opened";
    }

    if (!sent.ok) {
        // Whatever status an earlier request left must not be taken for this one's.
        result.ok = false;
        qb.lastStatusCode = kNoStatus;
        qb.lastStatusMessage = sent.description;
        if (!sent.responseText.empty()) DebugLog(app, "ResponseXML " + sent.responseText, 5);
        if (!sent.requestXml.empty()) DebugLog(app, "RequestXML " + sent.requestXml, 5);
        ReportError(app, "INFO", "qb Do Request", sent.error, sent.description);
        return result;
    }

    if (!options.keepOwnResponse) qb.lastResponseSet = sent.responseSet;
    result.responseSet = sent.responseSet;

    bool failed = false;
    const ResponseList& list = sent.responseSet.ResponseList();
    for (std::size_t i = 0; i < list.Count(); ++i) {
        Response response = list.GetAt(i);
        qb.currentResponse = response;
        int code = response.StatusCode();
        std::string severity = response.StatusSeverity();
        std::string message = response.HasStatus()
                                  ? response.StatusMessage()
                                  : "<" + response.TypeName() + "> came back without a status";
        AppendStatus(result.statusText, code, message, severity);
        qb.lastStatusCode = code;
        qb.lastStatusMessage = message;
        // A warning with a non-zero code fails too: only "Info" lets a non-zero code pass.
        if (code != kStatusOK && severity != "Info") {
            failed = true;
            break;
        }
        View detail = response.Detail();
        if (detail.Has("EditSequence")) {
            qb.lastEditSequence = detail.GetValue("EditSequence");
            result.editSequence = qb.lastEditSequence;
        }
        if (detail.Has("TxnID")) qb.lastTxnID = detail.GetValue("TxnID");
        if (detail.Has("CustomerRef/ListID"))
            result.customerListID = detail.GetValue("CustomerRef/ListID");
        KeepReturnedTxn(app, response);
    }
    if (!failed && list.Count() < requestCount) {
        std::string message = "QuickBooks answered " + std::to_string(list.Count()) + " of the " +
                              std::to_string(requestCount) + " requests sent";
        AppendStatus(result.statusText, kNoStatus, message, "Error");
        qb.lastStatusCode = kNoStatus;
        qb.lastStatusMessage = message;
        failed = true;
    }
    if (!failed) return result;

    result.ok = false;
    DebugLog(app, result.statusText, 5);
    DebugLog(app, "ResponseXML " + sent.responseSet.ToXMLString(), 5);
    DebugLog(app, "RequestXML " + sent.requestXml, 5);
    if (options.showErrors) ReportRequestFailure(app, options.callerLabel, result.statusText);
    return result;
}

void SetFieldValue(Field& field, std::string& value, SetFieldOptions options) {
    if (!options.allowEmpty && value.empty()) return;
    try {
        const int max = field.GetMaxLength();
        if (max > 0 && CharCount(value) > static_cast<std::size_t>(max))
            value = LeftChars(value, static_cast<std::size_t>(max));
        if (value.empty()) {
            field.SetEmpty();
            return;
        }
        if (options.convertLineFeeds && value.find('\n') != std::string::npos) {
            // QuickBooks reads the two characters \l in a text field as a line break.
            std::string converted = ReplaceAll(value, "\n", "\\l");
            if (max > 0 && CharCount(converted) > static_cast<std::size_t>(max)) {
                // Each break now takes two characters; a cut through the last one leaves "\".
                std::string cut = LeftChars(converted, static_cast<std::size_t>(max));
                if (!cut.empty() && cut.back() == '\\' && converted[cut.size()] == 'l')
                    cut.pop_back();
                converted = cut;
            }
            field.SetValue(converted);
            return;
        }
        field.SetValue(value);
    } catch (const QbxmlError&) {
        // A value the field cannot take leaves it unset; QuickBooks names what is missing.
    }
}

void SetFieldValue(Node& parent, std::string_view path, std::string& value,
                   SetFieldOptions options) {
    if (!options.allowEmpty && value.empty()) return;
    try {
        SetFieldValue(parent.Field(path), value, options);
    } catch (const QbxmlError&) {
        // No such field in this request or version.
    }
}

std::string GetFieldString(const View& parent, std::string_view path, bool asString) {
    View field = parent.Child(path);
    if (field.IsNull()) return "";
    return asString ? field.GetAsString() : field.GetValue();
}

std::string GetRefFullName(const View& ref) {
    return GetFieldString(ref, "FullName");
}

void AddIfNotEmpty(Node& parent, std::string_view name, const std::string& value) {
    if (value.empty()) return;
    try {
        parent.Append(name).SetValue(value);
    } catch (const QbxmlError&) {
        // Not a list of this request; nothing is added.
    }
}

bool SalesCommonModSub(App& app, Node& mod, const SalesModHead& head) {
    DebugLog(app, "Sales Common Mod Sub Entered ", 5);
    try {
        mod.Field("TxnID").SetValue(head.txnID);
        mod.Field("EditSequence").SetValue(head.editSequence);
        // EstimateMod has no ShipMethodRef in qbXML 7.0.
        if (mod.Supports("ShipMethodRef")) {
            std::string shipMethod = head.shipMethod;
            SetFieldValue(mod, "ShipMethodRef/FullName", shipMethod);
        }
    } catch (const QbxmlError& e) {
        ReportError(app, "INFO", "Sales Common Mod Sub", kErrBadRequest, e.what());
        return false;
    }
    return true;
}

}  // namespace pelmark::qb
