// A host for Qt 6 Widgets applications: the library's messages in message
// boxes, its parameter dialogs drawn from their templates, its files chosen in
// an open-file dialog, the wait cursor and a progress dialog that can stop a
// long operation.
//
//     QApplication app(argc, argv);
//     tundrel::QtHost host(&mainWindow);
//     tundrel::HostScope scope(host);   // or tundrel::setHost(&host)
//
// The windows live on the GUI thread. A call from another thread (the host
// installed as every thread's default with setHost, say) is carried out there
// while the calling thread waits, so the GUI thread's event loop must be
// running then.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "api/host.h"

#if defined(_WIN32)
#  if defined(TUNDREL_QT_BUILDING)
#    define TUNDREL_QT_API __declspec(dllexport)
#  else
#    define TUNDREL_QT_API __declspec(dllimport)
#  endif
#else
#  define TUNDREL_QT_API __attribute__((visibility("default")))
#endif

class QDialog;
class QWidget;

namespace tundrel {

class TUNDREL_QT_API QtHost : public Host {
public:
    // `parent` owns the windows the host opens (they are centred on it); none:
    // the application's active window.
    explicit QtHost(QWidget* parent = nullptr);
    ~QtHost() override;
    QtHost(const QtHost&) = delete;
    QtHost& operator=(const QtHost&) = delete;

    void setParent(QWidget* parent);
    QWidget* parent() const;

    // A modal message box with OK, titled with the application's name.
    void showMessage(const std::string& text) override;
    // The template's modal dialog. OK hands the typed texts to the dialog's
    // validation, which keeps it open with its message; Browse... buttons go
    // to the dialog's button handler.
    bool askParameters(Dialog& dialog) override;
    // A modal open-file dialog with the chooser's filters, default extension
    // and initial name.
    std::optional<std::string> chooseFile(const FileChooser& chooser) override;
    // The wait cursor; calls nest. It is off while a dialog of the host is open.
    void setBusy(bool busy) override;
    // A progress dialog, shown when work lasts longer than half a second; its
    // Cancel asks the operation to stop. Keeps the application painting.
    void progress(std::int64_t done, std::int64_t total) override;
    bool stopRequested() override;
    // How long work runs before the progress dialog appears; 500 ms unless set.
    void setProgressDelay(int milliseconds);

    // Called with every window the host opens (parameter dialog, message box,
    // file dialog, progress dialog) once it is shown; for screenshots and for
    // driving the dialogs from tests. Empty: none.
    void onDialogShown(std::function<void(QWidget*)> handler);

    // The dialog of a template, filled with the dialog's texts, not yet shown
    // (the caller owns it); each control with an id is named by it
    // (objectName "4051"). OK runs the dialog's validation through the
    // calling thread's host and accepts only when it passes; Browse... buttons
    // call pressButton and show the texts it leaves. The scale comes from the
    // template font, "MS Sans Serif" or, without it, the system's sans font.
    static QDialog* buildDialog(Dialog& dialog, QWidget* parent);

private:
    struct State;
    std::unique_ptr<State> s_;
};

}  // namespace tundrel
