// vorn-virus-agent: the desktop-session agent of the virus protection.
#include "cvirusdbusmiddle.h"

#include <QApplication>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <libintl.h>
#include <unistd.h>

int main(int argc, char *argv[])
{
    // An output pipe whose reader has gone (a session's logger that ended) costs the lines written
    // to it, never the agent; Qt may write to standard error as it starts.
    std::signal(SIGPIPE, SIG_IGN);
    // Qt's own options are honoured; the agent has none of its own.
    QApplication app(argc, argv);
    // Developer lines reach a pipe or journal as they happen.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    // Deliberate: nothing is connected, translated or named before the session has settled.
    sleep(5);

    setlocale(LC_ALL, "");
    bindtextdomain("vorn-defender", "/usr/share/locale");
    bind_textdomain_codeset("vorn-defender", "UTF-8");
    textdomain("vorn-defender");
    QCoreApplication::setOrganizationName(QStringLiteral("TarselSoft"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("tarsel.com"));
    QCoreApplication::setApplicationName(QStringLiteral("vorn-defender"));

    // The bridge connects to both peers and lives until the process ends.
    CVirusDbusMiddle::getInstance();
    return app.exec();
}
