#include "api/host.h"

#include <atomic>
#include <iostream>

namespace tundrel {

namespace {
// The process-wide default, and the host installed for this thread.
std::atomic<Host*> g_default{nullptr};
thread_local Host* t_installed = nullptr;

// The quiet host remembers the last dialog it answered: one a thread.
QuietHost& quietHost() {
    thread_local QuietHost q;
    return q;
}
}  // namespace

Host::~Host() = default;
void Host::setBusy(bool) {}
void Host::progress(std::int64_t, std::int64_t) {}
bool Host::stopRequested() { return false; }

Host& host() {
    if (t_installed != nullptr) return *t_installed;
    if (Host* h = g_default.load(std::memory_order_acquire); h != nullptr) return *h;
    return quietHost();
}
void setHost(Host* h) { g_default.store(h, std::memory_order_release); }

bool progressStep(std::int64_t done, std::int64_t total) {
    Host& h = host();
    h.progress(done, total);
    return h.stopRequested();
}
void showMessage(const std::string& text) { host().showMessage(text); }

std::string acceptTexts(Host& h, Dialog& dialog, const ControlTexts& typed) {
    std::string problem = dialog.exchange(typed);
    if (!problem.empty()) h.showMessage(problem);
    return problem;
}

BusyScope::BusyScope() { host().setBusy(true); }
BusyScope::~BusyScope() { host().setBusy(false); }

HostScope::HostScope(Host& h) : previous_(t_installed) { t_installed = &h; }
HostScope::~HostScope() { t_installed = previous_; }

void CollectingHost::showMessage(const std::string& text) { messages.push_back(text); }
bool CollectingHost::askParameters(Dialog& dialog) { return outer_.askParameters(dialog); }
std::optional<std::string> CollectingHost::chooseFile(const FileChooser& chooser) { return outer_.chooseFile(chooser); }
void CollectingHost::setBusy(bool busy) { outer_.setBusy(busy); }
void CollectingHost::progress(std::int64_t done, std::int64_t total) { outer_.progress(done, total); }
bool CollectingHost::stopRequested() { return outer_.stopRequested(); }

void QuietHost::showMessage(const std::string& text) { std::cerr << text << '\n'; }

bool QuietHost::askParameters(Dialog& dialog) {
    const ControlTexts shown = dialog.controlText();
    const int id = dialog.dialogTemplate().id;
    if (id == lastId_ && shown == lastTexts_) {
        lastId_ = -1;
        return false;
    }
    lastId_ = id;
    lastTexts_ = shown;
    return acceptTexts(*this, dialog, shown).empty();
}

std::optional<std::string> QuietHost::chooseFile(const FileChooser&) { return std::nullopt; }

void ScriptedHost::showMessage(const std::string& text) { messages.push_back(text); }

bool ScriptedHost::askParameters(Dialog& dialog) {
    const int id = dialog.dialogTemplate().id;
    ControlTexts texts = dialog.controlText();
    dialogsShown.push_back(id);
    textsShown.push_back(texts);
    // The dialog stays open while the answers given for it are refused.
    while (!answers.empty() && (answers.front().dialogId == 0 || answers.front().dialogId == id)) {
        Answer a = std::move(answers.front());
        answers.pop_front();
        if (!a.ok) return false;
        for (const auto& [control, text] : a.typed) texts[control] = text;
        for (int button : a.buttons) dialog.pressButton(button, texts);
        if (acceptTexts(*this, dialog, texts).empty()) return true;
    }
    return false;
}

std::optional<std::string> ScriptedHost::chooseFile(const FileChooser& chooser) {
    choosersShown.push_back(chooser);
    if (files.empty()) return std::nullopt;
    auto f = std::move(files.front());
    files.pop_front();
    return f;
}

void ScriptedHost::setBusy(bool busy) {
    busyDepth += busy ? 1 : -1;
    ++busyChanges;
}

void ScriptedHost::progress(std::int64_t done, std::int64_t total) {
    lastDone = done;
    lastTotal = total;
}

bool ScriptedHost::stopRequested() { return stopAfter >= 0 && stopAsks++ >= stopAfter; }

}  // namespace tundrel
