#ifndef JOURNALPROMISES_H
#define JOURNALPROMISES_H

// What the journal promises for any bytes in its file: checked by the fuzzer on whatever it makes,
// and by the suite on the fuzzer's corpus and on every input that once broke a promise.
#include "cthreatjournal.h"

#include <QDir>
#include <QFile>
#include <QStringList>

// Each threat as "name|detail|path|flag".
inline QStringList threatTexts(const SVirusInfoList &threats)
{
    QStringList texts;
    for (const SVirusInfo &t : threats)
        texts << t.virusName + '|' + t.virusDetail + '|' + t.virusPath + '|' + QString::number(t.virusFlag);
    return texts;
}

// The undecided threats of every journal in directory, as threatTexts() writes them.
inline QStringList undecidedIn(const QString &directory)
{
    QByteArray bytes;
    for (const QFileInfo &journal : QDir(directory).entryInfoList({"journal2-*"})) {
        QFile file(journal.filePath());
        bytes += file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    return threatTexts(CThreatJournal::parse(bytes, bytes.size()).threats);
}

// The promise the bytes break, or an empty text.
inline QString brokenJournalPromise(const QByteArray &data)
{
    using J = CThreatJournal;
    const J::Contents read = J::parse(data, data.size());
    // Numbers rise, stay in range, and the next one is above them all: it can neither wrap nor repeat.
    quint64 last = 0;
    for (const J::Record &record : read.records) {
        if (record.number <= last || record.number > J::kMaxNumber)
            return QStringLiteral("number %1 after %2").arg(record.number).arg(last);
        last = record.number;
    }
    if (read.nextNumber <= last || read.nextNumber > J::kMaxNumber + 1 ||
        read.records.size() != size_t(read.threats.size()))
        return QStringLiteral("next number %1 after %2").arg(read.nextNumber).arg(last);
    // The damage lies in order within the file, apart from the records, and is said to be there;
    // without it, the same threats are read and nothing is wrong.
    QByteArray clean;
    qint64 at = 0;
    for (const J::Damage &damage : read.damage) {
        if (damage.offset < at || damage.length <= 0 || damage.offset + damage.length > data.size())
            return QStringLiteral("damage at %1 out of place").arg(damage.offset);
        for (const J::Record &record : read.records)
            if (record.offset < damage.offset + damage.length &&
                damage.offset < record.offset + record.length)
                return QStringLiteral("damage at %1 overlaps a record").arg(damage.offset);
        clean += data.mid(int(at), int(damage.offset - at));
        at = damage.offset + damage.length;
    }
    clean += data.mid(int(at));
    const J::Contents undamaged = J::parse(clean, clean.size());
    if (read.damage.empty() == !read.problem.isEmpty() || !undamaged.problem.isEmpty() ||
        threatTexts(undamaged.threats) != threatTexts(read.threats))
        return QStringLiteral("without the damage, it reads otherwise: ") + read.problem + undamaged.problem;
    // Compacted as at the next start (each record's bytes copied), the same threats, byte for byte.
    QByteArray compacted;
    for (const J::Record &record : read.records)
        compacted += data.mid(int(record.offset), int(record.length));
    const J::Contents again = J::parse(compacted, compacted.size());
    if (!again.problem.isEmpty() || threatTexts(again.threats) != threatTexts(read.threats))
        return QStringLiteral("compacted, it reads otherwise: ") + again.problem;
    // A threat added then is restored after them, and once all are decided, nothing comes back.
    QByteArray journal = compacted;
    SVirusInfoList expected = read.threats;
    if (read.nextNumber <= J::kMaxNumber) {
        const SVirusInfo added{"new", "", "/new", true};
        journal += J::threatRecord(read.nextNumber, added);
        expected << added;
    }
    const J::Contents more = J::parse(journal, journal.size());
    if (!more.problem.isEmpty() || threatTexts(more.threats) != threatTexts(expected))
        return QStringLiteral("a threat added after them is not restored after them: ") + more.problem;
    for (const J::Record &record : more.records)
        journal += J::decisionRecord(record.number);
    const J::Contents decided = J::parse(journal, journal.size());
    if (!decided.problem.isEmpty() || !decided.threats.isEmpty())
        return QStringLiteral("%1 decided threats come back: ").arg(decided.threats.size()) + decided.problem;
    return QString();
}

#endif // JOURNALPROMISES_H
