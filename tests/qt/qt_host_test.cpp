// The Qt host on the library's own dialogs.
#include <QApplication>
#include <QDialog>
#include <QtTest>

#include "api/TundrelApi.h"
#include "qt/host/qt_host.h"

class QtHostTest : public QObject {
    Q_OBJECT
private slots:
    void buildsEveryTemplate();
};

void QtHostTest::buildsEveryTemplate() {
    tundrel::SelfIlluminationDialog d;
    std::unique_ptr<QDialog> w(tundrel::QtHost::buildDialog(d, nullptr));
    QCOMPARE(w->windowTitle(), QStringLiteral("Self-illumination parameters"));
}

QTEST_MAIN(QtHostTest)
#include "qt_host_test.moc"
