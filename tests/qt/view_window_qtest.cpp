// The viewer's window driven as a person drives it: a model opened, dragged
// and zoomed, self-illumination run through its dialog, files saved. Every
// dialog is answered by pressing its button and saved as a screenshot.
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QDir>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSet>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include "qt/view/field_view.h"
#include "qt/view/viewer_window.h"

using tundrel::view::ViewerWindow;

namespace {

const QString kModel = TUNDREL_SOURCE_DIR "/examples/wingbody.fld";

void shoot(QWidget* w, const QString& name) {
    QDir().mkpath(TUNDREL_SHOTS);
    QVERIFY2(w->grab().save(QString(TUNDREL_SHOTS "/%1.png").arg(name)), qPrintable(name));
}

// Waits for the modal dialog titled `title`, saves its picture, lets `check`
// look at it and presses the button labelled `button`.
struct DialogAnswer {
    QString title, button, shot;
    std::function<void(QWidget*)> check = [](QWidget*) {};
    bool answered = false;
    std::unique_ptr<QTimer> timer = std::make_unique<QTimer>();

    void arm() {
        QObject::connect(timer.get(), &QTimer::timeout, [this] {
            QWidget* d = QApplication::activeModalWidget();
            // No title: any message box.
            if (d == nullptr || !d->isVisible() ||
                (title.isEmpty() ? qobject_cast<QMessageBox*>(d) == nullptr : d->windowTitle() != title))
                return;
            timer->stop();
            shoot(d, shot);
            check(d);
            for (QPushButton* b : d->findChildren<QPushButton*>())
                if (b->text().remove('&') == button) {
                    answered = true;
                    b->click();
                    return;
                }
        });
        timer->start(50);
    }
};

int distinctColours(const QImage& image) {
    QSet<QRgb> seen;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4) seen.insert(image.pixel(x, y));
    return static_cast<int>(seen.size());
}

QStringList column(const QTableWidget* t, int c) {
    QStringList list;
    for (int r = 0; r < t->rowCount(); ++r) list << t->item(r, c)->text();
    return list;
}

}  // namespace

class ViewWindowTest : public QObject {
    Q_OBJECT
    ViewerWindow* w = nullptr;

private slots:
    void init() {
        w = new ViewerWindow;
        w->resize(1100, 720);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        QVERIFY(w->openFile(kModel));
        w->fieldView()->renderNow();
    }
    void cleanup() { delete w; }

    void theOpenDialogListsEveryFormat() {
        const QString filter = ViewerWindow::modelFilter();
        for (const tundrel::GeometryFormat& f : tundrel::geometryFormats())
            for (std::string_view e : f.extensions)
                QVERIFY2(filter.section(";;", 0, 0).contains("*." + QString::fromStdString(std::string(e))),
                         qPrintable(filter));
    }

    void opensTheModelColouredByCp() {
        QCOMPARE(w->currentField(), QString("cp"));
        QCOMPARE(w->findChild<QComboBox*>("fieldBox")->currentText(), QString("cp"));
        QVERIFY2(distinctColours(w->fieldView()->image()) > 30, "the model is drawn in many colours");
        QVERIFY(column(w->findChild<QTableWidget*>("fieldTable"), 0).contains("cp"));
        QVERIFY(w->findChild<QTableWidget*>("patchTable")->rowCount() >= 1);
        QApplication::processEvents();
        shoot(w, "window_cp");
    }

    void selfIlluminationThroughItsDialogShowsCpSi() {
        DialogAnswer answer{"Self-illumination parameters", "OK", "dialog_self_illumination"};
        answer.check = [](QWidget* d) {
            QVERIFY(!d->findChildren<QLabel*>().isEmpty());
            QVERIFY(QApplication::overrideCursor() == nullptr);  // no wait cursor over a dialog
        };
        answer.arm();
        w->runSelfIllumination();
        QVERIFY(answer.answered);
        QCOMPARE(w->currentField(), QString("cp_si"));
        const auto cp = w->model().values("cp"), si = w->model().values("cp_si");
        QCOMPARE(si.size(), cp.size());
        QVERIFY(!std::equal(cp.begin(), cp.end(), si.begin()));
        QVERIFY(column(w->findChild<QTableWidget*>("fieldTable"), 0).contains("cp_si"));
        w->fieldView()->renderNow();
        QVERIFY(distinctColours(w->fieldView()->image()) > 30);
        QApplication::processEvents();
        shoot(w, "window_cp_si");
    }

    void cancelledSelfIlluminationAddsNothing() {
        DialogAnswer answer{"Self-illumination parameters", "Cancel", "dialog_self_illumination_cancel"};
        answer.arm();
        w->runSelfIllumination();
        QVERIFY(answer.answered);
        QCOMPARE(w->model().scalarNames(), std::vector<std::string>{"cp"});
    }

    void pressurePortsThroughItsDialogShowTheirField() {
        DialogAnswer answer{"Pressure ports parameters", "OK", "dialog_pressure_ports"};
        answer.check = [](QWidget* d) {
            // The edits in the template's order: order, deflexion, name, marker file.
            const QList<QLineEdit*> edits = d->findChildren<QLineEdit*>();
            QCOMPARE(edits.size(), 4);
            edits[1]->setText("0.004");
            edits[2]->setText("cp_ports");
            edits[3]->setText(TUNDREL_SOURCE_DIR "/examples/wingbody_ports.mrk");
        };
        answer.arm();
        w->runPressurePorts();
        QVERIFY(answer.answered);
        QCOMPARE(w->currentField(), QString("cp_ports"));
        QVERIFY(column(w->findChild<QTableWidget*>("fieldTable"), 0).contains("cp_ports"));
    }

    void meshOperations_data() {
        QTest::addColumn<QString>("action");
        QTest::addColumn<int>("facePatches");
        QTest::addColumn<int>("nodesTimes2");  // nodes afterwards, twice, over the nodes before
        QTest::addColumn<int>("facesTimes");
        QTest::newRow("triangulate") << "triangulateAction" << 3 << 2 << 2;
        QTest::newRow("refine") << "refineAction" << 3 << 0 << 8;  // triangulated first, then split in four
        QTest::newRow("mirror") << "mirrorAction" << 6 << 4 << 4;   // triangulated first, then doubled
    }
    void meshOperations() {
        QFETCH(QString, action);
        QFETCH(int, facePatches);
        QFETCH(int, nodesTimes2);
        QFETCH(int, facesTimes);
        const long long nodes = w->model().nodeCount(), faces = w->model().faceCount();
        DialogAnswer answer{"Mirror", "OK", "dialog_mirror"};
        if (action == "mirrorAction") answer.arm();
        w->findChild<QAction*>(action)->trigger();
        int face = 0;
        for (const auto& p : w->model().patches()) face += !p.structured;
        QCOMPARE(face, facePatches);
        if (nodesTimes2 > 0) QCOMPARE(2 * w->model().nodeCount(), nodesTimes2 * nodes);
        QVERIFY(w->model().nodeCount() > nodes || nodesTimes2 == 2);
        QCOMPARE(w->model().faceCount(), facesTimes * faces);
        QCOMPARE(w->currentField(), QString("cp"));
        w->fieldView()->renderNow();
        QVERIFY(distinctColours(w->fieldView()->image()) > 30);
    }

    void aFileThatCannotBeReadIsNamedInAMessage() {
        const QString missing = QDir::tempPath() + "/no such model.fld";
        DialogAnswer answer{"", "OK", "message_cannot_read"};
        answer.check = [&](QWidget* d) {
            auto* box = qobject_cast<QMessageBox*>(d);
            QVERIFY(box != nullptr);
            QVERIFY2(box->text().contains(missing), qPrintable(box->text()));
        };
        answer.arm();
        QVERIFY(!w->openFile(missing));
        QVERIFY(answer.answered);
        QCOMPARE(w->currentField(), QString("cp"));  // the model shown stays
    }

    void dragTurnsAndWheelZooms() {
        tundrel::view::FieldView* v = w->fieldView();
        const tundrel::View before = v->view();
        const QPoint c = v->rect().center();
        QTest::mousePress(v, Qt::LeftButton, {}, c);
        QTest::mouseMove(v, c + QPoint(40, 20));
        QApplication::processEvents();
        QCOMPARE(v->lastSamples(), tundrel::view::FieldView::kDragSamples);  // quick frames while dragging
        QTest::mouseRelease(v, Qt::LeftButton, {}, c + QPoint(40, 20));
        QApplication::processEvents();
        QCOMPARE(v->lastSamples(), tundrel::view::FieldView::kFullSamples);
        QCOMPARE(v->view().azimuth, before.azimuth - 20.0);
        QCOMPARE(v->view().elevation, before.elevation + 10.0);
        QWheelEvent wheel(c, v->mapToGlobal(c), {}, {0, 120}, Qt::NoButton, {}, Qt::NoScrollPhase, false);
        QApplication::sendEvent(v, &wheel);
        QVERIFY(v->view().zoom > before.zoom);
        const int frames = v->frames();
        QApplication::processEvents();  // the frame waits for the events to settle
        QVERIFY(v->frames() > frames);
    }

    void savesModelAndPictureAndTheyReadBack() {
        QTemporaryDir dir;
        const QString model = dir.filePath("copy.vtm"), picture = dir.filePath("cp.png");
        QVERIFY(w->saveModel(model));
        QVERIFY(w->savePicture(picture));
        const QImage image(picture);
        QCOMPARE(image.width(), 1600);
        QVERIFY(distinctColours(image) > 30);
        const long long nodes = w->model().nodeCount();
        QVERIFY(w->openFile(model));
        QCOMPARE(w->model().nodeCount(), nodes);
        QCOMPARE(w->currentField(), QString("cp"));
    }

    void theApplicationSavesItsOwnScreenshot() {
        const QString shot = TUNDREL_SHOTS "/tundrel-view.png";
        QFile::remove(shot);
        QCOMPARE(QProcess::execute(qEnvironmentVariable("TUNDREL_VIEW"), {"--screenshot", shot, kModel}), 0);
        QCOMPARE(QImage(shot).size(), QSize(1100, 720));
        QCOMPARE(QProcess::execute(qEnvironmentVariable("TUNDREL_VIEW"), {"--screenshot", shot, "missing.fld"}), 1);
    }
};

QTEST_MAIN(ViewWindowTest)
#include "view_window_qtest.moc"
