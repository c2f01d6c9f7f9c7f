#include "cthreatjournal.h"

#include <QDir>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A larger journal is read only this far: it would hold more threats than anyone can answer, and
// reading it must not stall the agent's start.
const qint64 kMaxRead = 64 * 1024 * 1024;
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

// The undecided threat with this number, or the end; the records are in rising number order.
std::vector<CThreatJournal::Record>::iterator find(std::vector<CThreatJournal::Record> &records,
                                                   quint64 number)
{
    const auto found =
        std::lower_bound(records.begin(), records.end(), number,
                         [](const CThreatJournal::Record &r, quint64 n) { return r.number < n; });
    return found != records.end() && found->number == number ? found : records.end();
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

CThreatJournal::CThreatJournal(const QString &directory)
{
    if (!open(directory))
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

bool CThreatJournal::open(const QString &directory)
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
    QString unsafe =
        S_ISDIR(st.st_mode) ? unsafeBecause(directory, st) : directory + QStringLiteral(" is not a folder");
    if (!unsafe.isEmpty()) {
        stopKeeping(unsafe);
        return false;
    }
    // A lock of its own, since compaction replaces the journal file: one agent per user keeps it.
    m_lockFd = ::open((folder + "/lock").constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (m_lockFd < 0 || ::flock(m_lockFd, LOCK_EX | LOCK_NB) != 0) {
        stopKeeping(errno == EWOULDBLOCK
                        ? QStringLiteral("another agent of this user keeps them in ") + directory
                        : directory + QStringLiteral("/lock: ") + lastError());
        return false;
    }
    m_path = directory + QStringLiteral("/journal");
    m_fd = ::open(QFile::encodeName(m_path).constData(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                  0600);
    if (m_fd < 0 || ::fstat(m_fd, &st) != 0) {
        stopKeeping(m_path + QStringLiteral(": ") + lastError());
        return false;
    }
    unsafe = S_ISREG(st.st_mode) ? unsafeBecause(m_path, st) : m_path + QStringLiteral(" is not a file");
    if (!unsafe.isEmpty()) {
        stopKeeping(unsafe);
        return false;
    }
    m_size = st.st_size;
    return true;
}

void CThreatJournal::read()
{
    QFile file;
    if (!file.open(m_fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        return stopKeeping(m_path + QStringLiteral(": ") + file.errorString());
    Contents contents = parse(file.read(std::min(m_size, kMaxRead)), m_size);
    if (!contents.problem.isEmpty())
        say(contents.problem);
    m_records = std::move(contents.records);
    m_restored = contents.threats;
    m_nextNumber = contents.nextNumber;
    for (const Record &record : m_records)
        m_liveBytes += record.length;
}

CThreatJournal::Contents CThreatJournal::parse(const QByteArray &data, qint64 fileSize)
{
    Contents contents;
    std::vector<Record> &records = contents.records;
    QHash<quint64, SVirusInfo> threats;
    qint64 offset = 0;
    while (offset < fileSize) {
        const int end = data.indexOf('\n', int(offset));
        const QByteArray line = data.mid(int(offset), end < 0 ? -1 : end - int(offset) + 1);
        if (end < 0 && offset + line.size() == fileSize) {
            contents.problem = QStringLiteral("skipped a torn last record of %1 bytes").arg(line.size());
            break;
        }
        const int seal = line.lastIndexOf(' ');
        const QByteArray body = line.left(seal);
        const QList<QByteArray> parts = body.split(' ');
        bool numbered = false;
        const quint64 number = parts.value(1).toULongLong(&numbered);
        const auto found = find(records, number);
        const bool sound =
            line.endsWith('\n') && seal > 0 && checksumMatches(body, line.mid(seal + 1).chopped(1));
        if (sound && parts.size() == 6 && parts[0] == "A" && numbered && number >= contents.nextNumber &&
            number <= kMaxNumber && (parts[2] == "0" || parts[2] == "1")) {
            const auto text = [&parts](int i) {
                return QString::fromUtf8(QByteArray::fromPercentEncoding(parts[i]));
            };
            threats.insert(number, SVirusInfo{text(3), text(4), text(5), parts[2] == "1"});
            records.push_back(Record{number, offset, line.size()});
            contents.nextNumber = number + 1;
        } else if (sound && parts.size() == 2 && parts[0] == "D" && numbered && found != records.end()) {
            records.erase(found);
        } else {
            contents.problem =
                QStringLiteral("the record at byte %1 is not valid; the %2 bytes from there on are ignored")
                    .arg(offset)
                    .arg(fileSize - offset);
            break;
        }
        offset += line.size();
    }
    contents.validBytes = offset;
    for (const Record &record : records)
        contents.threats << threats.value(record.number);
    return contents;
}

QByteArray CThreatJournal::threatRecord(quint64 number, const SVirusInfo &info)
{
    return sealed("A " + QByteArray::number(number) + (info.virusFlag ? " 1 " : " 0 ") +
                  field(info.virusName) + ' ' + field(info.virusDetail) + ' ' + field(info.virusPath));
}

QByteArray CThreatJournal::decisionRecord(quint64 number)
{
    return sealed("D " + QByteArray::number(number));
}

quint64 CThreatJournal::add(const SVirusInfo &info)
{
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
    m_records.push_back(Record{m_nextNumber, offset, record.size()});
    m_liveBytes += record.size();
    return m_nextNumber++;
}

quint64 CThreatJournal::takeNext()
{
    const auto next = std::upper_bound(m_records.begin(), m_records.end(), m_lastHandedOut,
                                       [](quint64 n, const Record &r) { return n < r.number; });
    if (next == m_records.end())
        return 0;
    m_lastHandedOut = next->number;
    return m_lastHandedOut;
}

void CThreatJournal::remove(quint64 number)
{
    const auto found = find(m_records, number);
    if (found == m_records.end())
        return;
    m_liveBytes -= found->length;
    m_records.erase(found);
    // The file follows the undecided threats, not the history: once decided records outweigh them,
    // and whenever none is left, it is rewritten without the decided ones.
    if (m_records.empty() || m_size - m_liveBytes > std::max(m_liveBytes, kCompactSlack))
        compact();
    else
        append(decisionRecord(number));
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
    const QByteArray temporary = QFile::encodeName(m_path + QStringLiteral(".new"));
    const int fd =
        ::open(temporary.constData(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
    bool written = fd >= 0;
    qint64 size = 0;
    for (auto record = m_records.begin(); written && record != m_records.end(); ++record) {
        QByteArray bytes(int(record->length), Qt::Uninitialized);
        written = ::pread(m_fd, bytes.data(), size_t(bytes.size()), record->offset) == bytes.size() &&
                  writeWhole(fd, bytes);
        record->offset = size;
        size += record->length;
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
    m_liveBytes = 0;
}
