// The auxiliary forms' texts and rules: splash labels, the agreement file, the About box, the
// system information program, folder links and the support page.
#include "ui/auxForms.h"

#include <set>

#include "app/context.h"
#include "app/logs.h"
#include "app/registry.h"
#include "app/text.h"
#include "app/version.h"

namespace pelmark::ui {
namespace {

constexpr const char* kMsInfoKey = "SOFTWARE\\Microsoft\\Shared Tools\\MSINFO";
constexpr const char* kToolsLocationKey = "SOFTWARE\\Microsoft\\Shared Tools Location";

// The folder that holds the settings and logs on this Windows when nothing overrides it.
std::string NormalDataFolder(const Folders& f) {
    return f.vista ? f.sharedData : f.product;
}

std::string YesNo(bool b) {
    return b ? "True" : "False";
}

std::string OrNone(const std::string& s) {
    return s.empty() ? "(none)" : s;
}

// Starts one command; a failure is traced and, unless the caller reports it its own way,
// shown to the user.
bool Launch(App& app, const LaunchCommand& command, bool tellUser) {
    std::string line =
        command.target + (command.parameters.empty() ? "" : " ") + command.parameters;
    DebugLog(app, "Launch " + line, 3);
    LaunchResult r = app.sys.launcher ? app.sys.launcher->Open(command.target, command.parameters)
                                      : LaunchResult{false, "no launcher for " + line};
    if (r.ok) return true;
    DebugLog(app, "Launch failed " + r.error, 1);
    if (tellUser) ShowMessage(app, "Could not start " + line + kCrLf + r.error, kMbExclamation);
    return false;
}

}  // namespace

SplashTexts MakeSplashTexts(const App& app) {
    const Folders& f = app.folders;
    SplashTexts t;
    t.productName = std::string(kProductName) + " Bld" + std::to_string(kVersionRevision);
    t.company = kCompanyName;
    t.platform = "Windows 2003, XP";
    if (IsVistaOrLater(f.productName, f.currentVersion)) t.platform += ", VISTA, 2008, Windows 7";
    t.workingFolder = f.data;
    return t;
}

std::vector<std::string> AgreementFileNames(const App& app) {
    const std::string name = std::string("EUA") + kAgreementSuffix + ".txt";
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const std::string& folder : {app.folders.program, app.folders.data}) {
        if (folder.empty()) continue;
        std::string path = AddBackslash(folder) + name;
        if (seen.insert(Upper(path)).second) names.push_back(path);
    }
    return names;
}

AgreementText LoadAgreement(App& app) {
    DebugLog(app, "frm EUA Load Entered ", 5);
    AgreementText result;
    std::vector<std::string> names = AgreementFileNames(app);
    for (const std::string& name : names) {
        std::optional<std::string> data = app.sys.files->ReadAll(name);
        if (!data) continue;
        result.found = true;
        result.fileName = name;
        DebugLog(app, kEuaFileFound + name, 2);
        // The edit box breaks lines only at CR LF, whatever the file used.
        for (const std::string& line : SplitLines(*data)) result.text += line + kCrLf;
        return result;
    }
    result.fileName = names.empty() ? std::string("EUA") + kAgreementSuffix + ".txt" : names[0];
    DebugLog(app, kEuaFileNotFound + result.fileName, 1);
    return result;
}

void AcceptAgreement(App& app) {
    DebugLog(app, "frm EUA Accepted ", 2);
    if (Control* accepted = app.frmMain.Find("chkEUAAccepted")) accepted->value = 1;
    SaveSettings(app, {&app.frmMain});
}

std::string FormatKilobytes(std::uintmax_t bytes) {
    std::string digits = std::to_string((bytes + 512) / 1024);
    std::string out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i != 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out + "K";
}

std::string TransactionLogName(const std::string& companyFile) {
    size_t dot = companyFile.find_last_of('.');
    size_t sep = companyFile.find_last_of("\\/");
    if (dot == std::string::npos || (sep != std::string::npos && dot < sep))
        return companyFile + ".TLG";
    return companyFile.substr(0, dot) + ".TLG";
}

AboutTexts MakeAboutTexts(App& app) {
    DebugLog(app, "frm About Load Entered ", 5);
    const Folders& f = app.folders;
    AboutTexts t;
    t.product = kProductName;
    t.caption = "About " + t.product;
    t.version = "Version " + std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) +
                " Build " + std::to_string(kVersionRevision);
    t.contact = {kCompanyName, kProductPageUrl, kSupportEmail};
    t.programFolder = f.program;
    t.workingFolder = f.data;
    const std::string normal = NormalDataFolder(f);
    t.unusualFolder = !normal.empty() && !EqualsNoCase(AddBackslash(f.data), normal);
    if (t.unusualFolder) t.workingFolder += kNotNormalFolder;

    const std::string& qbw = app.qb.companyFileName;
    std::optional<std::uintmax_t> qbwBytes;
    if (!qbw.empty()) qbwBytes = app.sys.files->FileSize(qbw);
    if (!qbwBytes) {
        t.companyFile = kQbFileNotFound;
        DebugLog(app, kQbFileNotFound + (qbw.empty() ? std::string() : " " + qbw), 1);
        return t;
    }
    t.companyFile = qbw;
    struct Sized {
        std::optional<std::uintmax_t> bytes;
        std::uintmax_t largeKB;
        const char* largeText;
        const char* name;
        std::string* line;
        bool* large;
    } files[] = {
        {qbwBytes, kQbwLargeKB, kQbwSizeLarge, "QBW", &t.qbwSize, &t.qbwLarge},
        {app.sys.files->FileSize(TransactionLogName(qbw)), kTlgLargeKB, kTlgSizeLarge, "TLG",
         &t.tlgSize, &t.tlgLarge},
    };
    for (const Sized& s : files) {
        if (!s.bytes) continue;  // QuickBooks makes the log only once the file has changed
        std::string size = FormatKilobytes(*s.bytes);
        *s.large = (*s.bytes + 512) / 1024 > s.largeKB;
        *s.line = *s.large ? s.largeText + size : std::string(s.name) + " Size " + size;
        if (*s.large) DebugLog(app, *s.line, 1);
    }
    return t;
}

std::string ReadMeText() {
    return std::string(kProductName) +
           " puts the lines of the sales transaction open in QuickBooks in the order set in its "
           "main window: invoices, estimates, sales orders and sales receipts." +
           kCrLf + kCrLf +
           "It saves and closes the transaction window, writes every line back in the new "
           "order with its custom fields, and has QuickBooks show the transaction again." +
           kCrLf + kCrLf +
           "Make a backup of your company file before the first sort (File, Back Up Company), "
           "and try the sort levels on a copy of a transaction first.";
}

std::vector<std::string> InternalLines(const App& app) {
    const Folders& f = app.folders;
    const CommonM& c = app.common;
    return {
        "Program: " + f.program + f.exeName,
        "Version: " + VersionText(),
        "Windows: " + OrNone(Trim(f.productName + " " + f.currentVersion)) +
            "  Vista=" + YesNo(f.vista),
        "Data folder: " + OrNone(f.data),
        "Settings file: " + OrNone(f.iniFFN),
        "Debug log: " + OrNone(c.debug.path),
        "Developer mode: " + YesNo(c.developerMode),
        "Errors: " + std::to_string(c.errCounters[0]) +
            "  Warnings: " + std::to_string(c.errCounters[1]),
        "QuickBooks: " + OrNone(app.qb.hostProductName) +
            (app.qb.highestQbxmlVersionText.empty() ? ""
                                                    : "  qbXML " + app.qb.highestQbxmlVersionText),
        "Company file: " + OrNone(app.qb.companyFileName),
        "Session open: " + YesNo(app.qb.sessionOpen),
    };
}

LaunchCommand FolderLinkCommand(const std::string& folder) {
    return {"Explorer.exe", "/e, \"" + folder + "\""};
}

std::string UrlEncode(std::string_view text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                     c == '-' || c == '_' || c == '.' || c == '~';
        if (plain) {
            out += ch;
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
        }
    }
    return out;
}

std::string SupportPageUrl(const App& app) {
    return std::string(kSupportPageUrl) + "?prod=" + UrlEncode(kProductName) +
           "&ver=" + UrlEncode(VersionText()) + "&extra=" + UrlEncode(app.qb.hostProductName);
}

bool OpenFolder(App& app, const std::string& folder) {
    return Launch(app, FolderLinkCommand(folder), true);
}

bool OpenProductPage(App& app) {
    return Launch(app, {kProductPageUrl, ""}, true);
}

// Not beside pelmark.exe itself: on start the program moves the files of its Program Files
// folder into the data folder (older versions kept their settings there).
std::string UserGuidePath(const App& app) {
    return app.folders.program + "Guide" + kPathSep + "user-guide.html";
}

bool OpenUserGuide(App& app) {
    return Launch(app, {UserGuidePath(app), ""}, true);
}

bool OpenSupportPage(App& app) {
    return Launch(app, {SupportPageUrl(app), ""}, true);
}

bool StartSysInfo(App& app) {
    DebugLog(app, "Start Sys Info Entered ", 5);
    Registry& reg = *app.sys.registry;
    std::optional<std::string> program =
        GetKeyValue(reg, RegRoot::LocalMachine, kMsInfoKey, "PATH");
    if (!program || program->empty()) {
        program.reset();
        std::optional<std::string> folder =
            GetKeyValue(reg, RegRoot::LocalMachine, kToolsLocationKey, "MSINFO");
        if (folder && !folder->empty()) {
            // Windows paths: the folder is joined with "\" on every build.
            std::string dir = *folder;
            if (dir.back() == '\\') dir.pop_back();
            std::string exe = dir + "\\MSINFO32.EXE";
            if (app.sys.files->Exists(exe)) program = exe;
        }
    }
    if (program && Launch(app, {*program, ""}, false)) return true;
    ShowMessage(app, kSysInfoUnavailable, kMbOKOnly | kMbInformation);
    return false;
}

}  // namespace pelmark::ui
