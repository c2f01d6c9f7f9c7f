#ifndef EVENTLOGFILE_H
#define EVENTLOGFILE_H

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// The file the stand-in event-log library writes to (HALVO_LOG_FILE), read back line by line.
class EventLogFile
{
public:
    EventLogFile() : m_path(m_dir.filePath(QStringLiteral("events.jsonl")))
    {
        qputenv("HALVO_LOG_FILE", m_path.toUtf8());
    }

    QString path() const { return m_path; }

    QList<QByteArray> lines() const
    {
        QFile file(m_path);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        QList<QByteArray> result = file.readAll().split('\n');
        if (!result.isEmpty() && result.last().isEmpty())
            result.removeLast();
        return result;
    }

    // Each line as a JSON object; a line that is not one yields an empty object.
    QList<QJsonObject> events() const
    {
        QList<QJsonObject> result;
        for (const QByteArray &line : lines())
            result.append(QJsonDocument::fromJson(line).object());
        return result;
    }

    // The "operation" texts in order: what most assertions compare.
    QStringList operations() const
    {
        QStringList result;
        for (const QJsonObject &event : events())
            result.append(event.value(QStringLiteral("operation")).toString());
        return result;
    }

    // Each event as "operation|result|level" (level "-" for the plain entry point): compact enough
    // for tables of expected sequences.
    QStringList summary() const
    {
        QStringList result;
        for (const QJsonObject &event : events()) {
            const QJsonValue level = event.value(QStringLiteral("level"));
            result.append(event.value(QStringLiteral("operation")).toString() + QLatin1Char('|') +
                          event.value(QStringLiteral("result")).toString() + QLatin1Char('|') +
                          (level.isUndefined() ? QStringLiteral("-") : QString::number(level.toInt())));
        }
        return result;
    }

    void clear() { QFile::remove(m_path); }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

#endif // EVENTLOGFILE_H
