// Program folders and environment (CommonHouseKeeper, GetOSInfo, GetIniFFN).
#pragma once

#include <array>
#include <map>
#include <string>

namespace pelmark {

struct App;

// Module-wide folder strings; every one ends with the path separator (AddBackslash).
struct Folders {
    std::string companyProgram;  // ProgramFiles + \Corvalt\ (default C:\Program Files\Corvalt\)
    std::string product;         // companyProgram + Pelmark\                                   .
    std::string sharedData;      // shared documents + Corvalt\Pelmark\                           .
    std::string programData;     // ProgramData + \Corvalt\Pelmark\                               .
    std::string userData;        // application data + Corvalt\Pelmark\                           .
    std::string data;            // where the settings file and the logs are kept
    std::string program;         // the folder of the running program
    std::string exeName;         // the running program's file name
    std::string iniFFN;          // full name of the settings file
    std::string movedNote;       // the note kept for the user when old files were moved
    bool vista = false;          // Windows Vista or later
    bool dataWritable = true;    // false when a file could not be written in `data` at start-up
    // From the registry and the environment (GetOSInfo).
    std::string registeredOwner, registeredOrganization, productName, currentVersion;
    std::string shortDateFormat;
    std::map<std::string, std::string> env;  // every environment value that was found
};

extern const std::array<const char*, 12> kMonthNames;  // "January" .. "December"

// The platform's path separator, and AddBackslash that appends it (either slash counts as one).
extern const char kPathSep;
std::string AddBackslash(const std::string& path);

struct HouseKeeperOptions {
    std::string programFolder;  // the running program's folder (developer mode looks at it)
    std::string exeName;
    std::string dataFolder;     // when not empty, use this data folder instead of the usual one
    bool copyOldFiles = false;  // move files of an old program folder to the shared folder
};

void CommonHouseKeeper(App& app, const HouseKeeperOptions& options);
void GetOSInfo(App& app);
// The settings file's full name for a form; on Vista and later optionally moves old files.
std::string GetIniFFN(App& app, const std::string& formName, bool copyOldFiles);
// True when Windows of this product name and version is Vista or later.
bool IsVistaOrLater(const std::string& productName, const std::string& currentVersion);

}  // namespace pelmark
