#ifndef CTHREATJOURNAL_H
#define CTHREATJOURNAL_H

#include "virusrecords.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <vector>

// The threats the daemon announced and the user has not decided yet, kept on disk so that they
// outlive the agent: the daemon announces a threat once, and a crash, a logout or an upgrade must
// not make it vanish. Every threat gets a number in the order it was announced. A decision names
// the threat by what it is (name, detail, path, flag): two equal threats are interchangeable, and
// the oldest of them is the one forgotten.
//
// The file is a sequence of lines, each with a checksum: "A" records a threat, "D" its decision.
// Each record is appended with one write(), so the process dying at any instant leaves every
// record before it whole and at worst one torn record at the end, which is skipped when read.
// Nothing is synced on append: after a power loss, only what the kernel had written survives.
//
// One agent of a user holds the journal (a lock beside it). A second one, of a second login,
// keeps what it takes in memory meanwhile and takes the journal over once the first has ended.
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

    // The undecided threats read at opening or at a take-over that this agent has not taken
    // itself, oldest first; handed over once. They are in the journal already.
    SVirusInfoList takeRestored();
    bool isKept() const { return m_fd >= 0; }
    // Whether another agent of this user holds the journal; lockPath() is then the lock it holds.
    bool waitsForLock() const { return m_fd < 0 && m_lockFd >= 0; }
    QString lockPath() const { return m_directory + QStringLiteral("/lock"); }
    // Records a newly announced threat; its number, or 0 when it is not on disk.
    quint64 add(const SVirusInfo &info);
    // Forgets the oldest undecided threat equal to info, whose handling succeeded.
    void remove(const SVirusInfo &info);
    // Takes the journal over if the agent that held it has ended; true when it did. The threats
    // this agent took meanwhile are written to it, those the other one left decided here are
    // forgotten, and the rest are in takeRestored().
    bool takeOver();
    // What a threat is, as its record spells it: the same bytes for equal threats only.
    static QByteArray identity(const SVirusInfo &info);
    // Bytes of the journal on disk.
    qint64 size() const { return m_size; }

    // Where an undecided threat's record lies in the file; key hashes what the threat is.
    struct Record
    {
        quint64 number = 0;
        qint64 offset = 0;
        qint64 length = 0;
        uint key = 0;
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
    // kMaxNumber). A journal is read in pieces through the same steps, so its size sets no limit.
    static Contents parse(const QByteArray &data, qint64 fileSize);
    // The records that add() and remove() append.
    static QByteArray threatRecord(quint64 number, const SVirusInfo &info);
    static QByteArray decisionRecord(quint64 number);
    // No agent announces this many threats; a journal that numbers one higher is not valid.
    static constexpr quint64 kMaxNumber = quint64(1) << 62;

private:
    class Reader;

    bool openFolder(const QString &directory);
    bool lock();
    bool openFile();
    void read();
    bool append(const QByteArray &record);
    // Rewrites the file with the undecided records only; nothing happens when it holds no other.
    void compact();
    void forget(std::vector<Record>::iterator record);
    std::vector<Record>::iterator findOldest(const SVirusInfo &info);
    void stopKeeping(const QString &why);

    std::vector<Record> m_records;
    SVirusInfoList m_restored;
    // While another agent holds the journal: the threats this one took and has not decided, and
    // how often each threat was decided here.
    SVirusInfoList m_taken;
    QHash<QByteArray, int> m_decided;
    QString m_directory;
    QString m_path;
    quint64 m_nextNumber = 1;
    qint64 m_size = 0;
    qint64 m_liveBytes = 0;
    int m_fd = -1;
    int m_lockFd = -1;
};

#endif // CTHREATJOURNAL_H
