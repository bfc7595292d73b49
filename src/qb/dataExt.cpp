// Custom fields (data extensions): their definitions, and writing, changing and deleting their
// values on a transaction or one of its lines.
#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {

namespace {

std::string Args(const DataExtOptions& o) {
    return o.ownerID + "," + o.value + "," + o.fieldName + "," + o.txnID + "," + o.kind + "," +
           o.lineID + "," + BoolText(o.fallBackToMod) + "," + BoolText(o.deleteWhenEmpty);
}

// A line field needs TxnLineID in DataExtAdd/Mod/Del, which qbXML has from 3.0 on.
bool LineFieldPossible(App& app, const DataExtOptions& o, const char* label) {
    if (o.lineID.empty() || app.qb.lineCustomFieldsSupported) return true;
    DebugLog(app,
             std::string(label) + " line custom fields not supported in qbXML " +
                 app.qb.requestMajorVersion + "." + app.qb.requestMinorVersion,
             1);
    return false;
}

// The custom-field request set, cleared, holding one new request `requestName`.
Node* StartRequest(App& app, const char* requestName, const char* aggregate) {
    MsgSetRequest* set = RequestSet(app, kRsDataExt);
    if (!set) return nullptr;
    set->ClearRequests();
    return &set->Append(requestName).Child(aggregate);
}

void FillRequest(Node& ext, const DataExtOptions& o, bool withValue) {
    std::string ownerID = o.ownerID, name = o.fieldName, kind = o.kind, txnID = o.txnID;
    std::string lineID = o.lineID, value = o.value;
    SetFieldValue(ext, "OwnerID", ownerID);
    SetFieldValue(ext, "DataExtName", name);
    SetFieldValue(ext, "TxnDataExtType", kind);
    SetFieldValue(ext, "TxnID", txnID);
    SetFieldValue(ext, "TxnLineID", lineID);
    // An empty value is sent as it is: QuickBooks, not the program, says whether it may stand.
    if (withValue) SetFieldValue(ext, "DataExtValue", value, {.allowEmpty = true});
}

// Builds one DataExtAdd or DataExtMod request for the value and sends it; nothing when the
// request could not be made (a line field before qbXML 3.0, no request set).
std::optional<DoRequestResult> SendValue(App& app, const DataExtOptions& o, const char* request,
                                         const char* aggregate, const char* label,
                                         bool showErrors) {
    if (!LineFieldPossible(app, o, label)) return std::nullopt;
    Node* ext = StartRequest(app, request, aggregate);
    if (!ext) return std::nullopt;
    FillRequest(*ext, o, true);
    DoRequestOptions send;
    send.callerLabel = label;
    send.request = RequestSet(app, kRsDataExt);
    send.showErrors = showErrors;
    return DoRequest(app, send);
}

// The modify an add falls back on, once: a refusal of it is reported.
bool ModTxn(App& app, const DataExtOptions& o) {
    DebugLog(app, "Data Ext Mod Txn Sub " + Args(o), 5);
    std::optional<DoRequestResult> sent =
        SendValue(app, o, "DataExtModRq", "DataExtMod", "Data Ext Mod", true);
    return sent && sent->ok;
}

}  // namespace

bool DataExtAddTxn(App& app, const DataExtOptions& o) {
    DebugLog(app, "Data Ext Add Txn Sub " + Args(o), 5);
    if (!QBOpen(app)) return false;
    if (o.deleteWhenEmpty && o.value.empty()) return DataExtDelTxn(app, o);
    std::optional<DoRequestResult> sent =
        SendValue(app, o, "DataExtAddRq", "DataExtAdd", "Data Ext Add", !o.fallBackToMod);
    if (!sent) return false;
    if (sent->ok || !o.fallBackToMod) return sent->ok;
    // Only an answer from QuickBooks says the field may hold a value already.
    if (sent->statusText.empty()) return false;
    return ModTxn(app, o);
}

bool DataExtAddTxns(App& app, const std::vector<DataExtOptions>& values) {
    DebugLog(app, "Data Ext Add Txns Entered " + std::to_string(values.size()), 5);
    if (values.empty()) return true;
    if (!QBOpen(app)) return false;
    MsgSetRequest* set = RequestSet(app, kRsDataExt);
    if (!set) return false;
    // Every value is tried, so one refused value does not keep the others off their lines.
    const OnError setMode = set->attributes.onError;
    set->attributes.onError = OnError::continueOnError;
    // Two rounds at most: the adds and deletes, then as modifies the adds QuickBooks refused
    // because the line holds a value already (one its item gave the new line).
    std::vector<const DataExtOptions*> round;
    for (const DataExtOptions& o : values)
        if (LineFieldPossible(app, o, "Data Ext Add")) round.push_back(&o);
    bool ok = true;
    for (const char* verb : {"Add", "Mod"}) {
        if (round.empty()) break;
        const std::string label = std::string("Data Ext ") + verb;
        set->ClearRequests();
        try {
            for (const DataExtOptions* o : round) {
                const bool del = o->deleteWhenEmpty && o->value.empty();
                const std::string request = del ? "DataExtDel" : "DataExt" + std::string(verb);
                FillRequest(set->Append(request + "Rq").Child(request), *o, !del);
            }
        } catch (const QbxmlError& e) {
            set->attributes.onError = setMode;
            ReportError(app, "INFO", label, kErrBadRequest, e.what());
            return false;
        }
        DoRequestOptions send;
        send.callerLabel = label;
        send.request = set;
        send.showErrors = false;
        DoRequestResult sent = DoRequest(app, send);
        if (!sent.responseSet) {  // nothing came back; DoRequest has reported it
            ok = false;
            break;
        }
        std::vector<const DataExtOptions*> again;
        std::string refused;
        const std::size_t answered = sent.responseSet->ResponseList().Count();
        for (std::size_t i = 0; i < round.size(); ++i) {
            Response r = i < answered ? sent.responseSet->ResponseList().GetAt(i) : Response();
            if (!r.IsNull() && r.StatusCode() == kStatusOK) continue;
            const bool added = std::string(verb) == "Add" && !round[i]->value.empty();
            if (!r.IsNull() && added && round[i]->fallBackToMod) {
                again.push_back(round[i]);
            } else {
                refused += r.IsNull() ? " QuickBooks did not answer"
                                      : " Status: Code = " + std::to_string(r.StatusCode()) +
                                            ", Message = " + r.StatusMessage();
            }
        }
        if (!refused.empty()) {
            ok = false;
            ReportRequestFailure(app, label, refused);
        }
        round = std::move(again);
    }
    set->attributes.onError = setMode;
    return ok;
}

bool DataExtDelTxn(App& app, const DataExtOptions& o) {
    DebugLog(app,
             "Data Ext Del Txn Sub " + o.ownerID + "," + o.fieldName + "," + o.txnID + "," +
                 o.kind + "," + o.lineID,
             5);
    if (!QBOpen(app)) return false;
    if (!LineFieldPossible(app, o, "Data Ext Del")) return false;
    Node* ext = StartRequest(app, "DataExtDelRq", "DataExtDel");
    if (!ext) return false;
    FillRequest(*ext, o, false);
    DoRequestOptions send;
    send.callerLabel = "Data Ext Del";
    send.request = RequestSet(app, kRsDataExt);
    return DoRequest(app, send).ok;
}

void FillDataExts(App& app, const ResponseSet& responseSet) {
    DebugLog(app, "Get Data Extentions Entered ", 5);
    QbState& qb = app.qb;
    qb.dataExtDefs.clear();
    Response response = responseSet.ResponseList().GetAt(0);
    if (response.IsNull() || !response.HasStatus()) {
        DebugLog(app,
                 "FillDataExts unexpexcted Error - the custom-field definitions came back "
                 "without a status",
                 1);
        return;
    }
    const int code = response.StatusCode();
    if (code != kStatusOK && code != kStatusNoMatch) {
        DebugLog(app,
                 "FillDataExts unexpexcted Error - " + std::to_string(code) + " " +
                     response.StatusMessage(),
                 1);
        return;
    }
    DebugLog(app, "Get Data Extentions Continue ", 5);
    View detail = response.Detail();
    std::vector<View> rets = detail.Name() == "DataExtDefRet" ? std::vector<View>{detail}
                                                              : detail.Children("DataExtDefRet");
    for (const View& ret : rets) {
        DataExtDef def;
        def.ownerID = ret.GetValue("OwnerID");
        def.name = ret.GetValue("DataExtName");
        def.type = ret.GetValue("DataExtType");
        for (const View& to : ret.Children("AssignToObject"))
            def.assignToObject.push_back(to.GetValue());
        qb.dataExtDefs.push_back(std::move(def));
    }
    DebugLog(app, "Get Data Extentions Exit ", 5);
}

}  // namespace pelmark::qb
