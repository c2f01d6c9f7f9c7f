#ifndef STANDINPROCESS_H
#define STANDINPROCESS_H

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

// One stand-in peer (the daemon or the risk-box service) running in a process of its own on the
// test's private bus: a peer served on the test's own thread would deadlock the blocking calls.
class StandInProcess
{
public:
    StandInProcess(const QString &program, const QString &service, const QStringList &arguments = {})
        : m_program(program), m_service(service), m_arguments(arguments)
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~StandInProcess() { stop(); }

    // Starts the stand-in and waits until it owns its service name.
    bool start()
    {
        m_process.start(m_program, m_arguments);
        if (!m_process.waitForStarted(5000))
            return false;
        QElapsedTimer timer;
        timer.start();
        while (!QDBusConnection::systemBus().interface()->isServiceRegistered(m_service)) {
            if (timer.hasExpired(10000) || m_process.state() != QProcess::Running)
                return false;
            QTest::qWait(20);
        }
        return true;
    }

    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(2000);
    }

    QString output() { return QString::fromUtf8(m_output += m_process.readAll()); }

    // Calls the stand-in's control interface and returns the reply (an error reply included).
    QDBusMessage control(const QString &method, const QVariantList &arguments = {}) const
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            m_service, QStringLiteral("/control"), QStringLiteral("com.vorn.standin.Control"), method);
        call.setArguments(arguments);
        return QDBusConnection::systemBus().call(call);
    }

    // The calls that reached the stand-in, oldest first, as {"method", "signature", "args"}.
    QList<QJsonObject> calls() const
    {
        QList<QJsonObject> result;
        const QDBusMessage reply = control(QStringLiteral("Calls"));
        for (const QString &line : reply.arguments().value(0).toStringList())
            result.append(QJsonDocument::fromJson(line.toUtf8()).object());
        return result;
    }

    QStringList callNames() const
    {
        QStringList names;
        for (const QJsonObject &call : calls())
            names.append(call.value(QStringLiteral("method")).toString());
        return names;
    }

    // The calls as "method [args as JSON]", e.g. addContent [1,"Discover virus threat"].
    QStringList callLines() const
    {
        QStringList lines;
        for (const QJsonObject &call : calls())
            lines.append(call.value(QStringLiteral("method")).toString() + QLatin1Char(' ') +
                         QString::fromUtf8(QJsonDocument(call.value(QStringLiteral("args")).toArray())
                                               .toJson(QJsonDocument::Compact)));
        return lines;
    }

    QJsonObject state() const
    {
        const QDBusMessage reply = control(QStringLiteral("State"));
        return QJsonDocument::fromJson(reply.arguments().value(0).toString().toUtf8()).object();
    }

private:
    QProcess m_process;
    QString m_program;
    QString m_service;
    QStringList m_arguments;
    QByteArray m_output;
};

#endif // STANDINPROCESS_H
