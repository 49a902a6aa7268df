// The Qt host on the library's own calls: each window it opens is driven by
// the steps queued for it, in the order the windows appear.
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QtTest>

#include <deque>
#include <functional>
#include <thread>

#include "api/TundrelApi.h"
#include "qt/host/qt_host.h"

using namespace tundrel;
using Step = std::function<void(QWidget*)>;

namespace {

QString text(QWidget* w, int id) {
    QWidget* c = w->findChild<QWidget*>(QString::number(id));
    if (auto* e = qobject_cast<QLineEdit*>(c)) return e->text();
    auto* b = qobject_cast<QAbstractButton*>(c);
    return b == nullptr ? QStringLiteral("(none)") : b->isChecked() ? QStringLiteral("1") : QStringLiteral("0");
}
void type(QWidget* w, int id, const QString& s) {
    auto* e = w->findChild<QLineEdit*>(QString::number(id));
    e->clear();
    QTest::keyClicks(e, s);
}
void press(QWidget* w, int id) { w->findChild<QPushButton*>(QString::number(id))->click(); }
QStringList captions(QWidget* w) {
    QStringList out;
    for (auto* l : w->findChildren<QLabel*>()) out << l->text();
    for (auto* b : w->findChildren<QAbstractButton*>()) out << b->text();
    for (auto* g : w->findChildren<QGroupBox*>()) out << g->title();
    return out;
}

// The example model with its field cp.
struct Model {
    FieldMasterD field;
    Model() {
        region reg;
        region_fe fe;
        z::ambientFlow flow;
        if (!import_data(TUNDREL_EXAMPLES "/wingbody.fld", false, reg, fe)) qFatal("cannot read the example");
        Region_to_fieldMaster(reg, fe, field, flow);
    }
};

// The dialog each row opens, through the library's own call.
bool open(int id, Model& m) {
    std::string cp = "cp";
    const int before = m.field.functionCount();
    if (id == kSelfIlluminationDialog) self_illumination(m.field, cp);
    if (id == kPressurePortsDialog) pressure_ports(m.field, cp);
    bool direction = false;
    if (id == kActiveAxesDialog) {
        BusyScope busy;
        return chooseActiveAxes(true, false, true, direction);
    }
    return m.field.functionCount() != before;
}

}  // namespace

class QtHostTest : public QObject {
    Q_OBJECT
    QtHost host;
    std::deque<Step> steps;
    int windows = 0;
    bool watchProgress = false;

    // Runs `call` with the host installed, each window shown taking the next step.
    template <class F>
    auto drive(std::deque<Step> queued, F call) {
        steps = std::move(queued);
        windows = 0;
        host.onDialogShown([this](QWidget* w) {
            if (qobject_cast<QProgressDialog*>(w) != nullptr && !watchProgress) return;  // slow under sanitizers
            ++windows;
            if (steps.empty()) {
                auto* box = qobject_cast<QMessageBox*>(w);
                const QString what = "a window nobody expected: " + w->windowTitle() + (box ? ": " + box->text() : "");
                QTest::qFail(qPrintable(what), __FILE__, __LINE__);
            } else {
                Step s = std::move(steps.front());
                steps.pop_front();
                s(w);
            }
            // A failed step closes its window, so that the test goes on.
            if (auto* d = qobject_cast<QDialog*>(w); d != nullptr && QTest::currentTestFailed() && d->isVisible())
                d->reject();
        });
        HostScope scope(host);
        auto r = call();
        [&] { QVERIFY2(steps.empty(), "a window that never came"); }();
        return r;
    }

private slots:
    void dialogsOpenWithTheirTexts_data() {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("labels");
        QTest::addColumn<QStringList>("texts");  // by control id
        QTest::newRow("4003") << 4003 << "Self-illumination parameters"
                              << QStringList{"Complete diffusion reflection ratio (0 - 1)", "New field name",
                                             "Check visibility (recommented only for selected nodes)", "OK", "Cancel"}
                              << QStringList{"4051=1", "4052=0", "4053=cp_si"};
        QTest::newRow("4004") << 4004 << "Pressure ports parameters"
                              << QStringList{"Order of the convergence approximation",
                                             "Maximum deflexion of markers from the geometry", "New field name",
                                             "Markers file", "Browse...", "OK", "Cancel"}
                              << QStringList{"4055=0", "4054=0", "4056=cp_pp", "4057=Untitled.mrk"};
        QTest::newRow("4005") << 4005 << "Active axes for the markers"
                              << QStringList{"Active axes", "Direction of the markers projection", "Normal", "Reverse"}
                              << QStringList{"4059=X", "4060=Z", "4061=0", "4062=1"};
    }
    // Cancel changes nothing; the wait cursor is off while the dialog is open.
    void dialogsOpenWithTheirTexts() {
        QFETCH(int, id);
        QFETCH(QString, title);
        QFETCH(QStringList, labels);
        QFETCH(QStringList, texts);
        Model m;
        const bool changed = drive({[&](QWidget* w) {
                                       QCOMPARE(w->windowTitle(), title);
                                       for (const QString& l : labels) QVERIFY2(captions(w).contains(l), qPrintable(l));
                                       for (const QString& t : texts)
                                           QCOMPARE(t.section('=', 0, 0) + "=" + text(w, t.section('=', 0, 0).toInt()), t);
                                       QCOMPARE(QApplication::overrideCursor(), nullptr);
                                       QDir().mkpath(TUNDREL_SCREENSHOTS);
                                       w->grab().save(QString(TUNDREL_SCREENSHOTS "/dialog_%1.png").arg(id));
                                       press(w, 2);
                                   }},
                                   [&] { return open(id, m); });
        QVERIFY(!changed);
        QCOMPARE(windows, 1);
        QCOMPARE(QApplication::overrideCursor(), nullptr);
    }

    void refusedValueKeepsTheDialogOpen_data() {
        QTest::addColumn<int>("id");
        QTest::addColumn<int>("control");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("reopens");  // the operation's refusal: the dialog closes and opens again
        QTest::newRow("ratio 2") << 4003 << 4051 << "2" << "Please enter a number between 0 and 1." << false;
        QTest::newRow("order 3") << 4004 << 4055 << "3" << "Please enter an integer between 0 and 2." << false;
        QTest::newRow("name taken") << 4003 << 4053 << "cp" << "The function name alredy exist" << true;
    }
    void refusedValueKeepsTheDialogOpen() {
        QFETCH(int, id);
        QFETCH(int, control);
        QFETCH(QString, typed);
        QFETCH(QString, message);
        QFETCH(bool, reopens);
        Model m;
        QString shown;
        std::deque<Step> s{[&](QWidget* w) {
                               type(w, control, typed);
                               press(w, 1);
                               QCOMPARE(w->isVisible(), !reopens);
                               if (!reopens) press(w, 2);
                           },
                           [&](QWidget* box) {
                               shown = static_cast<QMessageBox*>(box)->text();
                               static_cast<QMessageBox*>(box)->button(QMessageBox::Ok)->click();
                           }};
        if (reopens) s.push_back([](QWidget* w) { press(w, 2); });
        QVERIFY(!drive(s, [&] { return open(id, m); }));
        QCOMPARE(shown, message);
    }

    // Browse: the chooser's filter and name, the chosen file in the dialog and
    // the other typed values kept; then OK runs the operation.
    void browseFillsTheMarkerFile() {
        Model m;
        const QString file = QDir::cleanPath(TUNDREL_EXAMPLES "/wingbody_ports.mrk");
        const bool added = drive(
            {[&](QWidget* w) {
                 type(w, 4055, "2");
                 type(w, 4054, "0.004");
                 type(w, 4056, "cp_ports");
                 press(w, 4058);
                 QCOMPARE(text(w, 4057), file);
                 QCOMPARE(text(w, 4055), "2");
                 QCOMPARE(text(w, 4054), "0.004");
                 QCOMPARE(text(w, 4056), "cp_ports");
                 press(w, 1);
             },
             [&](QWidget* w) {
                 auto* d = static_cast<QFileDialog*>(w);
                 QCOMPARE(d->nameFilters(), QStringList{"Markers files (*.mrk)"});
                 QCOMPARE(d->defaultSuffix(), "mrk");
                 QCOMPARE(QFileInfo(d->selectedFiles().value(0)).fileName(), "Markers.mrk");  // the initial name with the default extension
                 d->selectFile(file);
                 static_cast<QDialog*>(d)->accept();  // Open
             }},
            [&] {
                std::string markersName;  // the marker readers leave the set's name empty
                pressure_ports(m.field, markersName);
                return m.field.hasFunction("cp_ports");
            });
        QVERIFY(added);
    }

    void filtersTranslated_data() {
        QTest::addColumn<int>("chooser");
        QTest::addColumn<QStringList>("filters");
        QTest::newRow("camera") << 0 << QStringList{"Camera files (*.cam)"};
        QTest::newRow("images") << 1
                                << QStringList{"Princeton Files (*.spe)", "PCO Files (*.b16)", "PMIS Files (*.pmi)",
                                               "Photonic Files (*.flf)", "Photonic Files (*.tif)",
                                               "Pericolor Files (*.p)", "All Files (*)"};
    }
    void filtersTranslated() {
        QFETCH(int, chooser);
        QFETCH(QStringList, filters);
        const auto chosen = drive({[&](QWidget* w) {
                                      QCOMPARE(static_cast<QFileDialog*>(w)->nameFilters(), filters);
                                      static_cast<QFileDialog*>(w)->reject();
                                  }},
                                  [&] { return host.chooseFile(chooser == 0 ? cameraFileChooser() : imageFileChooser()); });
        QVERIFY(!chosen);
    }

    // Cancel in the progress dialog stops the correction with nothing added.
    void progressCancelStops() {
        Model m;
        host.setProgressDelay(0);
        watchProgress = true;
        SelfIlluminationParameters p = selfIlluminationDefaults("cp");
        p.checkVisibility = true;
        const auto r = drive({[&](QWidget* w) {
                                 QVERIFY(qobject_cast<QProgressDialog*>(w) != nullptr);
                                 QVERIFY(QApplication::overrideCursor() != nullptr);  // busy, Cancel can be hit
                                 QCOMPARE(QApplication::overrideCursor()->shape(), Qt::BusyCursor);
                                 QTest::mouseClick(w->findChild<QPushButton*>(), Qt::LeftButton);
                             }},
                             [&] { return selfIlluminate(m.field, "cp", p); });
        host.setProgressDelay(500);
        watchProgress = false;
        QVERIFY(r.stopped && !m.field.hasFunction("cp_si"));
        QCOMPARE(QApplication::overrideCursor(), nullptr);
    }

    // A message from another thread opens on the application's thread.
    void messageFromAWorkerThread() {
        QEventLoop loop;
        QString shown;
        drive({[&](QWidget* box) {
                  QCOMPARE(box->thread(), QApplication::instance()->thread());
                  shown = static_cast<QMessageBox*>(box)->text();
                  static_cast<QMessageBox*>(box)->button(QMessageBox::Ok)->click();
              }},
              [&] {
                  std::thread worker([&] {
                      HostScope scope(host);
                      tundrel::showMessage("Deflextion has small value");
                      QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
                  });
                  loop.exec();
                  worker.join();
                  return 0;
              });
        QCOMPARE(shown, "Deflextion has small value");
    }
};

QTEST_MAIN(QtHostTest)
#include "qt_host_test.moc"
