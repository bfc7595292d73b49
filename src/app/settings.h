// The settings file Pelmark.ini: its grammar, ReadIni, SaveSettings and ValidateField.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace pelmark {

struct App;
namespace ui {
class Form;
}

struct SettingsFile {
    std::string path;      // data folder + Pelmark.ini
    std::string tempPath;  // data folder + Pelmark.ino
    std::string version;   // text after ";Ver=" in the first four records
    std::vector<std::string> records;
    bool loaded = false;
    std::string notFoundControls;  // CR LF separated report lines
    std::string notFoundValues;
};

struct ReadIniOptions {
    std::vector<std::string> only;  // when not empty, only these control names are read
    bool reportNotFound = true;
};

void ReadIni(App& app, ui::Form& form, const ReadIniOptions& options = {});
void SaveSettings(App& app, const std::vector<const ui::Form*>& forms);

struct FieldLimits {
    double min = 0;
    std::optional<double> max;
    bool allowBlank = false;
    bool wholeNumber = false;  // also require an integral value
};
// True when valid; otherwise `reason` gets "Is Blank", "Not numeric" or "Out of valid Range".
bool ValidateField(const std::string& value, const FieldLimits& limits, std::string* reason);

// The main form's field checks: the message to show, or nothing when the text is accepted.
// txtBlankLines: a whole number from 0 to 9.
std::optional<std::string> CheckBlankLines(const std::string& text);
// txtDebugLevel: not empty, numeric and not negative.
std::optional<std::string> CheckDebugLevel(const std::string& text);

}  // namespace pelmark
