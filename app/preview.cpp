// vorn-dialog-preview: shows the authorization dialog for a sample threat, for translators and
// visual review. It talks to the bus like the agent, so run it beside the daemon and risk-box
// service (or their stand-ins); the dialog acts on them for real.
#include "cauthdialog.h"

#include <QApplication>
#include <QCommandLineParser>

#include <clocale>
#include <libintl.h>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    setlocale(LC_ALL, "");
    bindtextdomain("vorn-defender", qEnvironmentVariableIsSet("VORN_LOCALEDIR")
                                        ? qgetenv("VORN_LOCALEDIR").constData()
                                        : "/usr/share/locale");
    bind_textdomain_codeset("vorn-defender", "UTF-8");

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows the authorization dialog for a sample threat. "
                                                    "VORN_LOCALEDIR names another catalogue folder."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("name"), QStringLiteral("The threat's name."));
    parser.addPositionalArgument(QStringLiteral("path"), QStringLiteral("The affected file."));
    parser.process(app);
    const QStringList args = parser.positionalArguments();
    if (args.size() != 2)
        parser.showHelp(2);

    registerDaemonMetaTypes();
    auto *dialog = new CAuthDialog(SVirusInfo{args.at(0), QString(), args.at(1), false});
    QObject::connect(dialog, &QObject::destroyed, &app, &QCoreApplication::quit);
    dialog->show();
    return app.exec();
}
