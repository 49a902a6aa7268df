// The Qt host on the library's own calls: each window it opens takes the next
// queued step, in the order the windows appear.
#include <QtTest>
#include <QtWidgets>

#include <deque>
#include <functional>
#include <thread>

#include "api/TundrelApi.h"
#include "qt/host/qt_host.h"

using namespace tundrel;
using Step = std::function<void(QWidget*)>;

namespace {

QWidget* control(QWidget* w, int id) { return w->findChild<QWidget*>(QString::number(id)); }
QString text(QWidget* w, int id) {
    if (auto* e = qobject_cast<QLineEdit*>(control(w, id))) return e->text();
    return static_cast<QAbstractButton*>(control(w, id))->isChecked() ? "1" : "0";
}
void type(QWidget* w, int id, const QString& s) {
    static_cast<QLineEdit*>(control(w, id))->clear();
    QTest::keyClicks(control(w, id), s);
}
void press(QWidget* w, int id) { QTest::mouseClick(control(w, id), Qt::LeftButton); }
Step answerBox(QString& shown) {
    return [&shown](QWidget* box) {
        shown = static_cast<QMessageBox*>(box)->text();
        static_cast<QMessageBox*>(box)->button(QMessageBox::Ok)->click();
    };
}

// The example model; open() shows a dialog through the library's own call.
struct Model {
    FieldMasterD field;
    Model() {
        region reg;
        region_fe fe;
        z::ambientFlow flow;
        if (import_data(TUNDREL_EXAMPLES "/wingbody.fld", false, reg, fe)) Region_to_fieldMaster(reg, fe, field, flow);
    }
    bool open(int id, std::string source = "cp") {
        const int before = field.functionCount();
        BusyScope busy;
        if (bool direction = false; id == kActiveAxesDialog) return chooseActiveAxes(true, false, true, direction);
        id == kSelfIlluminationDialog ? self_illumination(field, source) : pressure_ports(field, source);
        return field.functionCount() != before;
    }
};

}  // namespace

class QtHostTest : public QObject {
    Q_OBJECT
    QtHost host;
    std::deque<Step> steps;
    bool watchProgress = false;  // a slow run under the sanitizers may show one anyway

    template <class F>
    auto drive(std::deque<Step> queued, F call) {
        steps = std::move(queued);
        host.onDialogShown([this](QWidget* w) {
            if (qobject_cast<QProgressDialog*>(w) != nullptr && !watchProgress) return;
            if (steps.empty()) QTest::qFail(qPrintable("unexpected window " + w->windowTitle()), __FILE__, __LINE__);
            else std::exchange(steps, {steps.begin() + 1, steps.end()}).front()(w);
            if (auto* d = qobject_cast<QDialog*>(w); d && d->isVisible() && QTest::currentTestFailed()) d->reject();
        });
        HostScope scope(host);
        auto r = call();
        [&] { QVERIFY2(steps.empty(), "a window never came"); }();
        return r;
    }

private slots:
    // Each dialog with its title, labels and texts, and no wait cursor; a
    // refused value shows its message and keeps what was typed; Cancel changes nothing.
    void dialogs() {
        struct Row {
            int id;
            QString title;
            QStringList labels, texts;
            int control;  // a refused value typed here, and its message
            QString typed, message;
        };
        const Row rows[] = {
            {4003, "Self-illumination parameters",
             {"Complete diffusion reflection ratio (0 - 1)", "Check visibility (recommented only for selected nodes)",
              "New field name", "OK", "Cancel"},
             {"4051=1", "4052=0", "4053=cp_si"}, 4051, "2", "Please enter a number between 0 and 1."},
            {4004, "Pressure ports parameters",
             {"Order of the convergence approximation", "Maximum deflexion of markers from the geometry",
              "New field name", "Markers file", "Browse..."},
             {"4055=0", "4054=0", "4056=cp_pp", "4057=Untitled.mrk"}, 4055, "3",
             "Please enter an integer between 0 and 2."},
            {4005, "Active axes for the markers",
             {"Active axes", "Direction of the markers projection", "Normal", "Reverse"},
             {"4059=X", "4060=Z", "4061=0", "4062=1"}, 0, "", ""}};
        for (const auto& row : rows) {
            Model m;
            QString shown;
            std::deque<Step> s{[&](QWidget* w) {
                QCOMPARE(w->windowTitle(), row.title);
                QStringList captions;
                for (auto* l : w->findChildren<QLabel*>()) captions << l->text();
                for (auto* b : w->findChildren<QAbstractButton*>()) captions << b->text();
                for (auto* g : w->findChildren<QGroupBox*>()) captions << g->title();
                for (const QString& l : row.labels) QVERIFY2(captions.contains(l), qPrintable(l));
                for (const QString& t : row.texts) QCOMPARE(t.left(5) + text(w, t.left(4).toInt()), t);
                QCOMPARE(QApplication::overrideCursor(), nullptr);
                QDir().mkpath(TUNDREL_SCREENSHOTS);
                w->grab().save(QString(TUNDREL_SCREENSHOTS "/dialog_%1.png").arg(row.id));
                if (row.control != 0) {
                    type(w, row.control, row.typed);
                    press(w, 1);
                    QVERIFY(w->isVisible() && text(w, row.control) == row.typed);
                }
                press(w, 2);
            }};
            if (row.control != 0) s.push_back(answerBox(shown));
            QVERIFY(!drive(s, [&] { return m.open(row.id); }));
            QVERIFY(shown == row.message && QApplication::overrideCursor() == nullptr);
        }
    }

    // Browse: the chooser's filter, extension and name; the chosen file
    // filled in, the other typed values kept; OK runs the operation (on the
    // markers' own, empty, field name).
    void browseFillsTheMarkerFile() {
        Model m;
        const QString file = TUNDREL_EXAMPLES "/wingbody_ports.mrk";
        QVERIFY(drive({[&](QWidget* w) {
                          for (auto [id, value] : {std::pair{4055, "2"}, {4054, "0.004"}, {4056, "cp_ports"}})
                              type(w, id, value);
                          press(w, 4058);
                          QVERIFY(text(w, 4057) == file && text(w, 4055) == "2" && text(w, 4054) == "0.004");
                          QCOMPARE(text(w, 4056), "cp_ports");
                          press(w, 1);
                      },
                      [&](QWidget* w) {
                          auto* d = static_cast<QFileDialog*>(w);
                          QCOMPARE(d->nameFilters(), QStringList{"Markers files (*.mrk)"});
                          QCOMPARE(d->defaultSuffix(), "mrk");
                          QCOMPARE(QFileInfo(d->selectedFiles().value(0)).fileName(), "Markers.mrk");
                          d->selectFile(file);
                          static_cast<QDialog*>(d)->accept();  // Open
                      }},
                      [&] { return m.open(kPressurePortsDialog, "") && m.field.hasFunction("cp_ports"); }));
    }

    // Cancel in the progress dialog stops the correction with nothing added.
    void progressCancelStops() {
        Model m;
        host.setProgressDelay(0);
        watchProgress = true;
        SelfIlluminationParameters p = selfIlluminationDefaults("cp");
        p.checkVisibility = true;
        const auto r = drive({[&](QWidget* w) {
                                 QVERIFY(QApplication::overrideCursor() != nullptr);  // busy, but Cancel takes clicks
                                 QCOMPARE(QApplication::overrideCursor()->shape(), Qt::BusyCursor);
                                 QTest::mouseClick(w->findChild<QPushButton*>(), Qt::LeftButton);
                             }},
                             [&] { return selfIlluminate(m.field, "cp", p); });
        host.setProgressDelay(500);
        watchProgress = false;
        QVERIFY(r.stopped && !m.field.hasFunction("cp_si") && QApplication::overrideCursor() == nullptr);
    }

    // A message from another thread opens on the application's thread.
    void messageFromAWorkerThread() {
        QEventLoop loop;
        QString shown;
        drive({answerBox(shown)}, [&] {
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
