// vorn-screenshots: the agent's side of scripts/screenshots.sh. On an X server, beside the stand-ins
// (the risk-box one saving its windows), it raises a threat box through the bridge, takes the
// pictures of the agent's own windows as they appear (the trust-zone failure box the answer to that
// box brings, then the authorization dialog) and quits.
#include "cauthdialog.h"
#include "cvirusdbusmiddle.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>

#include <clocale>
#include <cstdio>
#include <functional>
#include <libintl.h>

namespace {

// A window as the display shows it, once it has been up long enough to be painted.
void takePicture(QWidget *window, const QString &file, const std::function<void()> &then)
{
    QTimer::singleShot(500, window, [window, file, then] {
        if (!window->screen()->grabWindow(window->winId()).save(file))
            std::fprintf(stderr, "vorn-screenshots: could not save %s\n", qPrintable(file));
        then();
    });
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: vorn-screenshots LOCALEDIR OUTDIR\n");
        return 2;
    }
    // The catalogues of the build, not necessarily installed where the agent looks.
    setlocale(LC_ALL, "");
    bindtextdomain("vorn-defender", argv[1]);
    bind_textdomain_codeset("vorn-defender", "UTF-8");
    textdomain("vorn-defender");
    const QString out = QString::fromLocal8Bit(argv[2]);

    const SVirusInfo threat{QStringLiteral("EICAR-Test-File"), QString(),
                            QStringLiteral("/home/demo/Downloads/eicar.com"), true};
    CVirusDbusMiddle::getInstance()->get_signalResult(threat);

    // The answer to the threat box arrives from the script; the failure box it brings is modal, so
    // it is looked for from a timer, which runs inside its event loop too.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *box = qobject_cast<QMessageBox *>(widget);
            if (!box || !box->isVisible())
                continue;
            watch.stop();
            takePicture(box, out + QStringLiteral("/trust-failure.png"), [box, &out, &threat] {
                box->buttons().first()->click();
                auto *dialog = new CAuthDialog(threat);
                dialog->show();
                // exit, not quit: Qt 6's quit first asks every window to close, and the dialog
                // ignores a close (it deletes itself instead), so the program would never end.
                takePicture(dialog, out + QStringLiteral("/auth-dialog.png"),
                            [] { QCoreApplication::exit(0); });
            });
        }
    });
    watch.start(100);
    return app.exec();
}
