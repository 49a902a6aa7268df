#include "qt/view/viewer_window.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QStatusBar>
#include <QTableWidget>
#include <QToolBar>
#include <QVBoxLayout>
#include <cmath>
#include <exception>

#include "qt/host/qt_host.h"
#include "qt/view/field_view.h"

namespace tundrel::view {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

QString number(double v) { return std::isfinite(v) ? QString::number(v, 'g', 6) : QStringLiteral("-"); }

QTableWidget* newTable(const QStringList& headers, const QString& name) {
    auto* t = new QTableWidget(0, static_cast<int>(headers.size()));
    t->setObjectName(name);
    t->setHorizontalHeaderLabels(headers);
    t->verticalHeader()->setVisible(false);
    t->setEditTriggers(QAbstractItemView::NoEditTriggers);
    t->setSelectionMode(QAbstractItemView::NoSelection);
    t->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    t->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    return t;
}

void setRow(QTableWidget* t, int row, const QStringList& cells) {
    for (int c = 0; c < cells.size(); ++c) {
        auto* item = new QTableWidgetItem(cells[c]);
        if (c > 0) item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        t->setItem(row, c, item);
    }
}

// The range a field is shown over by default: its values' range,
// symmetric about zero for a diverging map, widened a little when flat.
std::pair<double, double> autoRange(std::span<const double> values, const ColorMap& map) {
    const auto range = valueRange(values);
    if (!range) return {0.0, 1.0};
    double low = range->first, high = range->second;
    if (map.diverging()) low = -(high = std::max(std::abs(low), std::abs(high)));
    if (!(low < high)) {
        const double d = std::max(1e-6 * std::abs(low), 1e-9);
        low -= d;
        high += d;
    }
    return {low, high};
}

}  // namespace

ViewerWindow::ViewerWindow(QWidget* parent) : QMainWindow(parent), host_(std::make_unique<QtHost>(this)) {
    setObjectName("viewerWindow");
    view_ = new FieldView(this);
    view_->setObjectName("fieldView");
    setCentralWidget(view_);
    buildMenus();
    buildControls();
    buildInformation();
    status_ = new QLabel;
    status_->setObjectName("status");
    statusBar()->addWidget(status_, 1);
    modelChanged({});
    resize(1100, 720);
}

ViewerWindow::~ViewerWindow() {
    // The renderer refers to the model's container: it goes first.
    view_->setField(nullptr);
}

QString ViewerWindow::modelFilter() {
    QStringList all, each;
    for (const GeometryFormat& f : geometryFormats()) {
        QStringList patterns;
        for (std::string_view e : f.extensions) {
            const QString ext = q(std::string(e));
            patterns << "*." + ext << "*." + ext.toUpper();
        }
        all << patterns;
        each << QString("%1 (%2)").arg(q(std::string(f.name)), patterns.join(' '));
    }
    return QString("Models (%1);;%2").arg(all.join(' '), each.join(";;"));
}

void ViewerWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* open = file->addAction(tr("&Open..."), this, &ViewerWindow::open);
    open->setShortcut(QKeySequence::Open);
    open->setObjectName("openAction");
    QAction* save = file->addAction(tr("Save &as..."), this, &ViewerWindow::saveAs);
    save->setShortcut(QKeySequence::SaveAs);
    save->setObjectName("saveAsAction");
    QAction* picture = file->addAction(tr("Save &picture..."), this, &ViewerWindow::savePictureAs);
    picture->setObjectName("savePictureAction");
    file->addSeparator();
    QAction* quit = file->addAction(tr("&Quit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);
    modelActions_ << save << picture;

    QMenu* ops = menuBar()->addMenu(tr("&Operations"));
    const std::pair<const char*, void (ViewerWindow::*)()> operations[] = {
        {"Self-illumination...", &ViewerWindow::runSelfIllumination},
        {"Pressure ports...", &ViewerWindow::runPressurePorts},
        {"Triangulate", &ViewerWindow::runTriangulate},
        {"Refine", &ViewerWindow::runRefine},
        {"Mirror...", &ViewerWindow::runMirror}};
    const char* names[] = {"selfIlluminationAction", "pressurePortsAction", "triangulateAction", "refineAction",
                           "mirrorAction"};
    for (std::size_t k = 0; k < std::size(operations); ++k) {
        QAction* a = ops->addAction(tr(operations[k].first), this, operations[k].second);
        a->setObjectName(names[k]);
        modelActions_ << a;
    }

    QMenu* viewMenu = menuBar()->addMenu(tr("&View"));
    for (const std::string& name : View::names()) {
        QAction* a = viewMenu->addAction(q(name), this, [this, name] { view_->setView(*View::named(name)); });
        a->setObjectName(q(name + "View"));
    }
}

void ViewerWindow::buildControls() {
    QToolBar* bar = addToolBar(tr("Display"));
    bar->setObjectName("displayBar");
    bar->setMovable(false);
    bar->addWidget(new QLabel(tr(" Field ")));
    fieldBox_ = new QComboBox;
    fieldBox_->setObjectName("fieldBox");
    fieldBox_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    fieldBox_->setMinimumContentsLength(10);
    bar->addWidget(fieldBox_);
    bar->addSeparator();
    bar->addWidget(new QLabel(tr(" Colours ")));
    mapBox_ = new QComboBox;
    mapBox_->setObjectName("mapBox");
    for (const std::string& n : ColorMap::names())
        if (n != "diverging") mapBox_->addItem(q(n));
    bar->addWidget(mapBox_);
    bar->addSeparator();
    autoRange_ = new QCheckBox(tr("Auto range"));
    autoRange_->setObjectName("autoRange");
    autoRange_->setChecked(true);
    bar->addWidget(autoRange_);
    auto spin = [&](const QString& label, const QString& name) {
        bar->addWidget(new QLabel(label));
        auto* s = new QDoubleSpinBox;
        s->setObjectName(name);
        s->setDecimals(4);
        s->setRange(-1e9, 1e9);
        s->setKeyboardTracking(false);
        s->setMinimumWidth(90);
        bar->addWidget(s);
        return s;
    };
    lowBox_ = spin(tr("  Min "), "lowBox");
    highBox_ = spin(tr("  Max "), "highBox");

    connect(fieldBox_, &QComboBox::currentTextChanged, this, [this] {
        if (!updating_) valuesChanged();
    });
    connect(mapBox_, &QComboBox::currentTextChanged, this, [this](const QString& name) {
        if (const auto map = ColorMap::named(name.toStdString())) view_->setColorMap(*map);
        if (autoRange_->isChecked()) valuesChanged();
    });
    connect(autoRange_, &QCheckBox::toggled, this, [this](bool on) {
        lowBox_->setEnabled(!on);
        highBox_->setEnabled(!on);
        if (on) valuesChanged();
    });
    for (QDoubleSpinBox* s : {lowBox_, highBox_})
        connect(s, &QDoubleSpinBox::valueChanged, this, [this] {
            if (!updating_) rangeChanged();
        });
    lowBox_->setEnabled(false);
    highBox_->setEnabled(false);
}

void ViewerWindow::buildInformation() {
    auto* dock = new QDockWidget(tr("Information"), this);
    dock->setObjectName("informationDock");
    dock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    auto* panel = new QWidget;
    auto* layout = new QVBoxLayout(panel);
    summary_ = new QLabel;
    summary_->setObjectName("summary");
    summary_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    summary_->setWordWrap(true);
    patchTable_ = newTable({tr("Patch"), tr("Size"), tr("Nodes")}, "patchTable");
    fieldTable_ = newTable({tr("Field"), tr("Min"), tr("Max"), tr("Mean"), tr("No value")}, "fieldTable");
    layout->addWidget(summary_);
    layout->addWidget(new QLabel(tr("<b>Patches</b>")));
    layout->addWidget(patchTable_, 1);
    layout->addWidget(new QLabel(tr("<b>Fields</b>")));
    layout->addWidget(fieldTable_, 1);
    dock->setWidget(panel);
    dock->setMinimumWidth(360);
    addDockWidget(Qt::RightDockWidgetArea, dock);
}

template <class Op>
void ViewerWindow::operate(const QString& what, Op&& op) {
    HostScope scope(active_ != nullptr ? *active_ : static_cast<Host&>(*host_));
    try {
        op();
    } catch (const arrayWorks::GenericError& e) {
        showMessage(what.toStdString() + ": " + e.message);
    } catch (const std::exception& e) {
        showMessage(what.toStdString() + ": " + e.what());
    }
}

bool ViewerWindow::openFile(const QString& file) {
    bool ok = false;
    operate(tr("Open"), [&] {
        view_->setField(nullptr);
        ok = model_.load(file.toStdString());
    });
    modelChanged(ok ? QString() : currentField());
    return ok;
}

bool ViewerWindow::saveModel(const QString& file) {
    bool ok = false;
    operate(tr("Save"), [&] { ok = model_.save(file.toStdString()); });
    if (ok) statusBar()->showMessage(tr("Saved %1").arg(file), 5000);
    return ok;
}

bool ViewerWindow::savePicture(const QString& file) {
    bool ok = false;
    operate(tr("Save picture"), [&] {
        PictureOptions o;
        o.field = currentField().toStdString();
        View v = view_->view();
        v.name.clear();
        o.views = {v};
        const QSize area = view_->image().isNull() ? QSize(4, 3) : view_->image().size();
        o.width = 1600;
        o.height = std::clamp(o.width * area.height() / std::max(1, area.width()), 400, 1600);
        o.low = view_->low();
        o.high = view_->high();
        o.colormap = view_->colorMap().name();
        o.title = pictureTitle(model_.title(), model_.flow().Mach, model_.flow().alpha, model_.flow().beta);
        const Picture p = renderPicture(model_.field(), o);
        if (!p) {
            showMessage(p.message);
            return;
        }
        const SafeWriteResult r =
            writeFileSafely(file.toStdString(), [&](const std::string& temporary) { return writePng(p.image, temporary); });
        if (!r) showMessage(r.message.empty() ? "Cannot write " + file.toStdString() : r.message);
        ok = r.ok;
    });
    if (ok) statusBar()->showMessage(tr("Saved %1").arg(file), 5000);
    return ok;
}

bool ViewerWindow::saveScreenshot(const QString& file) {
    const QImage image = grab().toImage();
    bool ok = false;
    operate(tr("Screenshot"), [&] {
        const SafeWriteResult r = writeFileSafely(file.toStdString(), [&](const std::string& temporary) {
            return image.save(q(temporary), "PNG");
        });
        if (!r) showMessage(r.message.empty() ? "Cannot write " + file.toStdString() : r.message);
        ok = r.ok;
    });
    return ok;
}

void ViewerWindow::open() {
    const QString dir = model_.file().empty() ? QString() : QFileInfo(q(model_.file())).path();
    const QString file = QFileDialog::getOpenFileName(this, tr("Open model"), dir, modelFilter());
    if (!file.isEmpty()) openFile(file);
}

void ViewerWindow::saveAs() {
    if (model_.empty()) return;
    QString selected;
    const QString filter = modelFilter().section(";;", 1);
    QString file = QFileDialog::getSaveFileName(this, tr("Save model as"), q(model_.file()), filter, &selected);
    if (file.isEmpty()) return;
    if (findGeometryFormat(file_extension(file.toStdString())) == nullptr) {
        // The first extension of the chosen format: "VTK (*.vtm ...)".
        const QString ext = selected.section("*.", 1, 1).section(' ', 0, 0).section(')', 0, 0);
        if (!ext.isEmpty()) file += "." + ext;
    }
    saveModel(file);
}

void ViewerWindow::savePictureAs() {
    if (model_.empty()) return;
    const QString suggested = QFileInfo(q(model_.file())).completeBaseName() + "_" + currentField() + ".png";
    QString file = QFileDialog::getSaveFileName(this, tr("Save picture"), suggested, tr("PNG pictures (*.png)"));
    if (file.isEmpty()) return;
    if (!file.endsWith(".png", Qt::CaseInsensitive)) file += ".png";
    savePicture(file);
}

void ViewerWindow::runSelfIllumination() {
    QString added;
    operate(tr("Self-illumination"), [&] {
        if (currentField().isEmpty()) showMessage("The model has no field to correct for self-illumination");
        else added = q(model_.selfIllumination(currentField().toStdString()));
    });
    if (!added.isEmpty()) modelChanged(added);
}

void ViewerWindow::runPressurePorts() {
    // The marker readers leave the set's function name empty, and the
    // operation goes on only when the field's name equals it.
    QString added;
    operate(tr("Pressure ports"), [&] { added = q(model_.pressurePorts({})); });
    if (!added.isEmpty()) modelChanged(added);
}

void ViewerWindow::runTriangulate() {
    const QString shown = currentField();
    operate(tr("Triangulate"), [&] {
        view_->setField(nullptr);
        model_.triangulate();
    });
    modelChanged(shown);
}

void ViewerWindow::runRefine() {
    const QString shown = currentField();
    operate(tr("Refine"), [&] {
        view_->setField(nullptr);
        model_.refine();
    });
    modelChanged(shown);
}

void ViewerWindow::runMirror() {
    const QStringList planes = {tr("xz (y negated)"), tr("xy (z negated)"), tr("yz (x negated)")};
    bool ok = false;
    const QString plane = QInputDialog::getItem(this, tr("Mirror"), tr("Mirror every face patch in the plane"), planes,
                                                0, false, &ok);
    if (!ok) return;
    const mesh::MirrorPlane chosen = plane == planes[0]   ? mesh::MirrorPlane::xz
                                     : plane == planes[1] ? mesh::MirrorPlane::xy
                                                          : mesh::MirrorPlane::yz;
    const QString shown = currentField();
    operate(tr("Mirror"), [&] {
        view_->setField(nullptr);
        model_.mirror(chosen);
    });
    modelChanged(shown);
}

QString ViewerWindow::currentField() const { return fieldBox_->currentText(); }

void ViewerWindow::showField(const QString& name) {
    const int i = fieldBox_->findText(name);
    if (i >= 0) fieldBox_->setCurrentIndex(i);
}

void ViewerWindow::modelChanged(const QString& show) {
    view_->setField(model_.empty() ? nullptr : &model_.field());
    const QString previous = show.isEmpty() ? currentField() : show;
    updating_ = true;
    fieldBox_->clear();
    for (const std::string& n : model_.scalarNames()) fieldBox_->addItem(q(n));
    const int i = fieldBox_->findText(previous);
    fieldBox_->setCurrentIndex(i >= 0 ? i : 0);
    updating_ = false;
    for (QAction* a : modelActions_) a->setEnabled(!model_.empty());
    valuesChanged();
    updateInformation();
    updateTitle();
}

void ViewerWindow::valuesChanged() {
    const std::span<const double> values = model_.values(currentField().toStdString());
    shown_.assign(values.begin(), values.end());
    if (autoRange_->isChecked()) {
        const auto [low, high] = autoRange(shown_, view_->colorMap());
        updating_ = true;
        lowBox_->setValue(low);
        highBox_->setValue(high);
        updating_ = false;
        view_->setRange(low, high);
    }
    view_->setValues(shown_, currentField());
}

void ViewerWindow::rangeChanged() {
    if (lowBox_->value() < highBox_->value()) view_->setRange(lowBox_->value(), highBox_->value());
    else statusBar()->showMessage(tr("The range's minimum must be below its maximum"), 5000);
}

void ViewerWindow::updateInformation() {
    if (model_.empty()) {
        summary_->setText(tr("No model"));
        patchTable_->setRowCount(0);
        fieldTable_->setRowCount(0);
        return;
    }
    const z::ambientFlow& f = model_.flow();
    const std::vector<PatchSummary> patches = model_.patches();
    summary_->setText(tr("<b>%1</b><br>Title: %2<br>Mach %3, alpha %4, beta %5<br>%6 patches, %7 nodes, %8 faces")
                          .arg(QFileInfo(q(model_.file())).fileName().toHtmlEscaped(),
                               q(model_.title()).toHtmlEscaped(), number(f.Mach), number(f.alpha), number(f.beta))
                          .arg(patches.size())
                          .arg(model_.nodeCount())
                          .arg(model_.faceCount()));
    patchTable_->setRowCount(static_cast<int>(patches.size()));
    for (std::size_t k = 0; k < patches.size(); ++k) {
        const PatchSummary& p = patches[k];
        setRow(patchTable_, static_cast<int>(k),
               {QString("%1 %2").arg(k).arg(p.name.empty() ? tr("(no name)") : q(p.name)), q(p.size),
                QString::number(p.nodes)});
    }
    const std::vector<FieldStatistics> stats = model_.statistics();
    fieldTable_->setRowCount(static_cast<int>(stats.size()));
    for (std::size_t k = 0; k < stats.size(); ++k) {
        const FieldStatistics& s = stats[k];
        setRow(fieldTable_, static_cast<int>(k),
               {q(s.name), number(s.min), number(s.max), number(s.mean), QString::number(s.noValue)});
    }
}

void ViewerWindow::updateTitle() {
    setWindowTitle(model_.empty() ? tr("Tundrel viewer")
                                  : tr("%1 - Tundrel viewer").arg(QFileInfo(q(model_.file())).fileName()));
    status_->setText(model_.empty() ? tr("Open a model with File > Open")
                                    : tr("%1: %2 nodes. Drag to turn the model, wheel to zoom.")
                                          .arg(q(model_.file()))
                                          .arg(model_.nodeCount()));
}

}  // namespace tundrel::view
