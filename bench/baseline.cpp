// vorn-bench-baseline: the least a process like the agent can cost: a Qt Widgets application with
// the same two system-bus connections (the shared one and a private one), and nothing else.
#include <QApplication>
#include <QDBusConnection>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QDBusConnection shared = QDBusConnection::systemBus();
    QDBusConnection privateConnection =
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("vorn_bench_baseline"));
    if (!shared.isConnected() || !privateConnection.isConnected())
        return 1;
    return app.exec();
}
