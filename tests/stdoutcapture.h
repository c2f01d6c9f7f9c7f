#ifndef STDOUTCAPTURE_H
#define STDOUTCAPTURE_H

#include <QFile>
#include <QString>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

// Captures what the code under test prints on standard output (its developer lines) while the
// object lives. QtTest reports on standard output too: restore() before comparing.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        m_file.open();
        std::fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture() { restore(); }

    QString text()
    {
        std::fflush(stdout);
        QFile reader(m_file.fileName());
        reader.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(reader.readAll());
    }

    void restore()
    {
        if (m_saved < 0)
            return;
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
        m_saved = -1;
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

#endif // STDOUTCAPTURE_H
