#ifndef CVORNGENLOG_H
#define CVORNGENLOG_H

#include <QString>

// Writes the security centre's events through libhalvo_log. Stateless: safe to call from the
// main thread and the dialog thread at once.
class CVornGenLog
{
public:
    // Module codes of the shared vocabulary; this agent always logs as VirusScan.
    enum Module
    {
        VirusScan = 5
    };
    // Level -1 selects the library's plain entry point; any other value goes to halvo_log_v2.
    enum Level
    {
        PlainEntry = -1,
        Failure = 1,
        Summary = 2,
        Info = 3
    };

    virtual ~CVornGenLog();

    static CVornGenLog *getInstance();

    // Coded form: the result code is written as its name ("operation successful", ...).
    int writeLog(int module, int result, const QString &message, int level);
    // Free-text form: the caller's result text and operation name are written as they are.
    int writeLog(int module, const QString &result, const QString &operation, int level);

    QString moduleName(int module) const;
    QString resultName(int result) const;
    int deviceTypeName(int code, QString &name) const;
    int deviceName(int code, QString &name) const;

private:
    CVornGenLog() = default;
    void write(int level, const QString &module, const QString &operation, const QString &result) const;
};

#endif // CVORNGENLOG_H
