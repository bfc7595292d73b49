// The form model: controls kept in their creation order and found by case-insensitive name.
#include "ui/form.h"

#include "app/text.h"

namespace pelmark::ui {

std::string Form::Key(const std::string& name, int index) {
    std::string key = Lower(name);
    if (index >= 0) key += "(" + std::to_string(index) + ")";
    return key;
}

Control& Form::Add(Control c) {
    std::string key = Key(c.name, c.index);
    if (auto it = byKey_.find(key); it != byKey_.end()) {
        // A second control of the same name and index replaces the first in its place, so a
        // name always means one control.
        controls_[it->second] = std::move(c);
        return controls_[it->second];
    }
    byKey_.emplace(std::move(key), controls_.size());
    controls_.push_back(std::move(c));
    return controls_.back();
}

Control* Form::Find(const std::string& name, int index) {
    auto it = byKey_.find(Key(name, index));
    return it == byKey_.end() ? nullptr : &controls_[it->second];
}

const Control* Form::Find(const std::string& name, int index) const {
    auto it = byKey_.find(Key(name, index));
    return it == byKey_.end() ? nullptr : &controls_[it->second];
}

Control* Form::FindByTag(const std::string& name, const std::string& tag) {
    for (Control& c : controls_) {
        if (EqualsNoCase(c.name, name) && EqualsNoCase(c.tag, tag)) return &c;
    }
    return nullptr;
}

bool Form::Checked(const std::string& name, int index) const {
    const Control* c = Find(name, index);
    return c != nullptr && c->value != 0;
}

std::string Form::Text(const std::string& name, int index) const {
    const Control* c = Find(name, index);
    return c != nullptr ? c->text : std::string();
}

std::string Form::Caption(const std::string& name, int index) const {
    const Control* c = Find(name, index);
    return c != nullptr ? c->caption : std::string();
}

std::string Form::ComboText(const std::string& name, int index) const {
    const Control* c = Find(name, index);
    if (c == nullptr) return {};
    if (c->listIndex >= 0 && c->listIndex < static_cast<int>(c->list.size())) {
        return c->list[c->listIndex];
    }
    return c->text;
}

void Form::SetOption(Control& option, bool on) {
    if (on) {
        // Option buttons outside any frame share the empty group, as they share the form.
        for (Control& c : controls_) {
            if (&c != &option && c.kind == ControlKind::OptionButton &&
                EqualsNoCase(c.group, option.group)) {
                c.value = 0;
            }
        }
    }
    option.value = on ? 1 : 0;
}

void Form::SetList(Control& combo, std::vector<std::string> list) {
    std::string wanted =
        combo.listIndex >= 0 && combo.listIndex < static_cast<int>(combo.list.size())
            ? combo.list[combo.listIndex]
            : combo.text;
    combo.list = std::move(list);
    combo.listIndex = -1;
    if (wanted.empty()) return;
    for (size_t i = 0; i < combo.list.size(); ++i) {
        if (EqualsNoCase(combo.list[i], wanted)) {
            combo.listIndex = static_cast<int>(i);
            combo.text = combo.list[i];
            return;
        }
    }
    combo.text = wanted;  // still pending: kept for a later list, and for the next save
}

}  // namespace pelmark::ui
