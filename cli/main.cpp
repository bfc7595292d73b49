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
#include "app/text.h"
#include "app/version.h"

namespace {

using namespace pelmark;

const char* const kUsage =
    "usage: pelmark <command> [options]\n"
    "commands:\n"
    "  version            print the program version\n"
    "  demo               start up and show the folders the program uses\n"
    "options:\n"
    "  --data-dir DIR     keep settings and logs in DIR\n"
    "  --answer yes|no    how questions are answered (default no)\n";

struct Args {
    std::string command;
    std::string dataDir;
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

int Demo(App& app, const Args& args) {
    std::string exe = RunningProgramPath();
    size_t cut = exe.find_last_of("\\/");
    HouseKeeperOptions opt;
    opt.programFolder = cut == std::string::npos ? std::string() : exe.substr(0, cut + 1);
    opt.exeName = cut == std::string::npos ? exe : exe.substr(cut + 1);
    opt.dataFolder = args.dataDir.empty() ? DefaultDataDir() : args.dataDir;
    Main(app, opt);
    const Folders& f = app.folders;
    std::printf("%s %s\n", kProductName, VersionText().c_str());
    std::printf("program folder:     %s\n", f.program.c_str());
    std::printf("data folder:        %s\n", f.data.c_str());
    std::printf("settings file:      %s\n", f.iniFFN.c_str());
    std::printf("shared data folder: %s\n", f.sharedData.c_str());
    std::printf("user data folder:   %s\n", f.userData.c_str());
    std::printf("items loaded:       %zu\n", app.items.count());
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
