// How long a starting agent takes to restore a journal of undecided threats, and the memory they
// cost once queued: vorn-bench-journal-restore COUNT[@PERCENT]... prints one line per count. Each
// journal is written first (threats as the flood benchmark announces them: a 30-character name, a
// 60-character path, no detail; with @PERCENT, one byte flipped in that share of the records, as a
// bad sector or a bit flip would), then read as the bridge reads it and queued on a dialog thread
// as it queues them.
#include "cthreatjournal.h"
#include "cthreatqueue.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSysInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <malloc.h>

namespace {

long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return -1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList counts = app.arguments().mid(1);
    for (const QString &argument : counts) {
        const int count = argument.section(QLatin1Char('@'), 0, 0).toInt();
        const int percent = argument.section(QLatin1Char('@'), 1).toInt();
        QTemporaryDir home;
        const QString folder = home.filePath(QStringLiteral("vorn-defender"));
        QDir().mkpath(folder);
        QFile file(folder +
                   QStringLiteral("/journal2-%1-1").arg(QString::fromLatin1(QSysInfo::machineUniqueId())));
        if (count <= 0 || percent < 0 || percent > 100 || !home.isValid() ||
            !file.open(QIODevice::WriteOnly)) {
            std::fprintf(stderr, "vorn-bench-journal-restore: cannot write a journal of '%s' threats\n",
                         qPrintable(argument));
            return 2;
        }
        for (int i = 1; i <= count; ++i) {
            QByteArray record = CThreatJournal::threatRecord(
                quint64(i),
                {QStringLiteral("Trojan.Generic.%1").arg(i, 14, 10, QLatin1Char('0')), QString(),
                 QStringLiteral("/home/user/Downloads/%1.exe").arg(i, 35, 10, QLatin1Char('0')), false});
            if (percent > 0 && i % (100 / percent) == 0)
                record[record.size() / 2] = char(record[record.size() / 2] ^ 0x20);
            file.write(record);
        }
        const qint64 bytes = file.size();
        file.close();

        malloc_trim(0);
        const long before = residentKiB();
        QElapsedTimer clock;
        clock.start();
        auto *journal = new CThreatJournal(folder);
        auto *queue = new CAuthDialogThread;
        for (const SVirusInfo &info : journal->takeRestored())
            queue->addVirusInfo(info);
        const qint64 elapsed = clock.elapsed();
        const long grown = residentKiB() - before;
        std::printf("journal restored and queued %9d threats (%4lld MB, %2d%% damaged): %6.2f s, %7ld KiB, "
                    "%4ld bytes "
                    "per threat, %d queued\n",
                    count, bytes / 1000000, percent, double(elapsed) / 1000.0, grown, grown * 1024 / count,
                    int(queue->pending().size()));
        delete journal;
        delete queue;
    }
    return 0;
}
