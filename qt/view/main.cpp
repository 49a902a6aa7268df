// tundrel-view: look at a model, run the library's operations on it with
// their dialogs, save the model or a picture.
#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

#include "qt/view/field_view.h"
#include "qt/view/viewer_window.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("tundrel-view");
    QApplication::setApplicationVersion(TUNDREL_VERSION);

    QCommandLineParser parser;
    parser.setApplicationDescription("Shows a model (APT, FLD, DAT, VRML, VTK) coloured by its fields, and runs "
                                     "the library's operations on it.");
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument("FILE", "The model to open");
    const QCommandLineOption screenshot("screenshot", "Save a picture of the window after loading FILE, then exit",
                                        "PNG");
    const QCommandLineOption size("size", "The window's size, e.g. 1100x720", "WxH");
    const QCommandLineOption field("field", "The field shown first", "NAME");
    parser.addOptions({screenshot, size, field});
    parser.process(app);

    tundrel::view::ViewerWindow window;
    if (parser.isSet(size)) {
        const QStringList wh = parser.value(size).split('x');
        bool okW = false, okH = false;
        const int w = wh.value(0).toInt(&okW), h = wh.value(1).toInt(&okH);
        if (wh.size() != 2 || !okW || !okH || w < 320 || h < 240 || w > 8192 || h > 8192) {
            qCritical("tundrel-view: --size: expects WxH, from 320x240 to 8192x8192");
            return 2;
        }
        window.resize(w, h);
    }
    const QStringList files = parser.positionalArguments();
    if (files.size() > 1) {
        qCritical("tundrel-view: one model at a time");
        return 2;
    }
    if (parser.isSet(screenshot) && files.isEmpty()) {
        qCritical("tundrel-view: --screenshot needs a FILE to show");
        return 2;
    }
    // Without a person to answer, messages go to standard error.
    tundrel::QuietHost quiet;
    if (parser.isSet(screenshot)) window.useHost(&quiet);
    window.show();
    if (!files.isEmpty()) {
        const bool opened = window.openFile(files[0]);
        if (parser.isSet(field)) window.showField(parser.value(field));
        if (parser.isSet(screenshot)) {
            if (!opened) return 1;
            // Let the window take its size and draw once, then save it.
            QApplication::processEvents();
            window.fieldView()->renderNow();
            QApplication::processEvents();
            return window.saveScreenshot(parser.value(screenshot)) ? 0 : 1;
        }
    }
    return QApplication::exec();
}
