// Finds where the program runs, which Windows it runs on and where its data lives, and makes
// the folders that are missing.
#include "app/folders.h"

#include <initializer_list>
#include <set>
#include <vector>

#include "app/context.h"
#include "app/logs.h"
#include "app/registry.h"
#include "app/text.h"

namespace pelmark {

const std::array<const char*, 12> kMonthNames = {"January",   "February", "March",    "April",
                                                 "May",       "June",     "July",     "August",
                                                 "September", "October",  "November", "December"};

#ifdef _WIN32
const char kPathSep = '\\';
#else
const char kPathSep = '/';
#endif

namespace {

constexpr const char* kCompany = "Corvalt";
constexpr const char* kProduct = "Pelmark";
constexpr const char* kDefaultCompanyProgram = "C:\\Program Files\\Corvalt\\";
constexpr const char* kWindowsKey = "Software\\Microsoft\\Windows NT\\CurrentVersion\\";
constexpr const char* kIntlKey = "Control Panel\\International";

// Read in this order; "USEsssRPROFILE" is a name that is normally unset, read as it stands.
constexpr const char* kEnvNames[] = {
    "windir",       "HomeDrive",      "HomePath",    "SystemDrive",     "OS",
    "COMPUTERNAME", "USEsssRPROFILE", "USERPROFILE", "ALLUSERSPROFILE", "CommonProgramFiles",
    "ProgramFiles", "ProgramData",    "UserName",    "APPDATA",         "ProgramFiles(x86)",
    "LOCALAPPDATA", "Public"};

bool IsSep(char c) {
    return c == '\\' || c == '/';
}

std::string EnvValue(const App& app, const std::string& name) {
    auto it = app.folders.env.find(name);
    return it == app.folders.env.end() ? std::string() : it->second;
}

// base + each part, every one closed by the separator; empty when base is empty, so a folder
// built from a missing environment value stays empty.
std::string Under(const std::string& base, std::initializer_list<const char*> parts) {
    if (base.empty()) return {};
    std::string path = AddBackslash(base);
    for (const char* part : parts) path += std::string(part) + kPathSep;
    return path;
}

// The folder that holds `path` (without its trailing separator); empty when there is none.
std::string ParentFolder(std::string path) {
    while (!path.empty() && IsSep(path.back())) path.pop_back();
    size_t cut = path.find_last_of("\\/");
    if (cut == std::string::npos || cut == 0) return {};
    return path.substr(0, cut);
}

std::string SharedDocuments(const App& app) {
    std::string profileRoot = ParentFolder(EnvValue(app, "USERPROFILE"));
    if (app.folders.vista) {
        std::string pub = EnvValue(app, "Public");
        if (!pub.empty()) return Under(pub, {"Documents"});
        return Under(profileRoot, {"Public", "Documents"});
    }
    // Before Vista the shared documents live in the "All Users" profile.
    std::string allUsers = EnvValue(app, "ALLUSERSPROFILE");
    if (!allUsers.empty()) return Under(allUsers, {"Documents"});
    return Under(profileRoot, {"All Users", "Documents"});
}

// Makes `folder` and every missing folder above it. Returns false (after tracing) on failure.
bool MakeFolderChain(App& app, const std::string& folder) {
    FileSystem& fs = *app.sys.files;
    std::string path = folder;
    while (path.size() > 1 && IsSep(path.back())) path.pop_back();
    if (fs.IsDirectory(path)) return true;

    // A UNC path (\\server\share\...) cannot make its server or share; start below them.
    size_t pos = 0;
    if (path.size() > 2 && IsSep(path[0]) && IsSep(path[1])) {
        pos = path.find_first_of("\\/", 2);
        if (pos != std::string::npos) pos = path.find_first_of("\\/", pos + 1);
        if (pos == std::string::npos) return false;
    }
    for (;;) {
        size_t next = path.find_first_of("\\/", pos + 1);
        std::string prefix = path.substr(0, next);
        pos = next;
        bool driveRoot = prefix.size() == 2 && prefix[1] == ':';
        if (!prefix.empty() && !driveRoot && !fs.IsDirectory(prefix)) {
            DebugLog(app, "MkDir " + AddBackslash(prefix), 2);
            FileResult r = fs.MakeDir(prefix);
            if (!r.ok()) {
                // Not fatal: the first file opened in this folder reports the failure.
                DebugLog(app, "MkDir failed " + AddBackslash(prefix) + " " + r.error, 1);
                return false;
            }
        }
        if (next == std::string::npos) return true;
    }
}

// Copies the files of the old program folder into the shared data folder. Files that the
// shared folder already holds are kept: the old folder is not emptied, and copying again on
// every start would put old settings over the user's current ones.
void CopyOldFiles(App& app) {
    Folders& f = app.folders;
    FileSystem& fs = *app.sys.files;
    if (f.product.empty() || f.sharedData.empty() || EqualsNoCase(f.product, f.sharedData)) return;
    std::vector<std::string> names = fs.ListFiles(f.product);
    if (names.empty()) return;

    std::vector<std::string> copied;
    for (const std::string& name : names) {
        std::string from = f.product + name, to = f.sharedData + name;
        if (fs.Exists(to)) {
            DebugLog(app, "VistaMsg: keeping " + to, 3);
            continue;
        }
        DebugLog(app, "VistaMsg: copying " + from + " to " + to, 2);
        FileResult r = fs.Copy(from, to);
        if (!r.ok()) {
            DebugLog(app, "VistaMsg: copy failed " + from + " " + r.error, 1);
            continue;
        }
        copied.push_back(name);
    }
    DebugLog(app, "VistaMsg: copying done", 2);
    if (copied.empty()) return;

    // The old program and its backups have no use in the data folder.
    for (const std::string& name : copied) {
        std::string lower = Lower(name);
        if (!EndsWith(lower, ".exe") && !EndsWith(lower, ".bak")) continue;
        FileResult r = fs.Remove(f.sharedData + name);
        DebugLog(app, "VistaMsg: deleting " + f.sharedData + name + (r.ok() ? "" : " " + r.error),
                 r.ok() ? 3 : 1);
    }
    f.movedNote = f.data + kCrLf +
                  "Now using the Shared Documents file below.  Please do not put or change any "
                  "files in Program files but use the folder below instead";
}

}  // namespace

std::string AddBackslash(const std::string& path) {
    if (path.empty() || IsSep(path.back())) return path;
    return path + kPathSep;
}

bool IsVistaOrLater(const std::string& productName, const std::string& currentVersion) {
    if (ContainsNoCase(productName, "VISTA")) return true;
    if (StartsWith(productName, "Windows Server (R) 2008")) return true;
    if (productName.find("Windows 7") != std::string::npos) return true;
    // Windows 8, 10 and 11 name themselves otherwise ("Windows 10 Pro"); their CurrentVersion
    // is 6.2 or 6.3, and their Program Files folder is just as closed to a normal user.
    return LeadingNumber(currentVersion) >= 6.0;
}

void GetOSInfo(App& app) {
    DebugLog(app, "Get OS Info Entered ", 5);
    Folders& f = app.folders;
    Registry& reg = *app.sys.registry;
    f.registeredOwner = RegReadValue(reg, RegRoot::LocalMachine, kWindowsKey, "RegisteredOwner");
    f.registeredOrganization =
        RegReadValue(reg, RegRoot::LocalMachine, kWindowsKey, "RegisteredOrganization");
    f.productName = RegReadValue(reg, RegRoot::LocalMachine, kWindowsKey, "ProductName");
    f.currentVersion = RegReadValue(reg, RegRoot::LocalMachine, kWindowsKey, "CurrentVersion");
    f.shortDateFormat = RegReadValue(reg, RegRoot::CurrentUser, kIntlKey, "sShortDate");

    f.env.clear();
    Environment& env = *app.sys.env;
    for (const char* name : kEnvNames) {
        std::optional<std::string> value = env.Get(name);
        if (value && !value->empty()) {
            f.env[name] = *value;
            DebugLog(app, std::string(name) + "=" + *value, 4);
        } else if (std::string(name) == "SystemDrive") {
            DebugLog(app, "SystemDrive=SystemDrive", 4);
        }
    }
    f.vista = IsVistaOrLater(f.productName, f.currentVersion);
}

void CommonHouseKeeper(App& app, const HouseKeeperOptions& options) {
    DebugLog(app, "Common House Keeper Entered ", 5);
    Folders& f = app.folders;
    f.companyProgram = kDefaultCompanyProgram;
    f.product = f.companyProgram + kProduct + "\\";
    // A data folder given by the caller is taken at once, so that the traces below already go
    // to the debug log there.
    f.data = options.dataFolder.empty() ? f.product : AddBackslash(options.dataFolder);
    f.program = AddBackslash(options.programFolder);
    f.exeName = options.exeName;

    // Running from the makers' source tree; the folder may come with forward slashes.
    std::string programUpper = ReplaceAll(Upper(f.program), "/", "\\");
    app.common.developerMode = programUpper.find("\\ACCNT\\CODE\\") != std::string::npos;

    GetOSInfo(app);
    DebugLog(app,
             "Common House Keeper ProdPath=" + f.data + " OS=" + f.productName + " " +
                 f.currentVersion + " Vista=" + (f.vista ? "True" : "False"),
             2);

    f.companyProgram = Under(EnvValue(app, "ProgramFiles"), {kCompany});
    f.product = Under(f.companyProgram, {kProduct});
    f.sharedData = Under(SharedDocuments(app), {kCompany, kProduct});
    f.programData = Under(EnvValue(app, "ProgramData"), {kCompany, kProduct});
    f.userData = Under(EnvValue(app, "APPDATA"), {kCompany, kProduct});
    bool dataKnown = true;
    if (!options.dataFolder.empty()) {
        f.data = AddBackslash(options.dataFolder);
    } else {
        std::string usual = f.vista ? f.sharedData : f.product;
        // Without the environment the folder cannot be built: the default stays, and is not
        // made, since off Windows it would be a strange folder in the working directory.
        dataKnown = !usual.empty();
        if (dataKnown) f.data = usual;
    }

    // On Vista and later the folders under Program Files are not made: a normal user may not
    // write there, and a 32-bit program without a manifest would be quietly redirected into
    // the VirtualStore instead.
    std::vector<std::string> wanted;
    if (!f.vista) wanted.insert(wanted.end(), {f.companyProgram, f.product});
    wanted.insert(wanted.end(), {f.sharedData, f.programData, f.userData});
    if (dataKnown) wanted.insert(wanted.end(), {f.data, f.data + "Tables" + kPathSep});
    std::set<std::string> done;
    for (const std::string& folder : wanted) {
        if (folder.empty() || !done.insert(Upper(folder)).second) continue;
        MakeFolderChain(app, folder);
    }

    // A data folder that cannot be written would lose the logs and the journal that Undo
    // needs; the user hears it now, and the run refuses to modify anything.
    f.dataWritable = true;
    if (dataKnown) {
        const std::string probe = f.data + "Pelmark.write-test";
        if (FileResult w = app.sys.files->WriteAll(probe, "x"); !w.ok()) {
            f.dataWritable = false;
            ShowMessage(app, "The data folder " + f.data + " cannot be written (" + w.error +
                                 "): there will be no logs and no journal, so Pelmark will not "
                                 "sort until the folder can be written.");
        } else {
            app.sys.files->Remove(probe);
        }
    }

    GetIniFFN(app, "CM", options.copyOldFiles);
    DebugLog(app, "Common House Keeper - Prod Path=" + f.data, 2);
}

std::string GetIniFFN(App& app, const std::string& formName, bool copyOldFiles) {
    DebugLog(app, "Get INI FFN Entered " + formName, 5);
    Folders& f = app.folders;
    std::string ffn = f.data + "Pelmark.ini";
    if (app.frmMain.Checked("chkIniInUserAppData") && !f.userData.empty())
        ffn = f.userData + "Pelmark.ini";

    if (f.vista) {
        DebugLog(app,
                 "VistaMsg: checking " + f.sharedData + kCrLf +
                     "AllUsersPr=" + EnvValue(app, "ALLUSERSPROFILE"),
                 3);
        if (copyOldFiles) CopyOldFiles(app);
        DebugLog(app, "VistaMsg: INIFFN=" + ffn, 3);
    }

    f.iniFFN = ffn;
    app.settings.path = ffn;
    app.settings.tempPath = ffn.substr(0, ffn.size() - 4) + ".ino";
    DebugLog(app, "Get INI FFN Exit ", 5);
    return ffn;
}

}  // namespace pelmark
