// vorn-standin-daemon: a development stand-in for the virus-scan daemon.
#include "daemoncontrol.h"
#include "virusdaemonstandin.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>

#include "serveonbus.h"
#include "transcript.h"

namespace {

const char kDescription[] = R"(Stand-in for the virus-scan daemon, for development and tests.

Owns "com.vorn.virus" on the system bus (the bus DBUS_SYSTEM_BUS_ADDRESS names, when set) and serves
"/daemon", interface "com.vorn.virus.daemon", with every method of the daemon's interface file. It
keeps a quarantine area, a trust zone for files and extensions, a scan mode and status, an engine list
and a scan configuration, and prints each call and reply on standard output.

Control interface: object "/control", interface "com.vorn.standin.Control":
  Emit(s signal, as args)        emit a daemon signal from "/daemon" (arguments as for "emit" below)
  EmitMany(s signal, as args, i n) the same, N times in a row; {n} in an arg counts 0, 1, ...
  EmitRaw(s member, av args)     emit MEMBER from "/daemon" with exactly these values, whatever
                                 their signature (for tests of malformed signals)
  Fail(s method, s error, s msg) answer METHOD with a D-Bus error (empty error/msg: a default one)
  Force(s method, i value)       answer METHOD with VALUE and do nothing else
  Short(s method, i value)       answer METHOD with VALUE alone (no list or record after it)
  Hold(s method)                 never answer METHOD: the caller waits for its own timeout
  Reset(s method)                undo Fail/Force/Short/Hold for METHOD, or for every method when empty
  Calls() -> as                  every call received so far, one JSON object each
  ClearCalls()                   forget the calls received so far
  State() -> s                   quarantine, trust zone and scan state as JSON
Bad input (unknown signal or method, wrong argument count, a number or flag that is not one) is
answered with org.freedesktop.DBus.Error.InvalidArgs and changes nothing.

From a shell, with vorn-standin-ctl:
  vorn-standin-ctl daemon emit signal_showAuthDialog NAME DETAIL PATH FLAG
  vorn-standin-ctl daemon emit signal_sysPop FILE          (FILE is put in quarantine first)
  vorn-standin-ctl daemon emit signal_scanFinished [NAME DETAIL PATH FLAG]...
  vorn-standin-ctl daemon emit signal_scanDetailInfo TEXT N1 | signal_scanItemEnd N1 N2 TEXT
  vorn-standin-ctl daemon emit signal_customScanItemBegin NAME | signal_rightBeginScan FILE
  vorn-standin-ctl daemon emit signal_dealFinished N | signal_scanItemBegin N | signal_rightClicked
  vorn-standin-ctl daemon fail METHOD [ERROR-NAME [MESSAGE]]
  vorn-standin-ctl daemon force METHOD VALUE
  vorn-standin-ctl daemon short METHOD VALUE
  vorn-standin-ctl daemon reset [METHOD]
  vorn-standin-ctl daemon calls | clear-calls | state
With --timestamps each printed line starts with the system-wide monotonic clock in seconds.)";

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(kDescription));
    parser.addHelpOption();
    const QCommandLineOption quiet(QStringLiteral("quiet"),
                                   QStringLiteral("Do not print calls and replies."));
    parser.addOption(quiet);
    const QCommandLineOption timestamps(
        QStringLiteral("timestamps"),
        QStringLiteral("Start each printed line with the monotonic clock in seconds."));
    parser.addOption(timestamps);
    parser.process(app);

    setTranscriptTimestamps(parser.isSet(timestamps));
    registerDaemonMetaTypes();
    VirusDaemonStandIn daemon(parser.isSet(quiet));
    DaemonControl control(daemon);
    if (!serveOnBus(&daemon, QStringLiteral("/daemon"), &control, QStringLiteral("com.vorn.virus"),
                    "vorn-standin-daemon"))
        return 1;
    if (!parser.isSet(quiet))
        printTranscript(QStringLiteral("daemon: serving com.vorn.virus /daemon on %1")
                            .arg(QDBusConnection::systemBus().baseService()));
    return app.exec();
}
