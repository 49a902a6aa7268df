#include "qt/host/qt_host.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QCoreApplication>
#include <QCursor>
#include <QDialog>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFontInfo>
#include <QFontMetrics>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProgressDialog>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QStringList>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <map>
#include <type_traits>
#include <utility>
#include <vector>

namespace tundrel {

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }

QString appTitle() {
    const QString name = QApplication::applicationDisplayName();
    return name.isEmpty() ? QStringLiteral("Tundrel") : name;
}

// Runs `f` on the application's thread: at once when called there, else
// queued to it, the calling thread waiting for the result (its event loop
// must be running then).
template <class F>
auto onGuiThread(F f) -> decltype(f()) {
    QCoreApplication* app = QCoreApplication::instance();
    if (app == nullptr || QThread::currentThread() == app->thread()) return f();
    if constexpr (std::is_void_v<decltype(f())>) {
        QMetaObject::invokeMethod(app, f, Qt::BlockingQueuedConnection);
    } else {
        decltype(f()) r{};
        QMetaObject::invokeMethod(app, [&] { r = f(); }, Qt::BlockingQueuedConnection);
        return r;
    }
}

// The template font, or the system's sans font at the template's size when
// the template's family is not installed.
QFont templateFont(const DialogTemplate& t) {
    QFont f(qs(t.font), t.fontSize > 0 ? t.fontSize : 8);
    if (QFontInfo(f).family().compare(f.family(), Qt::CaseInsensitive) != 0) {
        QFont sans = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        sans.setStyleHint(QFont::SansSerif);
        sans.setPointSize(f.pointSize());
        return sans;
    }
    return f;
}

// Dialog units to pixels with the font's base units, as the desktop reckons
// them: the average width of the 52 letters and the character height.
class DialogUnits {
public:
    explicit DialogUnits(const QFont& font) {
        const QFontMetrics fm(font);
        const int letters = fm.horizontalAdvance(QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"));
        baseX_ = std::max(1, (letters / 26 + 1) / 2);
        baseY_ = std::max(1, fm.height());
    }
    int x(int units) const { return (units * baseX_ + 2) / 4; }
    int y(int units) const { return (units * baseY_ + 4) / 8; }
    QRect rect(const DialogRect& r) const { return {x(r.x), y(r.y), x(r.width), y(r.height)}; }

private:
    int baseX_ = 1, baseY_ = 1;
};

// The window the host's dialogs belong to: the modal window open now (a
// message asked from inside a dialog sits on that dialog), else the host's.
QWidget* ownerWindow(QWidget* parent) {
    if (QWidget* modal = QApplication::activeModalWidget()) return modal;
    if (parent != nullptr) return parent;
    return QApplication::activeWindow();
}

// A parameter dialog drawn from its template. The controls keep the ids of
// the template; texts() and setTexts() move the dialog's texts in and out.
class TemplateDialog : public QDialog {
public:
    TemplateDialog(Dialog& dialog, QWidget* parent) : QDialog(parent), dialog_(dialog) {
        const DialogTemplate& t = dialog.dialogTemplate();
        setWindowTitle(qs(t.title));
        setFont(templateFont(t));
        const bool placed = t.width > 0 && t.height > 0 &&
                            std::none_of(t.controls.begin(), t.controls.end(),
                                         [](const ControlTemplate& c) { return c.rect.empty(); });
        if (placed) build(t);
        else buildFlowing(t);
        setTexts(dialog.controlText());
    }

    ControlTexts texts() const {
        ControlTexts out;
        for (const auto& [id, w] : edits_) out[id] = w->text().toStdString();
        // One character assigned, not a literal: a literal sets off a false
        // -Wrestrict of GCC 12 at -O3.
        for (const auto& [id, w] : checks_) out[id].assign(1, w->isChecked() ? '1' : '0');
        return out;
    }

    void setTexts(const ControlTexts& texts) {
        for (const auto& [id, text] : texts) {
            if (auto e = edits_.find(id); e != edits_.end()) {
                e->second->setText(qs(text));
                e->second->setCursorPosition(0);
            } else if (auto c = checks_.find(id); c != checks_.end()) {
                c->second->setChecked(text == "1");
            }
        }
    }

private:
    // Every control at its template place; the dialog has the template's size.
    void build(const DialogTemplate& t) {
        const DialogUnits du(font());
        QButtonGroup* radios = nullptr;
        for (const ControlTemplate& c : t.controls) {
            QWidget* w = makeControl(c, this);
            if (c.kind == ControlKind::Radio) {
                // Consecutive radio buttons form one group.
                if (radios == nullptr) radios = new QButtonGroup(this);
                radios->addButton(static_cast<QAbstractButton*>(w));
            } else {
                radios = nullptr;
            }
            w->setGeometry(du.rect(c.rect));
            if (c.id > 0) w->setObjectName(QString::number(c.id));
            if (c.kind == ControlKind::Group) w->lower();
        }
        setFixedSize(du.x(t.width), du.y(t.height));
    }

    // A template without places: a label and its control a row, the other
    // controls a row of their own, OK and Cancel below.
    void buildFlowing(const DialogTemplate& t) {
        auto* form = new QFormLayout;
        auto* buttons = new QDialogButtonBox;
        QString pending;
        QButtonGroup* radios = nullptr;
        for (const ControlTemplate& c : t.controls) {
            if (c.kind == ControlKind::Label) {
                pending = qs(c.label);
                continue;
            }
            if (c.kind == ControlKind::Ok || c.kind == ControlKind::Cancel) {
                auto* b = static_cast<QPushButton*>(makeControl(c, nullptr));
                b->setObjectName(QString::number(c.id));
                buttons->addButton(b, c.kind == ControlKind::Ok ? QDialogButtonBox::AcceptRole
                                                             : QDialogButtonBox::RejectRole);
                continue;
            }
            QWidget* w = makeControl(c, nullptr);
            if (c.kind == ControlKind::Radio) {
                if (radios == nullptr) radios = new QButtonGroup(this);
                radios->addButton(static_cast<QAbstractButton*>(w));
            } else {
                radios = nullptr;
            }
            if (c.id > 0) w->setObjectName(QString::number(c.id));
            if (c.kind == ControlKind::Group) {
                form->addRow(new QLabel(qs(c.label)));
                delete w;
            } else if (!pending.isEmpty()) {
                form->addRow(pending, w);
            } else {
                form->addRow(w);
            }
            pending.clear();
        }
        if (!pending.isEmpty()) form->addRow(new QLabel(pending));
        auto* column = new QVBoxLayout(this);
        column->addLayout(form);
        column->addWidget(buttons);
    }

    QWidget* makeControl(const ControlTemplate& c, QWidget* parent) {
        const QString text = qs(c.label);
        switch (c.kind) {
            case ControlKind::Label: return new QLabel(text, parent);
            case ControlKind::Edit:
            case ControlKind::ReadOnlyEdit: {
                auto* e = new QLineEdit(parent);
                e->setReadOnly(c.kind == ControlKind::ReadOnlyEdit);
                edits_[c.id] = e;
                return e;
            }
            case ControlKind::CheckBox: {
                auto* b = new QCheckBox(text, parent);
                checks_[c.id] = b;
                return b;
            }
            case ControlKind::Radio: {
                auto* b = new QRadioButton(text, parent);
                checks_[c.id] = b;
                return b;
            }
            case ControlKind::Group: return new QGroupBox(text, parent);
            case ControlKind::Ok: {
                auto* b = new QPushButton(text, parent);
                b->setDefault(true);
                connect(b, &QPushButton::clicked, this, [this] { pressOk(); });
                return b;
            }
            case ControlKind::Cancel: {
                auto* b = new QPushButton(text, parent);
                b->setAutoDefault(false);
                connect(b, &QPushButton::clicked, this, &QDialog::reject);
                return b;
            }
            case ControlKind::Button: {
                auto* b = new QPushButton(text, parent);
                b->setAutoDefault(false);
                const int id = c.id;
                connect(b, &QPushButton::clicked, this, [this, id] { pressButton(id); });
                return b;
            }
        }
        return new QWidget(parent);
    }

    // OK: the dialog's own validation; a refused value shows its message and
    // keeps the dialog open.
    void pressOk() {
        if (acceptTexts(host(), dialog_, texts()).empty()) accept();
    }

    void pressButton(int id) {
        ControlTexts t = texts();
        dialog_.pressButton(id, t);
        setTexts(t);
    }

    Dialog& dialog_;
    std::map<int, QLineEdit*> edits_;
    std::map<int, QAbstractButton*> checks_;
};

// "Name (*.a;*.b)|*.a;*.b|...||" as Qt's name filters, "Name (*.a *.b)";
// "*.*" (every file) becomes "*".
QStringList nameFilters(const std::string& filter) {
    const QStringList parts = qs(filter).split(QLatin1Char('|'));
    QStringList out;
    static const QRegularExpression trailingPatterns(QStringLiteral("\\s*\\([^()]*\\)\\s*$"));
    for (qsizetype k = 0; k + 1 < parts.size(); k += 2) {
        QString name = parts[k];
        if (name.isEmpty()) break;
        QStringList patterns = parts[k + 1].split(QLatin1Char(';'), Qt::SkipEmptyParts);
        for (QString& p : patterns) {
            p = p.trimmed();
            if (p == QLatin1String("*.*")) p = QStringLiteral("*");
        }
        name.remove(trailingPatterns);
        out << name + QStringLiteral(" (") + patterns.join(QLatin1Char(' ')) + QLatin1Char(')');
    }
    return out;
}

}  // namespace

struct QtHost::State {
    QPointer<QWidget> parent;
    std::function<void(QWidget*)> shown;

    int busyDepth = 0;
    int dialogsOpen = 0;
    bool cursorSet = false;
    Qt::CursorShape cursorShape = Qt::WaitCursor;

    bool working = false;       // progress reported and not yet complete
    bool stop = false;
    std::int64_t total = 0;
    int delay = 500;            // ms before the progress dialog shows
    QElapsedTimer started, lastEvents;
    QPointer<QProgressDialog> progressDialog;

    // The override cursor as the state asks: the wait cursor while busy and
    // no dialog is open, the busy arrow while the progress dialog offers
    // Cancel.
    void applyCursor() {
        const bool want = busyDepth > 0 && dialogsOpen == 0;
        const Qt::CursorShape shape = progressDialog ? Qt::BusyCursor : Qt::WaitCursor;
        if (want && !cursorSet) QApplication::setOverrideCursor(QCursor(shape));
        else if (!want && cursorSet) QApplication::restoreOverrideCursor();
        else if (want && shape != cursorShape) QApplication::changeOverrideCursor(QCursor(shape));
        cursorSet = want;
        cursorShape = shape;
    }

    void endWork() {
        working = false;
        stop = false;
        if (progressDialog) {
            progressDialog->hide();
            progressDialog->deleteLater();
            progressDialog.clear();
            applyCursor();
        }
    }

    void progress(std::int64_t done, std::int64_t steps);

    // Shows `w` modally; the cursor is the arrow meanwhile and the shown
    // handler sees the window once its loop runs.
    int exec(QDialog& w) {
        struct Open {
            State& s;
            explicit Open(State& st) : s(st) {
                ++s.dialogsOpen;
                s.applyCursor();
                // Not behind the dialog; the next step of the work shows it again.
                if (s.progressDialog) s.progressDialog->hide();
            }
            ~Open() {
                --s.dialogsOpen;
                s.applyCursor();
            }
        } open(*this);
        if (shown) {
            QPointer<QDialog> guard(&w);
            auto handler = shown;
            QTimer::singleShot(0, &w, [guard, handler] {
                if (guard) handler(guard.data());
            });
        }
        return w.exec();
    }
};

void QtHost::State::progress(std::int64_t done, std::int64_t steps) {
    if (steps <= 0) return;
    // A new piece of work: the first report, a start from 0 or another total.
    if (!working || done <= 0 || steps != total) {
        endWork();
        working = true;
        total = steps;
        started.start();
        lastEvents.start();
    }
    if (done >= total) {
        endWork();
        return;
    }
    if (stop) return;
    constexpr int kScale = 1000;
    const int value = std::clamp(static_cast<int>(static_cast<double>(done) / static_cast<double>(total) * kScale), 0,
                                 kScale - 1);
    if (!progressDialog && started.elapsed() >= delay) {
        auto* d = new QProgressDialog(QStringLiteral("Working..."), QStringLiteral("Cancel"), 0, kScale,
                                      ownerWindow(parent));
        d->setWindowTitle(appTitle());
        d->setWindowModality(Qt::ApplicationModal);
        d->setMinimumDuration(0);
        d->setAutoClose(false);
        d->setAutoReset(false);
        QObject::connect(d, &QProgressDialog::canceled, d, [this] { stop = true; });
        progressDialog = d;
        d->setValue(value);
        d->show();
        applyCursor();
        if (shown) shown(d);
    }
    if (progressDialog) {
        if (!progressDialog->isVisible() && dialogsOpen == 0) progressDialog->show();
        progressDialog->setValue(value);
    }
    // Paint and take the Cancel click; until the modal progress dialog is up
    // no input reaches the application, so nothing starts a second operation.
    if (lastEvents.elapsed() >= 30) {
        lastEvents.start();
        QCoreApplication::processEvents(progressDialog ? QEventLoop::AllEvents : QEventLoop::ExcludeUserInputEvents);
    }
}

QtHost::QtHost(QWidget* parent) : s_(std::make_unique<State>()) { s_->parent = parent; }

QtHost::~QtHost() {
    if (QCoreApplication::instance() == nullptr) return;
    onGuiThread([this] {
        delete s_->progressDialog.data();
        if (s_->cursorSet) QApplication::restoreOverrideCursor();
    });
}

void QtHost::setParent(QWidget* parent) { s_->parent = parent; }
QWidget* QtHost::parent() const { return s_->parent.data(); }
void QtHost::onDialogShown(std::function<void(QWidget*)> handler) { s_->shown = std::move(handler); }

void QtHost::showMessage(const std::string& text) {
    onGuiThread([&] {
        QMessageBox box(QMessageBox::Warning, appTitle(), qs(text), QMessageBox::Ok, ownerWindow(s_->parent));
        box.setTextFormat(Qt::PlainText);
        s_->exec(box);
    });
}

QDialog* QtHost::buildDialog(Dialog& dialog, QWidget* parent) { return new TemplateDialog(dialog, parent); }

bool QtHost::askParameters(Dialog& dialog) {
    return onGuiThread([&] {
        TemplateDialog d(dialog, ownerWindow(s_->parent));
        return s_->exec(d) == QDialog::Accepted;
    });
}

std::optional<std::string> QtHost::chooseFile(const FileChooser& chooser) {
    return onGuiThread([&]() -> std::optional<std::string> {
        QFileDialog d(ownerWindow(s_->parent), QStringLiteral("Open"));
        d.setAcceptMode(QFileDialog::AcceptOpen);
        d.setFileMode(chooser.fileMustExist ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
        d.setOption(QFileDialog::DontUseNativeDialog, true);
        if (const QStringList filters = nameFilters(chooser.filter); !filters.isEmpty()) d.setNameFilters(filters);
        // "*.mrk" or ".mrk": the suffix added to a name typed without one.
        QString suffix = qs(chooser.defaultExtension);
        while (suffix.startsWith(QLatin1Char('*')) || suffix.startsWith(QLatin1Char('.'))) suffix.remove(0, 1);
        if (!suffix.isEmpty() && !suffix.contains(QLatin1Char('*'))) d.setDefaultSuffix(suffix);
        if (!chooser.initialName.empty()) d.selectFile(qs(chooser.initialName));
        if (s_->exec(d) != QDialog::Accepted || d.selectedFiles().isEmpty()) return std::nullopt;
        return d.selectedFiles().front().toStdString();
    });
}

void QtHost::setBusy(bool busy) {
    onGuiThread([&] {
        s_->busyDepth += busy ? 1 : -1;
        if (s_->busyDepth <= 0 && s_->working) s_->endWork();
        s_->applyCursor();
    });
}

void QtHost::progress(std::int64_t done, std::int64_t total) {
    onGuiThread([&] { s_->progress(done, total); });
}

bool QtHost::stopRequested() {
    return onGuiThread([&] {
        if (s_->progressDialog && s_->progressDialog->wasCanceled()) s_->stop = true;
        return s_->stop;
    });
}

void QtHost::setProgressDelay(int milliseconds) { s_->delay = std::max(0, milliseconds); }

}  // namespace tundrel
