// The pelmark command line: start-up and the sort run without the main window.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/context.h"
#include "app/prompts.h"
#include "app/registry.h"
#include "app/run.h"
#include "app/settings.h"
#include "app/text.h"
#include "app/version.h"
#include "ui/frmMain.h"

namespace {

using namespace pelmark;

const char* const kUsage =
    "usage: pelmark <command> [options]\n"
    "commands:\n"
    "  version            print the program version\n"
    "  demo               start up on the sample settings and items, and show what was read\n"
    "options:\n"
    "  --data-dir DIR     keep settings and logs in DIR\n"
    "  --samples DIR      where the sample files are (default: the source tree's samples)\n"
    "  --answer yes|no    how questions are answered (default no)\n";

struct Args {
    std::string command;
    std::string dataDir;
    std::string samples = PELMARK_SAMPLES_DIR;
    int answer = kAnsNo;
    std::string error;
};

Args Parse(int argc, char** argv) {
    Args a;
    for (int i = 1; i < argc; ++i) {
        std::string s = argv[i];
        auto value = [&](const char* name) -> std::string {
            if (i + 1 >= argc) {
                a.error = std::string(name) + " needs a value";
                return {};
            }
            return argv[++i];
        };
        if (s == "--data-dir") {
            a.dataDir = value("--data-dir");
        } else if (s == "--samples") {
            a.samples = value("--samples");
        } else if (s == "--answer") {
            std::string v = Lower(value("--answer"));
            if (v == "yes")
                a.answer = kAnsYes;
            else if (v == "no")
                a.answer = kAnsNo;
            else if (a.error.empty())
                a.error = "--answer takes yes or no";
        } else if (s == "-h" || s == "--help") {
            a.command = "help";
        } else if (!s.empty() && s[0] != '-' && a.command.empty()) {
            a.command = s;
        } else {
            a.error = "unknown argument: " + s;
        }
    }
    return a;
}

// Where the command line keeps its data when no folder is given: on Windows the program's own
// folder rules decide; elsewhere the user's data folder.
std::string DefaultDataDir() {
#ifdef _WIN32
    return {};
#else
    const char* xdg = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    std::string base = xdg && *xdg ? xdg : std::string(home ? home : "/tmp") + "/.local/share";
    return base + "/" + kCompanyName + "/" + kProductName + "/";
#endif
}

// Copies the sample settings file and item list into the data folder, so that the demo starts
// from the same files every time.
bool CopySamples(App& app, const Args& args, const std::string& dataDir) {
    FileSystem& fs = *app.sys.files;
    if (!fs.MakeDir(dataDir).ok()) {
        std::fprintf(stderr, "pelmark: cannot make the data folder %s\n", dataDir.c_str());
        return false;
    }
    for (const char* name : {"Pelmark.ini", "Items.iif"}) {
        std::string from = AddBackslash(args.samples) + name;
        FileResult r = fs.Copy(from, AddBackslash(dataDir) + name);
        if (!r.ok()) {
            std::fprintf(stderr, "pelmark: cannot copy %s: %s\n", from.c_str(), r.error.c_str());
            return false;
        }
    }
    return true;
}

int Demo(App& app, const Args& args) {
    std::string exe = RunningProgramPath();
    size_t cut = exe.find_last_of("\\/");
    HouseKeeperOptions opt;
    opt.programFolder = cut == std::string::npos ? std::string() : exe.substr(0, cut + 1);
    opt.exeName = cut == std::string::npos ? exe : exe.substr(cut + 1);
    opt.dataFolder = args.dataDir.empty() ? DefaultDataDir() : args.dataDir;
    if (!opt.dataFolder.empty() && !CopySamples(app, args, opt.dataFolder)) return 1;
    Main(app, opt);
    ReadIni(app, app.frmMain);
    const Folders& f = app.folders;
    std::printf("%s %s\n", kProductName, VersionText().c_str());
    std::printf("program folder:     %s\n", f.program.c_str());
    std::printf("data folder:        %s\n", f.data.c_str());
    std::printf("settings file:      %s\n", f.iniFFN.c_str());
    std::printf("shared data folder: %s\n", f.sharedData.c_str());
    std::printf("user data folder:   %s\n", f.userData.c_str());
    std::printf("items loaded:       %zu (%zu sales tax items, %zu sales tax groups)\n",
                app.items.count(), app.items.salesTaxItems.size(), app.items.salesTaxGroups.size());
    std::printf("settings version:   %s\n", app.settings.version.c_str());
    for (int level = 0; level < ui::kSortLevels; ++level) {
        std::string field = app.frmMain.ComboText("cboSortField", level);
        if (field.empty()) continue;
        std::printf("sort level %d:       %s%s%s\n", level + 1, field.c_str(),
                    app.frmMain.Checked("chkSortDesc", level) ? ", descending" : "",
                    app.frmMain.Checked("chkSortCaseSensitive", level) ? ", case-sensitive" : "");
    }
    const char* blank = app.frmMain.Checked("optBlankLinesBefore")  ? "before each line"
                        : app.frmMain.Checked("optBlankLinesAfter") ? "after each line"
                                                                    : "none";
    std::printf("blank lines:        %s (%s)\n", blank, app.frmMain.Text("txtBlankLines").c_str());
    if (app.common.debug.open)
        std::printf("debug log:          %s\n", app.common.debug.path.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Args args = Parse(argc, argv);
    if (!args.error.empty()) {
        std::fprintf(stderr, "pelmark: %s\n%s", args.error.c_str(), kUsage);
        return 2;
    }
    if (args.command.empty() || args.command == "help") {
        std::fputs(kUsage, args.command.empty() ? stderr : stdout);
        return args.command.empty() ? 2 : 0;
    }
    if (args.command == "version") {
        std::printf("%s %s\n", kProductName, VersionText().c_str());
        return 0;
    }
    ConsolePrompter prompter(args.answer);
    Seams seams{&prompter,          &RealEventPump(), &RealClock(),
                &RealEnvironment(), &RealRegistry(),  &RealFileSystem()};
    App app(seams);
    try {
        if (args.command == "demo") return Demo(app, args);
    } catch (const ProgramEnd& end) {
        return end.code;
    }
    std::fprintf(stderr, "pelmark: unknown command: %s\n%s", args.command.c_str(), kUsage);
    return 2;
}
