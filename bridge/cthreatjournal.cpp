#include "cthreatjournal.h"

#include <QDir>
#include <QFile>

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

// A hash of what a threat is, from its texts: reading a record decodes them anyway.
uint keyOf(const SVirusInfo &info)
{
    return uint(qHash(info.virusName) ^ (qHash(info.virusDetail) * 31) ^ (qHash(info.virusPath) * 131) ^
                uint(info.virusFlag));
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

} // namespace

// Reads a journal's bytes one piece after another: the records that lie whole in each piece, up to
// the first one that is not valid. Decided threats are only marked while reading, so that a
// decision costs no more than finding its threat, whatever the journal's size.
class CThreatJournal::Reader
{
public:
    explicit Reader(qint64 fileSize) : m_fileSize(fileSize) {}
    // Reads the whole records at the start of data, the file's bytes from offset() on, and returns
    // how many bytes they took; a record that data ends in waits for the next piece, unless the
    // file ends there too: it is then a torn last record.
    int feed(const QByteArray &data)
    {
        int used = 0;
        while (!m_stopped && m_offset < m_fileSize) {
            // The bytes an earlier piece left over hold no line break: the search goes on after them.
            const int end = data.indexOf('\n', used == 0 ? m_searched : used);
            if (end < 0) {
                const qint64 rest = data.size() - used;
                if (m_offset + rest == m_fileSize) {
                    m_contents.problem = QStringLiteral("skipped a torn last record of %1 bytes").arg(rest);
                    m_stopped = true;
                } else if (rest > kMaxRecord) {
                    notValid();
                    m_stopped = m_tooLong = true;
                }
                m_searched = int(rest);
                break;
            }
            if (!readRecord(data.mid(used, end - used + 1))) {
                m_stopped = true;
                break;
            }
            m_offset += end - used + 1;
            used = end + 1;
        }
        return used;
    }
    qint64 offset() const { return m_offset; }
    bool done() const { return m_stopped || m_offset >= m_fileSize; }
    bool tooLong() const { return m_tooLong; }
    // What the records read hold; bytes never read count as a record that is not valid.
    Contents finish()
    {
        if (!m_stopped && m_offset < m_fileSize)
            notValid();
        m_contents.validBytes = m_offset;
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
    bool readRecord(const QByteArray &line)
    {
        const int seal = line.lastIndexOf(' ');
        const QByteArray body = line.left(seal);
        const QList<QByteArray> parts = body.split(' ');
        bool numbered = false;
        const quint64 number = parts.value(1).toULongLong(&numbered);
        SVirusInfo info;
        if (seal <= 0 || !numbered || !checksumMatches(body, line.mid(seal + 1).chopped(1)))
            return notValid();
        if (threatOf(parts, info) && number >= m_contents.nextNumber && number <= kMaxNumber) {
            m_contents.records.push_back(Record{number, m_offset, line.size(), keyOf(info)});
            m_threats.push_back(info);
            m_decided.push_back(false);
            m_contents.nextNumber = number + 1;
            return true;
        }
        // The records are in rising number order; a decision names an undecided one.
        const auto &records = m_contents.records;
        const auto found = std::lower_bound(records.begin(), records.end(), number,
                                            [](const Record &r, quint64 n) { return r.number < n; });
        const size_t at = size_t(found - records.begin());
        if (parts.size() != 2 || parts[0] != "D" || found == records.end() || found->number != number ||
            m_decided[at])
            return notValid();
        m_decided[at] = true;
        m_threats[at] = SVirusInfo();
        return true;
    }
    bool notValid()
    {
        m_contents.problem =
            QStringLiteral("the record at byte %1 is not valid; the %2 bytes from there on are ignored")
                .arg(m_offset)
                .arg(m_fileSize - m_offset);
        return false;
    }

    Contents m_contents;
    std::vector<SVirusInfo> m_threats;
    std::vector<bool> m_decided;
    qint64 m_fileSize = 0;
    qint64 m_offset = 0;
    int m_searched = 0;
    bool m_stopped = false;
    bool m_tooLong = false;
};

CThreatJournal::CThreatJournal(const QString &directory)
{
    if (!openFolder(directory))
        return;
    if (!lock()) {
        if (waitsForLock())
            say(QStringLiteral("threats are not being kept: another agent of this user keeps them in %1; "
                               "this one takes over when it ends")
                    .arg(directory));
        return;
    }
    if (!openFile())
        return;
    read();
    if (!isKept())
        return;
    say(QStringLiteral("restored %1 undecided threats from %2").arg(m_restored.size()).arg(m_path));
    // What was decided, or not valid, is dropped from the file now, before anything is appended.
    compact();
}

CThreatJournal::~CThreatJournal()
{
    if (m_fd >= 0)
        ::close(m_fd);
    if (m_lockFd >= 0)
        ::close(m_lockFd);
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

bool CThreatJournal::openFolder(const QString &directory)
{
    // The folders above are the user's own business; only the journal's own is made private.
    QDir().mkpath(QFileInfo(directory).path());
    const QByteArray folder = QFile::encodeName(directory);
    struct stat st = {};
    if ((::mkdir(folder.constData(), 0700) != 0 && errno != EEXIST) ||
        ::lstat(folder.constData(), &st) != 0) {
        stopKeeping(directory + QStringLiteral(": ") + lastError());
        return false;
    }
    const QString unsafe =
        S_ISDIR(st.st_mode) ? unsafeBecause(directory, st) : directory + QStringLiteral(" is not a folder");
    if (!unsafe.isEmpty()) {
        stopKeeping(unsafe);
        return false;
    }
    m_directory = directory;
    m_path = directory + QStringLiteral("/journal");
    m_lockFd =
        ::open(QFile::encodeName(lockPath()).constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (m_lockFd < 0) {
        stopKeeping(lockPath() + QStringLiteral(": ") + lastError());
        return false;
    }
    return true;
}

bool CThreatJournal::lock()
{
    // A lock of its own, since compaction replaces the journal file: one agent per user keeps it.
    if (::flock(m_lockFd, LOCK_EX | LOCK_NB) == 0)
        return true;
    if (errno != EWOULDBLOCK)
        stopKeeping(lockPath() + QStringLiteral(": ") + lastError());
    return false;
}

bool CThreatJournal::openFile()
{
    m_fd = ::open(QFile::encodeName(m_path).constData(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                  0600);
    struct stat st = {};
    if (m_fd < 0 || ::fstat(m_fd, &st) != 0) {
        stopKeeping(m_path + QStringLiteral(": ") + lastError());
        return false;
    }
    const QString unsafe =
        S_ISREG(st.st_mode) ? unsafeBecause(m_path, st) : m_path + QStringLiteral(" is not a file");
    if (!unsafe.isEmpty()) {
        stopKeeping(unsafe);
        return false;
    }
    m_size = st.st_size;
    return true;
}

void CThreatJournal::read()
{
    // Read whole, a piece at a time: no size makes a valid record of this user's own file vanish.
    Reader reader(m_size);
    QByteArray unread;
    while (!reader.done()) {
        const qint64 at = reader.offset() + unread.size();
        QByteArray piece(int(std::min<qint64>(kPiece, m_size - at)), Qt::Uninitialized);
        const ssize_t got = ::pread(m_fd, piece.data(), size_t(piece.size()), at);
        if (got < 0)
            return stopKeeping(m_path + QStringLiteral(": ") + lastError());
        if (got == 0)
            break;
        unread += piece.left(int(got));
        unread.remove(0, reader.feed(unread));
    }
    Contents contents = reader.finish();
    // A file no agent wrote is not compacted either: nothing beyond what was read is destroyed.
    if (reader.tooLong())
        return stopKeeping(contents.problem + QStringLiteral("; the journal is left as it is"));
    if (!contents.problem.isEmpty())
        say(contents.problem);
    m_records = std::move(contents.records);
    m_restored = std::move(contents.threats);
    m_nextNumber = contents.nextNumber;
    m_liveBytes = 0;
    for (const Record &record : m_records)
        m_liveBytes += record.length;
}

CThreatJournal::Contents CThreatJournal::parse(const QByteArray &data, qint64 fileSize)
{
    Reader reader(fileSize);
    reader.feed(data);
    return reader.finish();
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

quint64 CThreatJournal::add(const SVirusInfo &info)
{
    if (waitsForLock())
        m_taken << info;
    if (!isKept())
        return 0;
    // Only a journal that came with the largest number gets here: a number more would not be read.
    if (m_nextNumber > kMaxNumber) {
        stopKeeping(QStringLiteral("%1 holds the largest threat number").arg(m_path));
        return 0;
    }
    const QByteArray record = threatRecord(m_nextNumber, info);
    const qint64 offset = m_size;
    if (!append(record))
        return 0;
    m_records.push_back(Record{m_nextNumber, offset, record.size(), keyOf(info)});
    m_liveBytes += record.size();
    return m_nextNumber++;
}

void CThreatJournal::remove(const SVirusInfo &info)
{
    if (waitsForLock()) {
        // Decided here: the other agent's record of it is forgotten at the take-over.
        const QByteArray what = identity(info);
        const auto taken = std::find_if(m_taken.begin(), m_taken.end(),
                                        [&what](const SVirusInfo &t) { return identity(t) == what; });
        if (taken != m_taken.end())
            m_taken.erase(taken);
        ++m_decided[what];
        return;
    }
    const auto found = findOldest(info);
    if (found != m_records.end())
        forget(found);
}

std::vector<CThreatJournal::Record>::iterator CThreatJournal::findOldest(const SVirusInfo &info)
{
    // The key narrows the search; the record itself, read back, decides.
    const QByteArray what = identity(info);
    const uint key = keyOf(info);
    for (auto record = m_records.begin(); record != m_records.end(); ++record) {
        if (record->key != key)
            continue;
        QByteArray bytes(int(record->length), Qt::Uninitialized);
        SVirusInfo found;
        if (::pread(m_fd, bytes.data(), size_t(bytes.size()), record->offset) == bytes.size() &&
            threatOf(bytes.left(bytes.lastIndexOf(' ')).split(' '), found) && identity(found) == what)
            return record;
    }
    return m_records.end();
}

void CThreatJournal::forget(std::vector<Record>::iterator record)
{
    const quint64 number = record->number;
    m_liveBytes -= record->length;
    m_records.erase(record);
    // The file follows the undecided threats, not the history: once decided records outweigh them,
    // and whenever none is left, it is rewritten without the decided ones.
    if (m_records.empty() || m_size - m_liveBytes > std::max(m_liveBytes, kCompactSlack))
        compact();
    else
        append(decisionRecord(number));
}

bool CThreatJournal::takeOver()
{
    if (!waitsForLock() || !lock() || !openFile())
        return false;
    read();
    if (!isKept())
        return false;
    // The other agent saw the same announcements: what this one decided meanwhile is forgotten,
    // what it took is not restored a second time, and what it took that is not here is added.
    QHash<QByteArray, int> taken;
    for (const SVirusInfo &info : m_taken)
        ++taken[identity(info)];
    QHash<QByteArray, int> adopted;
    SVirusInfoList restored;
    std::vector<Record> undecided;
    for (size_t i = 0; i < m_records.size(); ++i) {
        const SVirusInfo &info = m_restored.at(int(i));
        const QByteArray what = identity(info);
        if (m_decided.value(what) > 0) {
            --m_decided[what];
            m_liveBytes -= m_records[i].length;
            continue;
        }
        if (taken.value(what) > 0) {
            --taken[what];
            ++adopted[what];
        } else {
            restored << info;
        }
        undecided.push_back(m_records[i]);
    }
    m_records = std::move(undecided);
    m_decided.clear();
    m_restored = restored;
    say(QStringLiteral("took over from the agent that kept them: %1 undecided threats to restore from %2")
            .arg(m_restored.size())
            .arg(m_path));
    compact();
    for (const SVirusInfo &info : std::exchange(m_taken, SVirusInfoList()))
        if (adopted[identity(info)]-- <= 0)
            add(info);
    return isKept();
}

bool CThreatJournal::append(const QByteArray &record)
{
    // One write per record: a process killed in the middle of it tears this record at most, at
    // the end of the file, where reading stops.
    if (writeWhole(m_fd, record)) {
        m_size += record.size();
        return true;
    }
    const QString why = lastError();
    // A partial record would hide every later one from the next start; it is cut off again.
    if (::ftruncate(m_fd, m_size) != 0)
        say(m_path + QStringLiteral(": ") + lastError());
    stopKeeping(why);
    return false;
}

void CThreatJournal::compact()
{
    if (m_size == m_liveBytes)
        return;
    const QByteArray temporary = QFile::encodeName(m_path + QStringLiteral(".new"));
    const int fd =
        ::open(temporary.constData(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
    bool written = fd >= 0;
    qint64 size = 0;
    auto record = m_records.begin();
    while (written && record != m_records.end()) {
        // Records that lie side by side are copied in one piece.
        const qint64 from = record->offset;
        qint64 length = 0;
        while (record != m_records.end() && record->offset == from + length && length < kPiece) {
            record->offset = size + length;
            length += record->length;
            ++record;
        }
        QByteArray bytes(int(length), Qt::Uninitialized);
        written = ::pread(m_fd, bytes.data(), size_t(length), from) == length && writeWhole(fd, bytes);
        size += length;
    }
    // Synced before the rename, so that a power loss cannot leave an empty journal in its place;
    // the rename then swaps old for new in one step.
    if (!written || ::fdatasync(fd) != 0 ||
        ::rename(temporary.constData(), QFile::encodeName(m_path).constData()) != 0) {
        const QString why = lastError();
        if (fd >= 0) {
            ::close(fd);
            ::unlink(temporary.constData());
        }
        return stopKeeping(why);
    }
    ::close(m_fd);
    m_fd = fd;
    m_size = size;
}

void CThreatJournal::stopKeeping(const QString &why)
{
    // Said once: after this the journal is closed and nothing else is tried.
    say(QStringLiteral("threats are not being kept: ") + why);
    if (m_fd >= 0)
        ::close(m_fd);
    if (m_lockFd >= 0)
        ::close(m_lockFd);
    m_fd = m_lockFd = -1;
    m_records.clear();
    m_taken.clear();
    m_decided.clear();
    m_liveBytes = 0;
}
