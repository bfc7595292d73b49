// The auxiliary forms: splash, agreement, read-me, internal and about. The portable part builds
// their texts and decides their rules; the Win32 part (auxForms_win.cpp) shows them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pelmark {
struct App;
}

namespace pelmark::ui {

// An owner window, passed as an opaque pointer so that this header needs no <windows.h>.
using WindowHandle = void*;

// Module state of the auxiliary forms.
struct AuxState {
    bool readMeAccepted = false;
    bool internalClosed = false;
    WindowHandle splash = nullptr;
    WindowHandle internal = nullptr;  // frmInternal while it is only hidden (Return)
};

// ---- Texts -------------------------------------------------------------------------------

inline constexpr const char* kProductPageUrl = "https://www.pelmark.example/";
inline constexpr const char* kSupportPageUrl = "https://www.pelmark.example/support/";
inline constexpr const char* kSupportEmail = "support@pelmark.example";
// The agreement file is "EUA" + this suffix + ".txt", shipped beside the program.
inline constexpr const char* kAgreementSuffix = "_Pelmark";
// Above these sizes QuickBooks grows slow with a company file or its transaction log; the
// About form tells the user so support can suggest a condense or a backup.
inline constexpr std::uintmax_t kQbwLargeKB = 1'000'000;
inline constexpr std::uintmax_t kTlgLargeKB = 500'000;

inline constexpr const char* kSplashUnloading = "frm Spash Unloading";
inline constexpr const char* kSplashTerminating = "frm Spash Terminating";
inline constexpr const char* kEuaFileFound = "frm eua = file found ";
inline constexpr const char* kEuaFileNotFound = "frm eua = file not found ";
inline constexpr const char* kNotNormalFolder = " WARNING. This is not the normal folder";
inline constexpr const char* kQbwSizeLarge = "QBW Size is large ";
inline constexpr const char* kTlgSizeLarge = "TLG Size is large ";
inline constexpr const char* kQbFileNotFound = "frm About load - QB file not found";
inline constexpr const char* kSysInfoUnavailable = "System Information Is Unavailable At This Time";

// frmSplash's labels.
struct SplashTexts {
    std::string productName;    // lblProductName: "Pelmark Bld" and the build number
    std::string company;        // lblCompany
    std::string platform;       // lblPlatform
    std::string workingFolder;  // lblWorkingFolder
};
SplashTexts MakeSplashTexts(const App& app);

// frmEUA's text: every line of the agreement file followed by a line break.
struct AgreementText {
    bool found = false;
    std::string fileName;  // the file shown, or the first one looked for
    std::string text;      // Text1
};
// Where the agreement file is looked for: the program folder, then the data folder.
std::vector<std::string> AgreementFileNames(const App& app);
// Reads the first agreement file that exists and traces whether one was found.
AgreementText LoadAgreement(App& app);
// Accept: ticks chkEUAAccepted on the main form and saves the settings, so it is asked once.
void AcceptAgreement(App& app);

// frmAbout's texts.
struct AboutTexts {
    std::string caption;  // "About Pelmark"
    std::string product;
    std::string version;               // "Version 1.0 Build 1"
    std::vector<std::string> contact;  // the maker, its web page and e-mail
    std::string programFolder;         // lblExeFolder
    std::string workingFolder;         // lblWorkingFolder, with the warning when unusual
    bool unusualFolder = false;        // the working folder is not the normal data folder
    std::string companyFile;           // the open company file, or kQbFileNotFound
    std::string qbwSize, tlgSize;      // "QBW Size 12,345K", kQbwSizeLarge + size, or empty
    bool qbwLarge = false, tlgLarge = false;
};
// Builds the texts and traces the large-file and missing-file findings.
AboutTexts MakeAboutTexts(App& app);
// A size in bytes as whole kilobytes, formatted "#,##0K": 1536 bytes is "2K".
std::string FormatKilobytes(std::uintmax_t bytes);
// The company file's transaction log: the same name with the extension .TLG.
std::string TransactionLogName(const std::string& companyFile);

// frmReadMe's notice, and frmInternal's diagnostic lines.
std::string ReadMeText();
std::vector<std::string> InternalLines(const App& app);

// ---- Starting programs and web pages ------------------------------------------------------

struct LaunchCommand {
    std::string target, parameters;
};
// "Explorer.exe" with "/e, " and the folder in double quotation marks: Explorer opens on the
// folder with its tree shown.
LaunchCommand FolderLinkCommand(const std::string& folder);
// The support page with "?prod=", "&ver=" and "&extra=" (the QuickBooks product in use).
std::string SupportPageUrl(const App& app);
// Percent-encodes everything but letters, digits and "-_.~".
std::string UrlEncode(std::string_view text);

// Each traces what it starts; a failure is traced and shown to the user. True when started.
bool OpenFolder(App& app, const std::string& folder);
bool OpenProductPage(App& app);
// The user guide the setup program installs beside the program, in its Guide folder.
std::string UserGuidePath(const App& app);
bool OpenUserGuide(App& app);
bool OpenSupportPage(App& app);
// cmdSysInfo: the MSINFO program named in the registry, or kSysInfoUnavailable.
bool StartSysInfo(App& app);

// ---- Windows only (auxForms_win.cpp) -----------------------------------------------------

// frmSplash: shown while start-up runs, closed by CloseSplash.
void ShowSplash(App& app);
void CloseSplash(App& app);
// frmEUA, modal. False only when the user declined, after which the program ends. True when
// the agreement is (or already was) accepted, and also when no agreement file is found: the
// form then closes at once and the agreement stays not accepted.
bool ShowAgreement(App& app, WindowHandle owner);
// frmReadMe, frmInternal and frmAbout, modal.
void ShowReadMe(App& app, WindowHandle owner);
void ShowInternal(App& app, WindowHandle owner);
void ShowAbout(App& app, WindowHandle owner);
// frmPreview, modal: the new order of a transaction's lines (a table, headings first) with
// "Write this order" and "Cancel". True only when Write this order was chosen.
bool ShowPreview(App& app, WindowHandle owner, const std::vector<std::vector<std::string>>& table);
// A report list view: headings of `width` pixels, rows added at the end, columns fitted.
void AddListColumns(WindowHandle list, const std::vector<std::string>& headings, int width);
void AddListRow(WindowHandle list, const std::vector<std::string>& cells);
void FitListColumns(WindowHandle list);
// The auxiliary forms start-up needs (the main form's "Loading other forms" stage): their
// window class, and frmInternal loaded hidden.
void LoadOtherForms(App& app, WindowHandle owner);

}  // namespace pelmark::ui
