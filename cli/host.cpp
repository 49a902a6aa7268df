#include "cli/host.h"

#include "dialogs/dialogs.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace tundrel::cli {

CliHost& cliHost() {
    static CliHost h;
    return h;
}

void CliHost::clearLine() {
    if (!lineShown_) return;
    std::cerr << "\r\033[K" << std::flush;
    lineShown_ = false;
}

void CliHost::showMessage(const std::string& text) {
    ScriptedHost::showMessage(text);
    if (holdMessages) return;
    clearLine();
    std::cerr << text << '\n';
}

bool CliHost::askParameters(Dialog& dialog) {
    // Without a terminal to ask, nothing is queued: the dialog is cancelled.
    if (!interactive) return ScriptedHost::askParameters(dialog);
    return askOnTerminal(dialog);
}

std::optional<std::string> CliHost::chooseFile(const FileChooser& chooser) {
    if (!interactive) return ScriptedHost::chooseFile(chooser);
    std::cerr << "File (" << chooser.filter << ")";
    if (!chooser.initialName.empty()) std::cerr << " [" << chooser.initialName << "]";
    std::cerr << ": ";
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    if (line.empty()) line = chooser.initialName;
    if (line.empty()) return std::nullopt;
    return line;
}

namespace {

std::string lowered(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The dialog's rule for one typed text: its message, or an empty string.
std::string refusal(int dialogId, int control, const std::string& typed) {
    const DialogResource* resource = dialogResource(dialogId);
    if (resource == nullptr) return {};
    const std::size_t first = typed.find_first_not_of(" \t"), last = typed.find_last_not_of(" \t");
    const std::string text = first == std::string::npos ? std::string() : typed.substr(first, last - first + 1);
    for (const ControlCheck& c : resource->checks) {
        if (c.control != control) continue;
        char* end = nullptr;
        switch (c.kind) {
            case ValueKind::Int: {
                const long long v = std::strtoll(text.c_str(), &end, 10);
                if (text.empty() || *end != '\0') return "Please enter an integer.";
                return intRefusal(dialogId, control, v);
            }
            case ValueKind::Double: {
                const double v = std::strtod(text.c_str(), &end);
                if (text.empty() || *end != '\0') return "Please enter a number.";
                return numberRefusal(dialogId, control, v);
            }
            case ValueKind::Text: return textRefusal(dialogId, control, typed);
            default: return {};
        }
    }
    return {};
}

}  // namespace

// Each edit box and check box in turn, named by its label (an edit box by
// the static text before it) and showing its current value in brackets; an
// empty line keeps the value. A group of radio buttons is answered by one of
// its listed choices, in any letter case, and asked again for anything else.
// A refused value is shown and the dialog asked again with the typed values.
bool CliHost::askOnTerminal(Dialog& dialog) {
    const DialogTemplate& t = dialog.dialogTemplate();
    ControlTexts texts = dialog.controlText();
    clearLine();
    std::cerr << "== " << t.title << " (empty line keeps a value, end of input cancels)\n";
    auto ask = [](const std::string& prompt, std::string& line) {
        std::cerr << prompt << std::flush;
        return static_cast<bool>(std::getline(std::cin, line));
    };
    for (;;) {
        std::string label, group;
        std::vector<const ControlTemplate*> radios;
        for (const ControlTemplate& c : t.controls) {
            std::string line;
            switch (c.kind) {
                case ControlKind::Label: label = c.label; break;
                case ControlKind::Group: group = c.label; break;
                case ControlKind::Edit:
                    // A refused value is shown and asked again at once.
                    for (;;) {
                        if (!ask((label.empty() ? "Value" : label) + " [" + texts[c.id] + "]: ", line)) return false;
                        if (line.empty()) break;
                        if (const std::string why = refusal(t.id, c.id, line); !why.empty()) {
                            showMessage(why);
                            continue;
                        }
                        texts[c.id] = line;
                        break;
                    }
                    label.clear();
                    break;
                case ControlKind::CheckBox:
                    for (;;) {
                        if (!ask(c.label + " (y/n) [" + (texts[c.id] == "1" ? "y" : "n") + "]: ", line)) return false;
                        const std::string a = lowered(line);
                        if (a.empty()) break;
                        if (a == "y" || a == "yes" || a == "1") texts[c.id] = "1";
                        else if (a == "n" || a == "no" || a == "0") texts[c.id] = "0";
                        else continue;
                        break;
                    }
                    break;
                case ControlKind::Radio: radios.push_back(&c); break;
                default: break;
            }
        }
        if (!radios.empty()) {
            std::string choices, current;
            for (const auto* r : radios) {
                choices += (choices.empty() ? "" : " / ") + r->label;
                if (texts[r->id] == "1") current = r->label;
            }
            for (;;) {
                std::string line;
                if (!ask((group.empty() ? "Choice" : group) + " (" + choices + ") [" + current + "]: ", line))
                    return false;
                if (line.empty()) break;
                const ControlTemplate* chosen = nullptr;
                for (const auto* r : radios)
                    if (lowered(r->label) == lowered(line)) chosen = r;
                if (chosen == nullptr) {
                    std::cerr << "Answer one of: " << choices << '\n';
                    continue;
                }
                for (const auto* r : radios) texts[r->id] = r == chosen ? "1" : "0";
                break;
            }
        }
        if (acceptTexts(*this, dialog, texts).empty()) return true;
    }
}

void CliHost::beginStage(const std::string& name) {
    const Clock::time_point now = Clock::now();
    if (!stages_.empty()) stages_.back().seconds = std::chrono::duration<double>(now - stageStart_).count();
    stages_.push_back({name, 0.0});
    stageStart_ = now;
    lastPercent_ = -1;
    if (terminal) {
        std::cerr << "\r\033[K" << name << "..." << std::flush;
        lineShown_ = true;
    }
}

void CliHost::finishStages(const std::string& prefix, bool quiet) {
    if (stages_.empty()) return;
    stages_.back().seconds = std::chrono::duration<double>(Clock::now() - stageStart_).count();
    clearLine();
    if (!quiet) {
        std::string line;
        for (const Stage& s : stages_) {
            char t[32];
            std::snprintf(t, sizeof t, " %.2f s", s.seconds);
            line += (line.empty() ? "" : ", ") + s.name + t;
        }
        std::cerr << prefix << line << '\n';
    }
    stages_.clear();
}

void CliHost::progress(std::int64_t done, std::int64_t total) {
    ScriptedHost::progress(done, total);
    if (total <= 0 || !terminal) return;
    const int percent = static_cast<int>(100 * std::min(done, total) / total);
    if (percent == lastPercent_) return;
    lastPercent_ = percent;
    const double elapsed = std::chrono::duration<double>(Clock::now() - stageStart_).count();
    char line[160];
    const std::string stage = stages_.empty() ? std::string("working") : stages_.back().name;
    if (done > 0 && done < total) {
        const double left = elapsed * static_cast<double>(total - done) / static_cast<double>(done);
        std::snprintf(line, sizeof line, "%s %3d%%  %.1f s elapsed, about %.1f s left", stage.c_str(), percent,
                      elapsed, left);
    } else {
        std::snprintf(line, sizeof line, "%s %3d%%  %.1f s elapsed", stage.c_str(), percent, elapsed);
    }
    std::cerr << "\r\033[K" << line << std::flush;
    lineShown_ = true;
}

}  // namespace tundrel::cli
