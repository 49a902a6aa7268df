// How the library reaches a person: show a text, ask an operation's
// parameters, let the user choose a file, the busy cursor, progress and a
// request to stop. The library never writes to a terminal itself.
//
// Which host a call talks to is a matter of the calling thread: a host
// installed for the thread (HostScope) comes first, then the process-wide
// default (setHost), then a quiet host of the thread's own. Two threads that
// each install their own host run library calls side by side without seeing
// each other's host. A process-wide default is shared by every thread that
// installed none, so it must be safe to call from all of them.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "api/export.h"
#include "dialogs/dialog.h"

namespace tundrel {

class TUNDREL_API Host {
public:
    virtual ~Host();
    // A modal message box with an OK button.
    virtual void showMessage(const std::string& text) = 0;
    // A modal parameter dialog; false for Cancel. The dialog's validation
    // runs on OK and keeps it open with the validation message.
    virtual bool askParameters(Dialog& dialog) = 0;
    // An open-file dialog; nothing when the user cancels.
    virtual std::optional<std::string> chooseFile(const FileChooser& chooser) = 0;
    // The wait cursor.
    virtual void setBusy(bool busy);
    // Progress of long work; may be ignored.
    virtual void progress(std::int64_t done, std::int64_t total);
    // Asked at every progress step of an operation that can stop early: true
    // ends it there with nothing changed. Never asked from inside a dialog.
    virtual bool stopRequested();
};

// The host of the calling thread: the one HostScope installed for it, else
// the process-wide default, else the thread's quiet host.
TUNDREL_API Host& host();
// Installs the process-wide default host, used by every thread that has no
// host of its own; nullptr restores the quiet default. The library does not
// take ownership.
TUNDREL_API void setHost(Host* h);

// One progress step of a long operation: reports it through the calling
// thread's host and tells whether the host asks to stop.
TUNDREL_API bool progressStep(std::int64_t done, std::int64_t total);

// Shows a message through the installed host.
TUNDREL_API void showMessage(const std::string& text);

// Runs a dialog's modal loop for a host that is given typed texts: exchange,
// and on a validation message show it and report it. Used by the shipped
// hosts; returns the validation message or an empty string.
TUNDREL_API std::string acceptTexts(Host& h, Dialog& dialog, const ControlTexts& typed);

// Switches the wait cursor on for a scope (and off again, also on errors).
class TUNDREL_API BusyScope {
public:
    BusyScope();
    ~BusyScope();
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;
};

// Keeps the messages the library shows instead of showing them, and passes
// dialogs, file choices, the wait cursor, progress and stop requests on to
// `outer` (the host installed before, as a rule).
class TUNDREL_API CollectingHost : public Host {
public:
    explicit CollectingHost(Host& outer) : outer_(outer) {}
    void showMessage(const std::string& text) override;
    bool askParameters(Dialog& dialog) override;
    std::optional<std::string> chooseFile(const FileChooser& chooser) override;
    void setBusy(bool busy) override;
    void progress(std::int64_t done, std::int64_t total) override;
    bool stopRequested() override;

    std::vector<std::string> messages;

private:
    Host& outer_;
};

// Messages to standard error; every dialog is accepted with the values it
// shows, except that the same dialog asked again at once with the same texts
// (the library's answer to a refused value) is cancelled, so that nothing
// loops. Files: none chosen.
class TUNDREL_API QuietHost : public Host {
public:
    void showMessage(const std::string& text) override;
    bool askParameters(Dialog& dialog) override;
    std::optional<std::string> chooseFile(const FileChooser& chooser) override;

private:
    int lastId_ = -1;
    ControlTexts lastTexts_;
};

// Answers from queues and records what the library showed; for tests, the
// command line and scripts.
class TUNDREL_API ScriptedHost : public Host {
public:
    struct Answer {
        ControlTexts typed;          // texts typed over the shown ones
        std::vector<int> buttons;    // buttons pressed before OK, in order
        bool ok = true;              // false: Cancel
        int dialogId = 0;            // 0: any dialog; else only this template id
    };

    // Queues an answer for the next dialog.
    void answer(Answer a) { answers.push_back(std::move(a)); }
    void answerOk(ControlTexts typed = {}, int dialogId = 0) { answers.push_back({std::move(typed), {}, true, dialogId}); }
    void answerCancel(int dialogId = 0) { answers.push_back({{}, {}, false, dialogId}); }
    void chooseNext(std::optional<std::string> file) { files.push_back(std::move(file)); }

    void showMessage(const std::string& text) override;
    // Takes the next queued answer; with none queued (or one meant for another
    // dialog) the dialog is cancelled.
    bool askParameters(Dialog& dialog) override;
    std::optional<std::string> chooseFile(const FileChooser& chooser) override;
    void setBusy(bool busy) override;
    void progress(std::int64_t done, std::int64_t total) override;
    // True from the (stopAfter + 1)-th ask on; never when stopAfter < 0.
    bool stopRequested() override;

    std::deque<Answer> answers;
    int stopAfter = -1;
    int stopAsks = 0;
    std::deque<std::optional<std::string>> files;

    std::vector<std::string> messages;        // every message shown, in order
    std::vector<int> dialogsShown;            // template ids, in order
    std::vector<ControlTexts> textsShown;     // what each dialog showed when opened
    std::vector<FileChooser> choosersShown;
    int busyDepth = 0;
    int busyChanges = 0;
    std::int64_t lastDone = 0, lastTotal = 0;
};

// Installs a host for the calling thread for a scope, and restores the
// thread's previous one afterwards. Other threads do not see it.
class TUNDREL_API HostScope {
public:
    explicit HostScope(Host& h);
    ~HostScope();
    HostScope(const HostScope&) = delete;
    HostScope& operator=(const HostScope&) = delete;

private:
    Host* previous_;
};

}  // namespace tundrel
