#include "cthreatjournal.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSysInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// A journal is read, and compacted, this many bytes at a time (a longer record in one piece).
const int kPiece = 8 * 1024 * 1024;
// No record the agent writes comes near this: the daemon's messages are far smaller. A longer one
// is not valid, so that reading a file without line breaks stops instead of holding all of it.
const int kMaxRecord = 256 * 1024 * 1024;
// Decided records are compacted away once they outweigh the undecided ones and this much besides.
const qint64 kCompactSlack = 64 * 1024;
// Where a damaged line may hide the start of a record, this many places are tried.
const int kMaxStarts = 64;
// Agents of one user on one machine at once; each holds one slot.
const int kSlots = 64;

void say(const QString &line)
{
    std::printf("threat journal: %s\n", line.toLocal8Bit().constData());
}

QString lastError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// One write() of the whole of data. A short write on a file means there was no room for the rest.
bool writeWhole(int fd, const QByteArray &data)
{
    const ssize_t written = ::write(fd, data.constData(), size_t(data.size()));
    if (written >= 0 && written < data.size())
        errno = ENOSPC;
    return written == data.size();
}

// A name that appears in a folder, or leaves it, survives a power cut once the folder is synced.
void syncFolder(const QString &folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// Percent-encoded UTF-8: no blank or line break is left inside a field, and the text comes back
// byte for byte.
QByteArray field(const QString &text)
{
    return text.toUtf8().toPercentEncoding("/");
}

QByteArray checksum(const QByteArray &body)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    // The same CRC-16 (ISO 3309); Qt 6 takes the bytes as a view.
    return QByteArray::number(qChecksum(QByteArrayView(body)), 16);
#else
    return QByteArray::number(qChecksum(body.constData(), uint(body.size())), 16);
#endif
}

// A fuzzing build accepts any checksum, so that the fuzzer reaches what lies behind it.
bool checksumMatches(const QByteArray &body, const QByteArray &sum)
{
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
    Q_UNUSED(body);
    Q_UNUSED(sum);
    return true;
#else
    return sum == checksum(body);
#endif
}

QByteArray sealed(const QByteArray &body)
{
    return body + ' ' + checksum(body) + '\n';
}

// A 64-bit hash (FNV-1a) of what a threat is, as its record spells it: reading a record has those
// bytes at hand, and equal threats get one key.
quint64 keyOf(const char *identity, int size)
{
    quint64 hash = 14695981039346656037ULL;
    for (int i = 0; i < size; ++i)
        hash = (hash ^ quint8(identity[i])) * 1099511628211ULL;
    return hash;
}

quint64 keyOf(const QByteArray &identity)
{
    return keyOf(identity.constData(), identity.size());
}

// The threat of a sound "A" record's six parts, or nothing when they say no threat.
bool threatOf(const QList<QByteArray> &parts, SVirusInfo &info)
{
    if (parts.size() != 6 || parts[0] != "A" || (parts[2] != "0" && parts[2] != "1"))
        return false;
    const auto text = [&parts](int i) {
        return QString::fromUtf8(QByteArray::fromPercentEncoding(parts[i]));
    };
    info = SVirusInfo{text(3), text(4), text(5), parts[2] == "1"};
    return true;
}

// Why a folder or file must not be used, or an empty text.
QString unsafeBecause(const QString &path, const struct stat &st)
{
    if (st.st_uid != geteuid())
        return path + QStringLiteral(" is not owned by this user; it is neither read nor written");
    if (st.st_mode & (S_IWGRP | S_IWOTH))
        return path + QStringLiteral(" is writable by group or others; it is neither read nor written");
    return QString();
}

bool isSlot(const QString &name, const QString &prefix)
{
    bool number = false;
    name.mid(prefix.size()).toUInt(&number);
    return name.startsWith(prefix) && number;
}

} // namespace

// Reads a journal's bytes one piece after another: the records that lie whole in each piece, and
// around them the bytes that are no valid record. Decided threats are only marked while reading,
// so that a decision costs no more than finding its threat, whatever the journal's size.
class CThreatJournal::Reader
{
public:
    explicit Reader(qint64 fileSize) : m_fileSize(fileSize) {}
    // Reads the whole lines at the start of data, the file's bytes from offset() on, and returns
    // how many bytes they took; a line that data ends in waits for the next piece, unless the file
    // ends there too: it is then a torn last record.
    int feed(const QByteArray &data)
    {
        int used = 0;
        while (!m_tooLong && m_offset < m_fileSize) {
            // The bytes an earlier piece left over hold no line break: the search goes on after them.
            const int end = data.indexOf('\n', used == 0 ? m_searched : used);
            if (end < 0) {
                const qint64 rest = data.size() - used;
                if (m_offset + rest == m_fileSize) {
                    m_torn = rest;
                    damaged(rest);
                    m_offset = m_fileSize;
                    used = data.size();
                } else if (rest > kMaxRecord) {
                    m_tooLong = true;
                }
                m_searched = int(rest);
                break;
            }
            readLine(data.mid(used, end - used + 1));
            m_offset += end - used + 1;
            used = end + 1;
        }
        return used;
    }
    qint64 offset() const { return m_offset; }
    bool done() const { return m_tooLong || m_offset >= m_fileSize; }
    bool tooLong() const { return m_tooLong; }
    // What the records read hold, and what was wrong around them.
    Contents finish()
    {
        // Bytes never read, beyond what parse() was given, are no valid record either.
        if (!m_tooLong && m_offset < m_fileSize)
            damaged(m_fileSize - m_offset);
        const auto &damage = m_contents.damage;
        if (m_tooLong)
            m_contents.problem =
                QStringLiteral("the record at byte %1 is longer than any this agent writes").arg(m_offset);
        else if (damage.size() == 1 && m_torn)
            m_contents.problem = QStringLiteral("skipped a torn last record of %1 bytes").arg(m_torn);
        else if (damage.size() == 1)
            m_contents.problem = QStringLiteral("the record at byte %1 is not valid").arg(damage[0].offset);
        else if (!damage.empty())
            m_contents.problem = QStringLiteral("%1 records are not valid, the first at byte %2")
                                     .arg(damage.size())
                                     .arg(damage[0].offset);
        std::vector<Record> undecided;
        for (size_t i = 0; i < m_contents.records.size(); ++i) {
            if (!m_decided[i]) {
                undecided.push_back(m_contents.records[i]);
                m_contents.threats << m_threats[i];
            }
        }
        m_contents.records = std::move(undecided);
        return std::move(m_contents);
    }

private:
    void readLine(const QByteArray &line)
    {
        if (readRecord(line, 0))
            return;
        // A line break lost to damage joins a record to the bytes before it: it may begin inside.
        int tries = 0;
        for (int at = 1; at + 1 < line.size() && tries < kMaxStarts; ++at) {
            if ((line[at] != 'A' && line[at] != 'D') || line[at + 1] != ' ')
                continue;
            ++tries;
            if (readRecord(line.mid(at), at)) {
                damaged(at);
                return;
            }
        }
        damaged(line.size());
    }
    bool readRecord(const QByteArray &line, int at)
    {
        const int seal = line.lastIndexOf(' ');
        const QByteArray body = line.left(seal);
        const QList<QByteArray> parts = body.split(' ');
        bool numbered = false;
        const quint64 number = parts.value(1).toULongLong(&numbered);
        SVirusInfo info;
        if (seal <= 0 || !numbered || !checksumMatches(body, line.mid(seal + 1).chopped(1)))
            return false;
        if (threatOf(parts, info)) {
            if (number < m_contents.nextNumber || number > kMaxNumber)
                return false;
            const int identity = parts[0].size() + parts[1].size() + 2;
            m_contents.records.push_back(Record{number, m_offset + at, line.size(),
                                                keyOf(body.constData() + identity, body.size() - identity)});
            m_threats.push_back(info);
            m_decided.push_back(false);
            m_contents.nextNumber = number + 1;
            return true;
        }
        if (parts.size() != 2 || parts[0] != "D")
            return false;
        // The records are in rising number order. A decision whose threat was lost to damage, or
        // was decided already, decides nothing.
        const auto &records = m_contents.records;
        const auto found = std::lower_bound(records.begin(), records.end(), number,
                                            [](const Record &r, quint64 n) { return r.number < n; });
        if (found != records.end() && found->number == number) {
            const size_t index = size_t(found - records.begin());
            m_decided[index] = true;
            m_threats[index] = SVirusInfo();
        }
        return true;
    }
    void damaged(qint64 length)
    {
        auto &damage = m_contents.damage;
        if (!damage.empty() && damage.back().offset + damage.back().length == m_offset)
            damage.back().length += length;
        else
            damage.push_back(Damage{m_offset, length});
    }

    Contents m_contents;
    std::vector<SVirusInfo> m_threats;
    std::vector<bool> m_decided;
    qint64 m_fileSize = 0;
    qint64 m_offset = 0;
    qint64 m_torn = 0;
    int m_searched = 0;
    bool m_tooLong = false;
};

CThreatJournal::CThreatJournal(const QString &directory, const QByteArray &machineId)
    : m_directory(directory), m_path(directory)
{
    const QByteArray machine = machineId.isEmpty() ? QSysInfo::machineUniqueId() : machineId;
    m_prefix =
        QStringLiteral("journal2-%1-").arg(QString::fromLatin1(machine.isEmpty() ? "unknown" : machine));
    open();
}

bool CThreatJournal::open()
{
    m_opening = false;
    if (!openFolder())
        return false;
    // A later version writes a format of its own under a name of its own: it is not read, nor
    // touched.
    static const QRegularExpression otherVersion(QStringLiteral("^journal(?!2-)\\d+-"));
    for (const QString &name : QDir(m_directory).entryList({QStringLiteral("journal*")}, QDir::Files))
        if (otherVersion.match(name).hasMatch())
            say(QStringLiteral("%1/%2 is a journal of another version of the agent; it is left as it is")
                    .arg(m_directory, name));
    if (!openOwn())
        return false;
    takeOverEnded();
    // Threats heard while no journal could be opened follow those it holds.
    for (const SVirusInfo &info : std::exchange(m_waiting, SVirusInfoList()))
        queue(info);
    // What was decided, or not valid, is dropped from the file now, before anything else is written.
    if (flush() && m_size != m_liveBytes) {
        const QString why = compact();
        if (!why.isEmpty())
            failed(why);
    }
    if (!isKept())
        return false;
    const QString restored =
        QStringLiteral("restored %1 undecided threats from %2").arg(m_restored.size()).arg(m_path);
    say(othersRunning() ? restored + QStringLiteral("; another agent of this user keeps its own in the same "
                                                    "folder, and this one takes them over when it ends")
                        : restored);
    return true;
}

bool CThreatJournal::cannotOpen(const QString &why, int error)
{
    // A home that is read-only, full or failing now may not be later: what is heard meanwhile is
    // kept in memory, and opening is tried again with each flush().
    if (error != EROFS && error != ENOSPC && error != EDQUOT && error != EIO) {
        stopKeeping(why);
        return false;
    }
    m_opening = true;
    failed(why);
    return false;
}

CThreatJournal::~CThreatJournal()
{
    flush();
    stopKeeping(QString());
}

QString CThreatJournal::defaultDirectory()
{
    // A relative value is ignored, as the base-directory convention asks.
    QString base = qEnvironmentVariable("XDG_STATE_HOME");
    if (!QDir::isAbsolutePath(base))
        base = QDir::homePath() + QStringLiteral("/.local/state");
    return base + QStringLiteral("/vorn-defender");
}

SVirusInfoList CThreatJournal::takeRestored()
{
    return std::exchange(m_restored, SVirusInfoList());
}

bool CThreatJournal::openFolder()
{
    const QString &directory = m_directory;
    // The folders above are the user's own business; only the journal's own is made private.
    const QString parent = QFileInfo(directory).path();
    QDir().mkpath(parent);
    const QByteArray folder = QFile::encodeName(directory);
    struct stat st = {};
    const bool made = ::mkdir(folder.constData(), 0700) == 0;
    if ((!made && errno != EEXIST) || ::lstat(folder.constData(), &st) != 0)
        return cannotOpen(directory + QStringLiteral(": ") + lastError(), errno);
    if (made)
        syncFolder(parent);
    const QString unsafe =
        S_ISDIR(st.st_mode) ? unsafeBecause(directory, st) : directory + QStringLiteral(" is not a folder");
    if (!unsafe.isEmpty()) {
        stopKeeping(unsafe);
        return false;
    }
    return true;
}

int CThreatJournal::openLocked(const QString &path, bool create, QString &unsafe)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd =
        ::open(name.constData(), O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC | (create ? O_CREAT : 0), 0600);
    if (fd < 0) {
        const int error = errno;
        unsafe = path + QStringLiteral(": ") + lastError();
        errno = error;
        return -1;
    }
    struct stat st = {}, named = {};
    int error = 0;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0)
        error = errno;
    // A file removed or replaced since it was opened is no longer anybody's journal.
    else if (::fstat(fd, &st) != 0 || ::lstat(name.constData(), &named) != 0 || st.st_ino != named.st_ino ||
             st.st_dev != named.st_dev)
        error = ESTALE;
    else if (!(unsafe =
                   S_ISREG(st.st_mode) ? unsafeBecause(path, st) : path + QStringLiteral(" is not a file"))
                  .isEmpty())
        error = EPERM;
    if (error == 0)
        return fd;
    ::close(fd);
    errno = error;
    return -1;
}

int CThreatJournal::createLocked(const QString &path, QString &unsafe)
{
    // A new journal appears in the folder locked already, so that no agent looking for ended ones
    // takes it before its agent could lock it.
    const QByteArray name = QFile::encodeName(path);
    const QByteArray temporary = name + ".new" + QByteArray::number(getpid());
    ::unlink(temporary.constData());
    const int fd =
        ::open(temporary.constData(), O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    int error = 0;
    if (fd < 0 || ::flock(fd, LOCK_EX | LOCK_NB) != 0 || ::link(temporary.constData(), name.constData()) != 0)
        error = errno;
    if (fd >= 0)
        ::unlink(temporary.constData());
    if (error == 0)
        return fd;
    if (fd >= 0)
        ::close(fd);
    // A file system without hard links gets the file made in place.
    if (error == EPERM || error == EOPNOTSUPP)
        return openLocked(path, true, unsafe);
    unsafe = path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(error));
    errno = error == EEXIST ? ESTALE : error;
    return -1;
}

bool CThreatJournal::openOwn()
{
    int vanished = 0;
    for (int slot = 1; slot <= kSlots; ++slot) {
        const QString path = m_directory + QLatin1Char('/') + m_prefix + QString::number(slot);
        const bool existed = QFileInfo(path).isSymLink() || QFileInfo::exists(path);
        QString unsafe;
        const int fd = existed ? openLocked(path, false, unsafe) : createLocked(path, unsafe);
        // Taken over and removed since it was seen: the slot is free now.
        if (fd < 0 && errno == ENOENT && ++vanished < 3)
            --slot;
        if (fd < 0 && (errno == EWOULDBLOCK || errno == ESTALE || errno == ENOENT))
            continue;
        if (fd < 0 && errno != EPERM)
            return cannotOpen(unsafe, errno);
        if (fd < 0) {
            say(unsafe);
            m_leftAlone << path;
            continue;
        }
        if (!existed)
            syncFolder(m_directory);
        Opened file = readFile(fd, path);
        if (!usable(file))
            continue;
        m_fd = fd;
        m_path = path;
        m_size = QFileInfo(path).size();
        m_records = std::move(file.contents.records);
        m_restored = std::move(file.contents.threats);
        m_nextNumber = file.contents.nextNumber;
        for (const Record &record : m_records)
            m_liveBytes += record.length;
        return true;
    }
    stopKeeping(QStringLiteral("%1 holds no journal this agent can use").arg(m_directory));
    return false;
}

CThreatJournal::Opened CThreatJournal::readFile(int fd, const QString &path)
{
    // Read whole, a piece at a time: no size makes a valid record of this user's own file vanish.
    Opened file;
    file.fd = fd;
    file.path = path;
    struct stat st = {};
    if (::fstat(fd, &st) != 0) {
        file.contents.problem = lastError();
        return file;
    }
    Reader reader(st.st_size);
    QByteArray unread;
    while (!reader.done()) {
        const qint64 at = reader.offset() + unread.size();
        QByteArray piece(int(std::min<qint64>(kPiece, st.st_size - at)), Qt::Uninitialized);
        const ssize_t got = ::pread(fd, piece.data(), size_t(piece.size()), at);
        if (got <= 0) {
            file.contents.problem = got < 0 ? lastError() : QStringLiteral("the file ended early");
            return file;
        }
        unread += piece.left(int(got));
        unread.remove(0, reader.feed(unread));
    }
    // A file no agent wrote is not compacted either: nothing beyond what was read is destroyed.
    file.readable = !reader.tooLong();
    file.contents = reader.finish();
    return file;
}

bool CThreatJournal::usable(const Opened &file)
{
    if (!file.readable) {
        say(file.contents.problem + QStringLiteral(" in %1; it is left as it is").arg(file.path));
        m_leftAlone << file.path;
        ::close(file.fd);
        return false;
    }
    setAside(file);
    return true;
}

void CThreatJournal::setAside(const Opened &file)
{
    if (file.contents.damage.empty())
        return;
    // Beside the journal, so that what a bad sector or a stray write left can still be looked at;
    // bounded, so that a hostile file cannot fill the disk through it.
    const QString aside = m_directory + QStringLiteral("/damaged");
    const int fd = ::open(QFile::encodeName(aside).constData(),
                          O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
    struct stat st = {};
    qint64 kept = fd >= 0 && ::fstat(fd, &st) == 0 ? st.st_size : kMaxSetAside;
    qint64 dropped = 0;
    for (const Damage &damage : file.contents.damage) {
        const QByteArray header = QStringLiteral("# %1 from byte %2, %3 bytes:\n")
                                      .arg(file.path)
                                      .arg(damage.offset)
                                      .arg(damage.length)
                                      .toLocal8Bit();
        QByteArray bytes(int(std::min<qint64>(damage.length, kMaxSetAside)), Qt::Uninitialized);
        if (kept + header.size() + damage.length + 1 > kMaxSetAside ||
            ::pread(file.fd, bytes.data(), size_t(bytes.size()), damage.offset) != bytes.size() ||
            !writeWhole(fd, header + bytes + '\n')) {
            dropped += damage.length;
            continue;
        }
        kept += header.size() + damage.length + 1;
    }
    if (fd >= 0)
        ::close(fd);
    say(file.contents.problem + QStringLiteral(" in %1; ").arg(file.path) +
        (dropped == 0 ? QStringLiteral("its bytes are set aside in %1").arg(aside)
                      : QStringLiteral("%1 of its bytes could not be set aside in %2 and are dropped")
                            .arg(dropped)
                            .arg(aside)));
}

void CThreatJournal::adopt(const Opened &file)
{
    // Both agents heard the same announcements: of each threat, as many are kept as the larger of
    // the two counts, and what this agent has had counts whether it decided it or not.
    QHash<quint64, int> had = m_decided;
    for (const Record &record : m_records)
        ++had[record.key];
    QHash<quint64, int> theirs;
    for (size_t i = 0; i < file.contents.records.size(); ++i) {
        if (++theirs[file.contents.records[i].key] <= had.value(file.contents.records[i].key))
            continue;
        const SVirusInfo &info = file.contents.threats.at(int(i));
        if (queue(info) == 0)
            return;
        m_restored << info;
    }
}

int CThreatJournal::takeOverEnded()
{
    m_others.clear();
    const QDir folder(m_directory);
    const QStringList names =
        folder.entryList({m_prefix + QLatin1Char('*')}, QDir::Files | QDir::System, QDir::Name);
    int taken = 0;
    for (const QString &name : names) {
        const QString path = folder.filePath(name);
        if (!isSlot(name, m_prefix) || path == m_path || adopting(path) || m_leftAlone.contains(path))
            continue;
        QString unsafe;
        const int fd = openLocked(path, false, unsafe);
        if (fd < 0 && errno == EWOULDBLOCK)
            m_others << path;
        if (fd < 0 && errno == EPERM) {
            say(unsafe);
            m_leftAlone << path;
        }
        // Otherwise it has gone, taken over by another agent.
        if (fd < 0)
            continue;
        const Opened file = readFile(fd, path);
        if (!usable(file))
            continue;
        adopt(file);
        m_adopted << qMakePair(fd, path);
        ++taken;
    }
    // The journal of 1.1.0, held through its lock, which its agent never removes.
    const QString legacy = m_directory + QStringLiteral("/journal");
    QString unsafe;
    if (!QFileInfo::exists(legacy) || m_leftAlone.contains(legacy) || adopting(legacy))
        return taken;
    const int lockFd = openLocked(m_directory + QStringLiteral("/lock"), true, unsafe);
    if (lockFd < 0) {
        if (errno == EWOULDBLOCK)
            m_others << legacy;
        return taken;
    }
    const int fd = openLocked(legacy, false, unsafe);
    const Opened file = fd >= 0 ? readFile(fd, legacy) : Opened();
    if (file.readable) {
        setAside(file);
        adopt(file);
        m_adopted << qMakePair(lockFd, legacy);
        ++taken;
    } else {
        if (fd >= 0 || errno != ENOENT) {
            say((fd < 0 ? unsafe : file.contents.problem + QStringLiteral(" in ") + legacy) +
                QStringLiteral("; it is left as it is"));
            m_leftAlone << legacy;
        }
        ::close(lockFd);
    }
    if (fd >= 0)
        ::close(fd);
    return taken;
}

bool CThreatJournal::adopting(const QString &path) const
{
    return std::any_of(m_adopted.begin(), m_adopted.end(),
                       [&path](const QPair<int, QString> &adopted) { return adopted.second == path; });
}

bool CThreatJournal::takeOver()
{
    if (!isKept())
        return false;
    const int restoredBefore = m_restored.size();
    const int taken = takeOverEnded();
    if (taken == 0)
        return false;
    // Said once what they held is written here and they are removed (unless writing failed).
    flush();
    say(QStringLiteral("took over %1 journals of agents that have ended: %2 undecided threats to restore")
            .arg(taken)
            .arg(m_restored.size() - restoredBefore));
    return true;
}

quint64 CThreatJournal::add(const SVirusInfo &info)
{
    if (m_opening)
        m_waiting << info;
    return isKept() ? queue(info) : 0;
}

quint64 CThreatJournal::queue(const SVirusInfo &info)
{
    // Only a journal that came with the largest number gets here: a number more would not be read.
    if (m_nextNumber > kMaxNumber) {
        stopKeeping(QStringLiteral("%1 holds the largest threat number").arg(m_path));
        return 0;
    }
    const QByteArray record = threatRecord(m_nextNumber, info);
    m_records.push_back(
        Record{m_nextNumber, m_size + m_pending.size(), record.size(), keyOf(identity(info))});
    m_liveBytes += record.size();
    m_pending += record;
    m_pendingThreat = true;
    return m_nextNumber++;
}

void CThreatJournal::remove(const SVirusInfo &info)
{
    const QByteArray what = identity(info);
    const auto waiting = std::find_if(m_waiting.begin(), m_waiting.end(),
                                      [&what](const SVirusInfo &w) { return identity(w) == what; });
    if (waiting != m_waiting.end()) {
        m_waiting.erase(waiting);
        return;
    }
    const auto found = isKept() ? findOldest(info) : m_records.end();
    if (found == m_records.end())
        return;
    ++m_decided[found->key];
    m_liveBytes -= found->length;
    m_pending += decisionRecord(found->number);
    m_records.erase(found);
}

QByteArray CThreatJournal::recordBytes(const Record &record) const
{
    if (record.offset >= m_size)
        return m_pending.mid(int(record.offset - m_size), int(record.length));
    QByteArray bytes(int(record.length), Qt::Uninitialized);
    return ::pread(m_fd, bytes.data(), size_t(bytes.size()), record.offset) == bytes.size() ? bytes
                                                                                            : QByteArray();
}

std::vector<CThreatJournal::Record>::iterator CThreatJournal::findOldest(const SVirusInfo &info)
{
    // The key narrows the search; the record itself, read back, decides.
    const QByteArray what = identity(info);
    const quint64 key = keyOf(what);
    for (auto record = m_records.begin(); record != m_records.end(); ++record) {
        if (record->key != key)
            continue;
        const QByteArray bytes = recordBytes(*record);
        SVirusInfo found;
        if (threatOf(bytes.left(bytes.lastIndexOf(' ')).split(' '), found) && identity(found) == what)
            return record;
    }
    return m_records.end();
}

bool CThreatJournal::flush()
{
    if (m_opening)
        return open();
    if (!isKept())
        return true;
    if (!m_pending.isEmpty()) {
        // What a failed write may have left is cut off before anything follows it.
        if (m_torn && ::ftruncate(m_fd, m_size) != 0)
            return failed(lastError());
        m_torn = false;
        // One write; then one sync, when it holds a threat: a decision rides along with the next.
        if (!writeWhole(m_fd, m_pending) || (m_pendingThreat && ::fdatasync(m_fd) != 0)) {
            const QString why = lastError();
            m_torn = ::ftruncate(m_fd, m_size) != 0;
            return failed(why);
        }
        m_syncs += m_pendingThreat;
        m_size += m_pending.size();
        m_pending.clear();
        m_pendingThreat = false;
    }
    if (!m_adopted.isEmpty())
        removeAdopted();
    // The file follows the undecided threats, not the history: once decided records outweigh them,
    // and whenever none is left, it is rewritten without the decided ones.
    if ((m_records.empty() && m_size > 0) || m_size - m_liveBytes > std::max(m_liveBytes, kCompactSlack)) {
        const QString why = compact();
        if (!why.isEmpty())
            return failed(why);
    }
    if (m_failing)
        say(QStringLiteral("writing to %1 works again; nothing waits in memory").arg(m_path));
    m_failing = false;
    return true;
}

bool CThreatJournal::failed(const QString &why)
{
    if (!m_failing)
        say(QStringLiteral("cannot write to %1: %2; what is not written is kept in memory and written once "
                           "writing works again")
                .arg(m_path, why));
    m_failing = true;
    return false;
}

void CThreatJournal::removeAdopted()
{
    // What the other journals held is written here now: they are removed while still locked, so
    // no other agent can take them over a second time.
    for (const auto &adopted : std::exchange(m_adopted, {})) {
        ::unlink(QFile::encodeName(adopted.second).constData());
        ::close(adopted.first);
    }
    syncFolder(m_directory);
}

QString CThreatJournal::compact()
{
    const QByteArray temporary = QFile::encodeName(m_path + QStringLiteral(".new"));
    const int fd =
        ::open(temporary.constData(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
    // Locked before its name is the journal's, so that no other agent takes it for an ended one's.
    bool written = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    std::vector<qint64> offsets;
    qint64 size = 0;
    auto record = m_records.begin();
    while (written && record != m_records.end()) {
        // Records that lie side by side are copied in one piece.
        const qint64 from = record->offset;
        qint64 length = 0;
        while (record != m_records.end() && record->offset == from + length && length < kPiece) {
            offsets.push_back(size + length);
            length += record->length;
            ++record;
        }
        QByteArray bytes(int(length), Qt::Uninitialized);
        written = ::pread(m_fd, bytes.data(), size_t(length), from) == length && writeWhole(fd, bytes);
        size += length;
    }
    // Synced before the rename, so that a power loss cannot leave an empty journal in its place;
    // the rename then swaps old for new in one step, and the folder is synced so that it stays.
    if (!written || ::fdatasync(fd) != 0 ||
        ::rename(temporary.constData(), QFile::encodeName(m_path).constData()) != 0) {
        const QString why = lastError();
        if (fd >= 0) {
            ::close(fd);
            ::unlink(temporary.constData());
        }
        return why;
    }
    syncFolder(m_directory);
    for (size_t i = 0; i < m_records.size(); ++i)
        m_records[i].offset = offsets[i];
    ::close(m_fd);
    m_fd = fd;
    m_size = size;
    return QString();
}

void CThreatJournal::stopKeeping(const QString &why)
{
    // Said once: after this the journal is closed and nothing else is tried.
    if (!why.isEmpty())
        say(QStringLiteral("threats are not being kept: ") + why);
    if (m_fd >= 0)
        ::close(m_fd);
    for (const auto &adopted : std::exchange(m_adopted, {}))
        ::close(adopted.first);
    m_fd = -1;
    m_records.clear();
    m_waiting.clear();
    m_pending.clear();
    m_others.clear();
    m_liveBytes = 0;
}

QByteArray CThreatJournal::identity(const SVirusInfo &info)
{
    return (info.virusFlag ? "1 " : "0 ") + field(info.virusName) + ' ' + field(info.virusDetail) + ' ' +
           field(info.virusPath);
}

QByteArray CThreatJournal::threatRecord(quint64 number, const SVirusInfo &info)
{
    return sealed("A " + QByteArray::number(number) + ' ' + identity(info));
}

QByteArray CThreatJournal::decisionRecord(quint64 number)
{
    return sealed("D " + QByteArray::number(number));
}

CThreatJournal::Contents CThreatJournal::parse(const QByteArray &data, qint64 fileSize)
{
    Reader reader(fileSize);
    reader.feed(data);
    return reader.finish();
}
