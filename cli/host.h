// The host of the `tundrel` command: messages on standard error, dialogs
// asked on the terminal with --interactive (cancelled otherwise: the commands
// call the typed cores with the values of their flags), and progress by
// stages: on a terminal a line with the stage, its percentage, the time
// elapsed and the time left; on a pipe one closing line with the stage times.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "api/host.h"

namespace tundrel::cli {

class CliHost : public ScriptedHost {
public:
    bool interactive = false;
    bool holdMessages = false;  // messages recorded only, not printed
    bool terminal = false;      // standard error is a terminal

    void showMessage(const std::string& text) override;
    bool askParameters(Dialog& dialog) override;
    std::optional<std::string> chooseFile(const FileChooser& chooser) override;
    void progress(std::int64_t done, std::int64_t total) override;

    // Ends the stage running (if any) and starts `name`.
    void beginStage(const std::string& name);
    // Ends the last stage; prints "<prefix>reading 0.1 s, computing 4.7 s"
    // unless `quiet`.
    void finishStages(const std::string& prefix, bool quiet);
    // Clears the progress line, so that a message starts a line of its own.
    void clearLine();

private:
    using Clock = std::chrono::steady_clock;
    bool askOnTerminal(Dialog& dialog);

    struct Stage {
        std::string name;
        double seconds = 0.0;
    };
    std::vector<Stage> stages_;
    Clock::time_point stageStart_{};
    int lastPercent_ = -1;
    bool lineShown_ = false;
};

// The host installed by main().
CliHost& cliHost();

}  // namespace tundrel::cli
