#ifndef CTHREATJOURNAL_H
#define CTHREATJOURNAL_H

#include "virusrecords.h"

#include <QByteArray>
#include <QString>

#include <vector>

// The threats the daemon announced and the user has not decided yet, kept on disk so that they
// outlive the agent: the daemon announces a threat once, and a crash, a logout or an upgrade must
// not make it vanish. Every threat gets a number in the order it was announced; the dialog thread
// hands threats out in that order too, so the oldest number not handed out yet is always the
// threat being handed out.
//
// The file is a sequence of lines, each with a checksum: "A" records a threat, "D" its decision.
// Each record is appended with one write(), so the process dying at any instant leaves every
// record before it whole and at worst one torn record at the end, which is skipped when read.
// Nothing is synced on append: after a power loss, only what the kernel had written survives.
class CThreatJournal
{
public:
    // Opens the journal in directory, creating both with owner-only permissions, and reads the
    // threats earlier runs left undecided. A journal that cannot be used safely is left alone and
    // the agent keeps no threats; a developer line says why.
    explicit CThreatJournal(const QString &directory);
    ~CThreatJournal();
    CThreatJournal(const CThreatJournal &) = delete;
    CThreatJournal &operator=(const CThreatJournal &) = delete;

    // $XDG_STATE_HOME/vorn-defender, by default ~/.local/state/vorn-defender.
    static QString defaultDirectory();

    // The undecided threats read at opening, oldest first. They are in the journal already.
    const SVirusInfoList &restored() const { return m_restored; }
    bool isKept() const { return m_fd >= 0; }
    // Records a newly announced threat; its number, or 0 when threats are not kept.
    quint64 add(const SVirusInfo &info);
    // The number of the oldest threat not handed out yet, now handed out; 0 if there is none.
    quint64 takeNext();
    // Forgets a threat whose answer has been handled; 0 is no threat.
    void remove(quint64 number);
    // Bytes of the journal on disk.
    qint64 size() const { return m_size; }

    // Where an undecided threat's record lies in the file.
    struct Record
    {
        quint64 number = 0;
        qint64 offset = 0;
        qint64 length = 0;
    };
    // What the bytes of a journal hold.
    struct Contents
    {
        // The undecided threats, oldest first, and where their records lie.
        std::vector<Record> records;
        SVirusInfoList threats;
        // The number the next threat gets.
        quint64 nextNumber = 1;
        // The length of the longest prefix of valid records, and what was wrong after it, if anything.
        qint64 validBytes = 0;
        QString problem;
    };
    // Reads data, the first bytes of a journal file of fileSize bytes (at least data.size()). For
    // any bytes, it reads nothing beyond data and returns the undecided threats of the longest
    // prefix of valid records: each "A" record with a number above every earlier one, no larger
    // than kMaxNumber, less those a later "D" record decided. The records come in rising number
    // order, and nextNumber is above all of them and at most kMaxNumber + 1, so numbering can
    // neither wrap nor repeat whatever numbers the file holds (add() gives out no number above
    // kMaxNumber).
    static Contents parse(const QByteArray &data, qint64 fileSize);
    // The records that add() and remove() append.
    static QByteArray threatRecord(quint64 number, const SVirusInfo &info);
    static QByteArray decisionRecord(quint64 number);
    // No agent announces this many threats; a journal that numbers one higher is not valid.
    static constexpr quint64 kMaxNumber = quint64(1) << 62;

private:
    bool open(const QString &directory);
    void read();
    bool append(const QByteArray &record);
    void compact();
    void stopKeeping(const QString &why);

    std::vector<Record> m_records;
    SVirusInfoList m_restored;
    QString m_path;
    quint64 m_nextNumber = 1;
    quint64 m_lastHandedOut = 0;
    qint64 m_size = 0;
    qint64 m_liveBytes = 0;
    int m_fd = -1;
    int m_lockFd = -1;
};

#endif // CTHREATJOURNAL_H
