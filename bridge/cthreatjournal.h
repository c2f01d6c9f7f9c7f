#ifndef CTHREATJOURNAL_H
#define CTHREATJOURNAL_H

#include "virusrecords.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>

#include <vector>

// The threats the daemon announced and the user has not decided yet, kept on disk so that they
// outlive the agent: the daemon announces a threat once, and a crash, a logout, an upgrade or a
// power cut must not make it vanish. Every threat gets a number in the order it was announced. A
// decision names the threat by what it is (name, detail, path, flag): two equal threats are
// interchangeable, and the oldest of them is the one forgotten.
//
// Each agent keeps a file of its own, "journal2-MACHINE-N" in the folder: MACHINE is the machine's
// id, so that a home shared by several machines never hands one machine's threats (and paths) to
// another's daemon, and N a slot that the agent holds locked while it runs. A second agent of the
// user writes its own file at once; when an agent ends, the next one to look takes its file over.
// The name carries the format's version: 1.1.0 read and compacted "journal", and never touches
// these, and its "journal" is taken over in turn.
//
// A file is a sequence of lines, each with a checksum: "A" records a threat, "D" its decision. What
// is queued is appended with one write() and, when it holds a threat, synced (fdatasync) before
// anything else is written, so many threats share one sync. A process dying at any instant leaves
// every record before the write whole and at worst one torn write at the end. A record that is not
// valid (a torn end, a bad sector, a flipped bit) costs that record only: reading goes on at the
// next valid one, and the bytes are set aside in "damaged" beside the journal, up to a bound.
//
// A write that fails (a full disk, a quota, a read-only remount, an I/O error) keeps what it could
// not write in memory, cuts off what it may have written, and is tried again by the next flush().
// A journal that cannot be opened for one of those reasons is tried again the same way.
class CThreatJournal
{
public:
    // Opens this agent's journal in directory (created with owner-only permissions), reads the
    // threats it holds and takes over the journals of agents of this machine that have ended.
    // machineId is this machine's (QSysInfo::machineUniqueId()) unless given. A journal that cannot
    // be used safely is left alone, and the agent keeps no threats; a developer line says why.
    explicit CThreatJournal(const QString &directory, const QByteArray &machineId = QByteArray());
    // Writes what is queued, if it can, and lets the journal's slot go.
    ~CThreatJournal();
    CThreatJournal(const CThreatJournal &) = delete;
    CThreatJournal &operator=(const CThreatJournal &) = delete;

    // $XDG_STATE_HOME/vorn-defender, by default ~/.local/state/vorn-defender.
    static QString defaultDirectory();

    // The undecided threats read at opening or at a take-over, oldest first; handed over once.
    // They are in this agent's journal already.
    SVirusInfoList takeRestored();
    bool isKept() const { return m_fd >= 0; }
    // Whether other agents of this user on this machine keep journals now: takeOver() is worth
    // trying again later.
    bool othersRunning() const { return !m_others.isEmpty(); }
    // Whether something queued could not be written: flush() is worth trying again later.
    bool writeFailing() const { return m_failing; }
    QString path() const { return m_path; }
    QString directory() const { return m_directory; }
    // Queues a newly announced threat; its number, or 0 when none is kept.
    quint64 add(const SVirusInfo &info);
    // Queues the decision of the oldest undecided threat equal to info, whose handling succeeded.
    void remove(const SVirusInfo &info);
    // Writes what is queued and syncs it if it holds a threat; true when nothing is left in memory.
    bool flush();
    // Takes over the journals of this machine's agents of this user that have ended; true when
    // one was taken. Their undecided threats, less as many equal ones as this agent has had (both
    // heard the same announcements), are then in takeRestored().
    bool takeOver();
    // What a threat is, as its record spells it: the same bytes for equal threats only.
    static QByteArray identity(const SVirusInfo &info);
    // Bytes of the journal on disk, and the syncs that wrote threats since opening.
    qint64 size() const { return m_size; }
    int syncs() const { return m_syncs; }

    // Where an undecided threat's record lies in the file (or will lie, once what is queued is
    // written); key hashes what the threat is.
    struct Record
    {
        quint64 number = 0;
        qint64 offset = 0;
        qint64 length = 0;
        quint64 key = 0;
    };
    // Bytes of a file that are no valid record.
    struct Damage
    {
        qint64 offset = 0;
        qint64 length = 0;
    };
    // What the bytes of a journal hold.
    struct Contents
    {
        // The undecided threats, oldest first, and where their records lie: records[i] is the
        // record of threats[i], so the two grow and shrink together.
        std::vector<Record> records;
        SVirusInfoList threats;
        // The number the next threat gets.
        quint64 nextNumber = 1;
        // The bytes that are no valid record, in order, and what was wrong, if anything.
        std::vector<Damage> damage;
        QString problem;
    };
    // Reads data, the first bytes of a journal file of fileSize bytes (at least data.size()). For
    // any bytes, it reads nothing beyond data and returns the undecided threats of every valid
    // record: each "A" record with a number above every earlier one, no larger than kMaxNumber,
    // less those a later "D" record decided. A record that begins inside bytes that are no record
    // (a lost line break) is found too. The records come in rising number order, and nextNumber is
    // above all of them and at most kMaxNumber + 1, so numbering can neither wrap nor repeat
    // whatever numbers the file holds. A journal is read in pieces through the same steps, so its
    // size sets no limit.
    static Contents parse(const QByteArray &data, qint64 fileSize);
    // The records that add() and remove() append.
    static QByteArray threatRecord(quint64 number, const SVirusInfo &info);
    static QByteArray decisionRecord(quint64 number);
    // No agent announces this many threats; a journal that numbers one higher is not valid.
    static constexpr quint64 kMaxNumber = quint64(1) << 62;
    // The most bytes kept in "damaged": beyond it, damaged bytes are dropped, with a line.
    static constexpr qint64 kMaxSetAside = 1024 * 1024;

private:
    class Reader;
    // A journal being read: its threats are this agent's (own) or taken over.
    struct Opened
    {
        int fd = -1;
        QString path;
        Contents contents;
        bool readable = false;
    };

    // Opens the folder and this agent's journal, reads it and takes over what ended agents left.
    bool open();
    // Stops keeping threats, or, when the disk may take them later, keeps them in memory meanwhile.
    bool cannotOpen(const QString &why, int error);
    bool openFolder();
    bool openOwn();
    // Takes over what ended agents left; how many files it took.
    int takeOverEnded();
    // Opens, locks and checks path; -1 with errno EWOULDBLOCK when another agent holds it.
    int openLocked(const QString &path, bool create, QString &unsafe);
    // Makes path as a new journal, locked before it appears; -1 with errno ESTALE when another
    // agent made it first.
    int createLocked(const QString &path, QString &unsafe);
    Opened readFile(int fd, const QString &path);
    // Whether a file read can be used; one that cannot is left as it is, and closed.
    bool usable(const Opened &file);
    void setAside(const Opened &file);
    void adopt(const Opened &file);
    // Whether path was taken over and waits to be removed.
    bool adopting(const QString &path) const;
    void takeOverLegacy();
    quint64 queue(const SVirusInfo &info);
    QByteArray recordBytes(const Record &record) const;
    bool failed(const QString &why);
    // Rewrites the file with the undecided records only; what went wrong, if anything.
    QString compact();
    std::vector<Record>::iterator findOldest(const SVirusInfo &info);
    void removeAdopted();
    void stopKeeping(const QString &why);

    std::vector<Record> m_records;
    SVirusInfoList m_restored;
    // Threats heard while no journal could be opened (m_opening); written once one can.
    SVirusInfoList m_waiting;
    // How often each threat was decided here: with the undecided ones, what this agent has had.
    QHash<quint64, int> m_decided;
    // Bytes queued for the file, which begin at offset m_size.
    QByteArray m_pending;
    // Files taken over, kept locked until what they held is written here; then removed.
    QList<QPair<int, QString>> m_adopted;
    // Other agents' journals, held now, and files left as they are.
    QStringList m_others;
    QSet<QString> m_leftAlone;
    QString m_directory;
    QString m_prefix;
    QString m_path;
    quint64 m_nextNumber = 1;
    qint64 m_size = 0;
    qint64 m_liveBytes = 0;
    qint64 m_setAside = 0;
    int m_syncs = 0;
    int m_fd = -1;
    bool m_pendingThreat = false;
    // Bytes of a failed write may lie beyond m_size and must be cut off first.
    bool m_torn = false;
    bool m_failing = false;
    bool m_opening = false;
};

#endif // CTHREATJOURNAL_H
