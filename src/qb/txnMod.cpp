// The modify request of a sales transaction with its lines re-listed as new lines, and the
// request that asks QuickBooks to display a transaction again.
#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {

namespace {

// "Order Mod not supported " and the window title from its 7th character, as the message box
// has always shown it.
void ReportNoModify(App& app, const TxnKindInfo& k) {
    const std::string title = k.windowTitle;
    ShowMessage(app, "Order Mod not supported " + (title.size() > 6 ? title.substr(6) : ""));
}

KeptMod& KeptSlot(App& app, TxnKind kind) {
    return app.qb.txn.mods[static_cast<std::size_t>(kind)];
}

}  // namespace

bool TxnModSub(App& app, TxnKind kind, const TxnModHead& head) {
    const TxnKindInfo& k = KindInfo(kind);
    const std::string label = std::string(k.modLabel) + " Sub";
    DebugLog(app,
             label + " Entered " + head.txnID + ", " + head.editSequence + ", " + head.shipMethod +
                 ", " + head.templateName,
             5);
    KeptMod& kept = KeptSlot(app, kind);
    kept = {};
    if (!k.modRq) {
        ReportNoModify(app, k);
        return false;
    }
    if (!QBOpen(app)) return false;
    MsgSetRequest& set = *RequestSet(app);
    set.ClearRequests();
    Node* mod = nullptr;
    try {
        Node& request = set.Append(k.modRq);
        mod = &request.Child(k.mod);
        kept = {&set, set.Count() - 1, &request};
    } catch (const QbxmlError& e) {
        // The session's qbXML version has no modify of this kind.
        ReportError(app, "INFO", label, kErrBadRequest, e.what());
        return false;
    }
    std::string templateName = head.templateName;
    SetFieldValue(*mod, "TemplateRef/FullName", templateName);
    SalesModHead common;
    common.txnID = head.txnID;
    common.editSequence = head.editSequence;
    common.shipMethod = head.shipMethod;
    return SalesCommonModSub(app, *mod, common);
}

Node* KeptModify(App& app, TxnKind kind) {
    const TxnKindInfo& k = KindInfo(kind);
    const KeptMod& kept = KeptSlot(app, kind);
    // The set must be the session's live default set before anything in it is looked at: QBClose
    // and QBOpen make the sets again.
    if (!k.modRq || !kept.set || kept.set != RequestSet(app) || kept.index >= kept.set->Count())
        return nullptr;
    Node& request = kept.set->GetAt(kept.index);
    if (&request != kept.request || request.Name() != k.modRq) return nullptr;
    return &request.Child(k.mod);
}

Node* AppendLineObjects(App& app, TxnKind kind, LineObject object, Node* group) {
    const TxnKindInfo& k = KindInfo(kind);
    if (!k.modRq) {
        ReportNoModify(app, k);
        return nullptr;
    }
    try {
        if (group) return &group->Append(k.lineMod);
        if (Node* mod = KeptModify(app, kind))
            return &mod->Append(object == LineObject::Group ? k.groupMod : k.lineMod);
        DebugLog(app, "Append Line Objects: no " + std::string(k.mod) + " is being built", 1);
    } catch (const QbxmlError& e) {
        DebugLog(app, std::string("Append Line Objects: ") + e.what(), 1);
    }
    ShowMessage(app, "Mod failed");
    return nullptr;
}

void SetBlankLine(Node& lineMod) {
    lineMod.Field("TxnLineID").SetValue(-1);
    SetFieldValue(lineMod, "Desc", std::string(), {.allowEmpty = true});
}

void CopyLineFields(Node& lineMod, const TxnLine& row, LineCopyOptions options) {
    if (row.lineType == kLineBlank) {
        SetBlankLine(lineMod);
        return;
    }
    lineMod.Field("TxnLineID").SetValue(-1);
    const bool group = row.IsGroup();
    for (const TxnLineField& f : TxnLineFields()) {
        const char* path = group ? f.groupPath : f.linePath;
        std::string value = row.*f.member;
        if (!f.Copied() || !path || value.empty()) continue;
        // Fields this line of the modify does not have (ServiceDate on an estimate, what only a
        // query returns) are left out by SetFieldValue.
        SetFieldValue(lineMod, path, value, {.convertLineFeeds = options.convertLineFeeds});
    }
}

bool AppendQueriedLine(App& app, TxnKind kind, const std::vector<TxnLine>& table, std::size_t row,
                       LineCopyOptions options) {
    if (row >= table.size()) return false;
    const TxnLine& line = table[row];
    // QuickBooks closes a group itself.
    if (line.IsGroupEnd()) return true;
    Node* mod = AppendLineObjects(app, kind, line.IsGroup() ? LineObject::Group : LineObject::Line);
    if (!mod) return false;
    CopyLineFields(*mod, line, options);
    if (!line.IsGroup()) return true;
    for (std::size_t i = row + 1; i < table.size() && table[i].group == row; ++i) {
        if (table[i].IsGroupEnd()) break;
        Node* member = AppendLineObjects(app, kind, LineObject::Line, mod);
        if (!member) return false;
        CopyLineFields(*member, table[i], options);
    }
    return true;
}

bool AppendBlankLine(App& app, TxnKind kind) {
    Node* line = AppendLineObjects(app, kind);
    if (!line) return false;
    SetBlankLine(*line);
    return true;
}

void TxnDisplayModSub(App& app, TxnKind kind, const std::string& txnID) {
    const TxnKindInfo& k = KindInfo(kind);
    const std::string label = "Txn Display Mod Sub";
    DebugLog(app, label + " Entered " + k.name + ", " + txnID, 5);
    if (kind == TxnKind::None || txnID.empty() || !QBOpen(app)) return;
    MsgSetRequest& set = *RequestSet(app);
    set.ClearRequests();
    try {
        Node& request = set.Append("TxnDisplayModRq");
        request.Field("TxnDisplayModType").SetValue(k.name);
        request.Field("TxnID").SetValue(txnID);
    } catch (const QbxmlError& e) {
        ReportError(app, "ERROR", label, kErrBadRequest, e.what());
        return;
    }
    std::optional<Response> response = SendForFirstResponse(app, set, "ERROR", label);
    if (!response || response->StatusCode() == kStatusOK) return;
    QbState& qb = app.qb;
    qb.storedErrorText =
        "Txn Display Mod Failed  Status: Code = " + std::to_string(response->StatusCode()) +
        ", Message = " + response->StatusMessage() + ", Severity = " + response->StatusSeverity();
    DebugLog(app, qb.storedErrorText, 1);
    ContinueOrTerminate(app, "ERROR\t" + qb.storedErrorText);
}

}  // namespace pelmark::qb
