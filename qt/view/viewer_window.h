// The viewer's main window: a model from a file, drawn by the renderer, the
// library's operations from a menu with the Qt host's dialogs, an information
// panel, and saving the model or a picture.
#pragma once

#include <QMainWindow>
#include <memory>

#include "qt/view/view_model.h"

class QAction;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QTableWidget;

namespace tundrel {
class QtHost;
}

namespace tundrel::view {

class FieldView;

class ViewerWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit ViewerWindow(QWidget* parent = nullptr);
    ~ViewerWindow() override;

    // Each shows its failures through the window's host and gives false.
    bool openFile(const QString& file);
    bool saveModel(const QString& file);
    bool savePicture(const QString& file);
    // The window as it is on the screen, saved as PNG without a partial file.
    bool saveScreenshot(const QString& file);

    // The field shown; "" when none.
    QString currentField() const;
    void showField(const QString& name);
    FieldView* fieldView() const { return view_; }
    const Model& model() const { return model_; }
    QtHost& qtHost() const { return *host_; }
    // The host the window's work talks to: its Qt host, or another one (a
    // run without a person answers through a quiet host); nullptr restores
    // the Qt host. The window does not take ownership.
    void useHost(Host* h) { active_ = h; }

    // The file dialogs' filter: all models first, then one entry a format.
    static QString modelFilter();

public slots:
    void open();
    void saveAs();
    void savePictureAs();
    void runSelfIllumination();
    void runPressurePorts();
    void runTriangulate();
    void runRefine();
    void runMirror();

private:
    void buildMenus();
    void buildControls();
    void buildInformation();
    // After the model changed: the renderer's scene, the field list, the panel.
    void modelChanged(const QString& show);
    void valuesChanged();
    void rangeChanged();
    void updateInformation();
    void updateTitle();
    // Runs an operation with the window's host installed, its exceptions
    // shown as messages.
    template <class Op>
    void operate(const QString& what, Op&& op);

    Model model_;
    std::unique_ptr<QtHost> host_;
    Host* active_ = nullptr;
    FieldView* view_ = nullptr;
    QComboBox* fieldBox_ = nullptr;
    QComboBox* mapBox_ = nullptr;
    QCheckBox* autoRange_ = nullptr;
    QDoubleSpinBox* lowBox_ = nullptr;
    QDoubleSpinBox* highBox_ = nullptr;
    QLabel* summary_ = nullptr;
    QLabel* status_ = nullptr;
    QTableWidget* patchTable_ = nullptr;
    QTableWidget* fieldTable_ = nullptr;
    QList<QAction*> modelActions_;
    std::vector<double> shown_;
    bool updating_ = false;
};

}  // namespace tundrel::view
