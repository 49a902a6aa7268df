// The host of the `tundrel` command: messages on standard error, dialogs
// asked on the terminal with --interactive (cancelled otherwise: the commands
// call the typed cores with the values of their flags), and a progress bar
// when standard error is a terminal.
#pragma once

#include "api/host.h"

namespace tundrel::cli {

class CliHost : public ScriptedHost {
public:
    bool interactive = false;

    void showMessage(const std::string& text) override;
    bool askParameters(Dialog& dialog) override;
    std::optional<std::string> chooseFile(const FileChooser& chooser) override;
    void progress(std::int64_t done, std::int64_t total) override;

private:
    bool askOnTerminal(Dialog& dialog);
    int lastPercent_ = -1;
};

// The host installed by main().
CliHost& cliHost();

}  // namespace tundrel::cli
