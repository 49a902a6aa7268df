#include "cli/host.h"

#include <unistd.h>

#include <iostream>
#include <string>

namespace tundrel::cli {

CliHost& cliHost() {
    static CliHost h;
    return h;
}

void CliHost::showMessage(const std::string& text) {
    ScriptedHost::showMessage(text);
    if (lastPercent_ >= 0) {
        std::cerr << '\n';
        lastPercent_ = -1;
    }
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

// Each edit box and check box in turn, with the shown text in brackets; an
// empty line keeps it. Radio buttons are answered by naming one of them.
bool CliHost::askOnTerminal(Dialog& dialog) {
    const DialogTemplate& t = dialog.dialogTemplate();
    ControlTexts texts = dialog.controlText();
    std::cerr << "== " << t.title << " (empty line keeps a value, EOF cancels)\n";
    for (;;) {
        std::string radioPrompt;
        for (const ControlTemplate& c : t.controls) {
            if (c.kind != ControlKind::Edit && c.kind != ControlKind::CheckBox) continue;
            std::cerr << c.label << (c.kind == ControlKind::CheckBox ? " (1/0)" : "") << " [" << texts[c.id] << "]: ";
            std::string line;
            if (!std::getline(std::cin, line)) return false;
            if (!line.empty()) texts[c.id] = line;
        }
        std::vector<const ControlTemplate*> radios;
        for (const ControlTemplate& c : t.controls)
            if (c.kind == ControlKind::Radio) radios.push_back(&c);
        if (!radios.empty()) {
            std::string current;
            for (const auto* r : radios) {
                std::cerr << (radios.front() == r ? "" : " / ") << r->label;
                if (texts[r->id] == "1") current = r->label;
            }
            std::cerr << " [" << current << "]: ";
            std::string line;
            if (!std::getline(std::cin, line)) return false;
            if (!line.empty())
                for (const auto* r : radios) texts[r->id].assign(1, line == r->label ? '1' : '0');
        }
        if (acceptTexts(*this, dialog, texts).empty()) return true;
    }
}

void CliHost::progress(std::int64_t done, std::int64_t total) {
    ScriptedHost::progress(done, total);
    if (total <= 0 || !::isatty(STDERR_FILENO)) return;
    const int percent = static_cast<int>(100 * done / total);
    if (percent == lastPercent_) return;
    lastPercent_ = percent;
    constexpr int width = 40;
    char bar[width + 1];
    const int filled = width * percent / 100;
    for (int k = 0; k < width; ++k) bar[k] = k < filled ? '#' : ' ';
    bar[width] = '\0';
    std::cerr << "\r[" << bar << "] " << percent << "%" << std::flush;
    if (done >= total) {
        std::cerr << '\n';
        lastPercent_ = -1;
    }
}

}  // namespace tundrel::cli
