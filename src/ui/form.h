// The form model: a form is an ordered list of named controls, which the settings file reads
// into and saves from, and which the Win32 forms bind to real windows.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

namespace pelmark::ui {

enum class ControlKind {
    CheckBox,       // value 0 or 1
    OptionButton,   // value 0 or 1; one of a group is set
    TextBox,        // text
    ComboBox,       // list and listIndex (-1: no selection); text for a free-text box
    ListBox,        // list and selected entries
    Label,          // caption
    CommandButton,  // caption
    UpDown,         // value, min, max; buddy names the label whose caption it sets
    Frame,          // caption only
    Grid,           // list: the column headings
    TabStrip,
    ProgressBar,  // value 0..max
};

struct Control {
    ControlKind kind = ControlKind::Label;
    std::string name;
    int index = -1;  // element of a control array; -1 for a single control
    std::string caption;
    std::string tip;
    std::string text;
    int value = 0;
    std::vector<std::string> list;
    int listIndex = -1;
    std::vector<bool> selected;  // ListBox: which entries are selected
    std::string tag;             // identifier of name[id] keys in the settings file
    std::string group;           // option buttons: the group (frame) within which one is set
    std::string frame;           // the frame the control stands in, for layout
    std::string buddy;           // UpDown: the label it sets
    int min = 0, max = 0;        // UpDown range
    bool holdsSetting = false;   // saved to and read from the settings file
};

class Form {
  public:
    explicit Form(std::string name = {}) : name_(std::move(name)) {}

    const std::string& name() const { return name_; }
    std::vector<Control>& controls() { return controls_; }
    const std::vector<Control>& controls() const { return controls_; }

    Control& Add(Control c);
    // The control of that name (case-insensitive, as control names are) and array index.
    Control* Find(const std::string& name, int index = -1);
    const Control* Find(const std::string& name, int index = -1) const;
    Control* FindByTag(const std::string& name, const std::string& tag);

    // Typed access for the code that reads settings; a missing control reads as empty / 0.
    bool Checked(const std::string& name, int index = -1) const;
    std::string Text(const std::string& name, int index = -1) const;
    std::string Caption(const std::string& name, int index = -1) const;
    // Combo box: the selected entry's text, or the free text when nothing is selected.
    std::string ComboText(const std::string& name, int index = -1) const;
    // Sets an option button and clears the other buttons of its group.
    void SetOption(Control& option, bool on);
    // Fills a combo box's list (the lists come from QuickBooks after the settings were read)
    // and selects the entry that equals, without regard to case, the selected or pending text.
    static void SetList(Control& combo, std::vector<std::string> list);

  private:
    static std::string Key(const std::string& name, int index);
    std::string name_;
    std::vector<Control> controls_;
    std::unordered_map<std::string, size_t> byKey_;
};

}  // namespace pelmark::ui
