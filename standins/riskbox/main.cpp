// vorn-standin-riskbox: a development stand-in for the risk-box notification service.
#include "riskboxcontrol.h"
#include "riskboxstandin.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDBusConnection>

#include "serveonbus.h"
#include "transcript.h"

#include <cstdio>
#include <memory>

namespace {

const char kDescription[] = R"(Stand-in for the risk-box notification service, for development and tests.

Owns "com.tarsel.secriskbox" on the system bus (the bus DBUS_SYSTEM_BUS_ADDRESS names, when set) and
serves "/service", interface "com.tarsel.secriskbox": create(i, s, s) -> i hands out increasing ids;
addContent, addButton, setNotifyFold, setTimeout and show build and present a box. Each shown box is
printed as text; with a display (and without --headless) it is also a small window near the bottom-right
corner of the screen. Pressing a button emits signalResult(id, key as a number, ""), 1 for an empty key;
clicking the body of a box with a "default" pair reports 0 and prints the command it would run; a box
with a timeout of N that is not answered within N seconds closes and reports -1; a folded box shows its
first line until it is hovered or clicked.

Control interface: object "/control", interface "com.vorn.standin.Control":
  Result(i id, i state, s reserved)  emit signalResult with these values, for any id
  EmitRaw(s member, av args)         emit MEMBER from "/service" with exactly these values
  Press(i id, s label)               press a button of a shown box, as a user would
  Fail(s method, s error, s msg)     answer METHOD with a D-Bus error (empty error/msg: a default one)
  FailAfter(s method, i passing)     the same, but only after PASSING calls of METHOD went through
  Empty(s method)                    answer METHOD with a reply that carries no values
  Force(s "create", i id)            make create answer ID (negative: no box is made)
  Hold(s method)                     never answer METHOD: the caller waits for its own timeout
  Reset(s method)                    undo Fail/Force/Hold for METHOD, or for every method when empty
  Boxes() -> as                      every box with its lines, buttons, fold and timeout, as JSON
  Calls() -> as                      every call received so far, one JSON object each
  ClearCalls()                       forget the calls received so far
Bad input is answered with a D-Bus error and changes nothing.

From a shell, with vorn-standin-ctl:
  vorn-standin-ctl riskbox press ID LABEL | result ID STATE [RESERVED]
  vorn-standin-ctl riskbox fail METHOD [ERROR-NAME [MESSAGE]] | fail-after METHOD PASSING
  vorn-standin-ctl riskbox empty METHOD | force create ID | reset [METHOD]
  vorn-standin-ctl riskbox boxes | calls | clear-calls)";

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

int main(int argc, char *argv[])
{
    bool headless = !hasDisplay();
    for (int i = 1; i < argc; ++i)
        headless = headless || qstrcmp(argv[i], "--headless") == 0;
    // Windows need a GUI application; without them no display connection is attempted at all.
    std::unique_ptr<QCoreApplication> app(headless ? new QCoreApplication(argc, argv)
                                                   : new QApplication(argc, argv));
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(kDescription));
    parser.addHelpOption();
    const QCommandLineOption headlessOption(QStringLiteral("headless"),
                                            QStringLiteral("Print boxes only, even with a display."));
    const QCommandLineOption answerOption(
        QStringLiteral("answer"),
        QStringLiteral("Press the button LABEL on the next shown box that offers it; repeat for several "
                       "answers, used once each, in order. Without it, boxes wait for a person or the "
                       "control interface."),
        QStringLiteral("LABEL"));
    const QCommandLineOption delayOption(
        QStringLiteral("answer-delay"),
        QStringLiteral("Milliseconds before an answer is given (default 500)."), QStringLiteral("MS"),
        QStringLiteral("500"));
    const QCommandLineOption quietOption(QStringLiteral("quiet"),
                                         QStringLiteral("Do not print boxes and answers."));
    const QCommandLineOption timestampsOption(
        QStringLiteral("timestamps"),
        QStringLiteral("Start each printed line with the monotonic clock in seconds."));
    const QCommandLineOption snapshotsOption(
        QStringLiteral("snapshots"),
        QStringLiteral("Save a picture of each box window, as shown on the display, as DIR/box-ID.png."),
        QStringLiteral("DIR"));
    parser.addOptions(
        {headlessOption, answerOption, delayOption, quietOption, timestampsOption, snapshotsOption});
    parser.process(*app);

    setTranscriptTimestamps(parser.isSet(timestampsOption));
    RiskBoxStandIn::Options options;
    options.windows = !headless;
    options.quiet = parser.isSet(quietOption);
    options.answers = parser.values(answerOption);
    options.snapshots = parser.value(snapshotsOption);
    bool delayOk = false;
    options.answerDelayMs = parser.value(delayOption).toInt(&delayOk);
    if (!delayOk || options.answerDelayMs < 0) {
        std::fprintf(stderr, "vorn-standin-riskbox: --answer-delay takes a number of milliseconds\n");
        return 2;
    }
    if (auto *gui = qobject_cast<QApplication *>(app.get()))
        gui->setQuitOnLastWindowClosed(false);

    RiskBoxStandIn service(options);
    RiskBoxControl control(service);
    if (!serveOnBus(&service, QStringLiteral("/service"), &control, QStringLiteral("com.tarsel.secriskbox"),
                    "vorn-standin-riskbox"))
        return 1;
    if (!options.quiet)
        printTranscript(QStringLiteral("riskbox: serving com.tarsel.secriskbox /service on %1 (%2)")
                            .arg(QDBusConnection::systemBus().baseService(),
                                 headless ? QStringLiteral("headless") : QStringLiteral("windows")));
    return app->exec();
}
