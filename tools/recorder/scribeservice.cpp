#include "scribeservice.h"

#include <cardmask.h>
#include <outputmask.h>
#include <recordedtext.h>
#include <recordingkeys.h>
#include <recordingline.h>
#include <recordingwriter.h>
#include <scribeprotocol.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

namespace k = recordingkeys;

// A stream as the recording keeps it: decoded run by run, card data masked (the output by the
// kind of each field, the error by the rule for text), and escaped where it was not UTF-8.
struct Kept
{
    QString text; // masked, as the line holds it
    bool escaped = false;
    QString masked; // masked, stand-ins and all
};

Kept keep(const QByteArray &bytes, bool cut, bool isOutput, const CustomerCodeForms &code)
{
    const CardMask::Ending ending = cut ? CardMask::Ending::MayBeCut : CardMask::Ending::Whole;
    bool clean = true;
    const QString text = RecordedText::fromBytes(bytes, &clean);
    Kept kept;
    // Standard error is text nothing says the kind of: read strictly, its escapes decoded.
    kept.masked = isOutput ? OutputMask::masked(text, ending, code)
                           : OutputMask::maskedUnknownText(text, ending, code);
    kept.text = RecordedText::forLine(kept.masked, clean);
    kept.escaped = !clean;
    return kept;
}

// The members of the answer that readers want, from the masked output as the plug-in reads it
// (a byte that is not UTF-8 as the replacement character).
QByteArray summary(QString masked)
{
    for (QChar &c : masked)
        if (RecordedText::isStandIn(c.unicode()))
            c = QChar(0xfffd);
    const QJsonObject answer = QJsonDocument::fromJson(masked.toUtf8()).object();
    if (answer.isEmpty())
        return {};
    QJsonObject picked;
    for (const char *name : k::answerMembers)
        if (answer.contains(QLatin1StringView(name)))
            picked.insert(QLatin1StringView(name), answer.value(QLatin1StringView(name)));
    return QJsonDocument(picked).toJson(QJsonDocument::Compact);
}

// The parts of a hand-over: whether each output was cut ("1 0"), then each output and the
// customer's code as its length on a line of its own and its bytes.
bool split(const QByteArray &handOver, QByteArray &cut, QByteArray &output, QByteArray &error,
           QByteArray &customerCode)
{
    qsizetype at = 0;
    const auto line = [&](QByteArray &out) {
        const qsizetype end = handOver.indexOf('\n', at);
        if (end < 0)
            return false;
        out = handOver.mid(at, end - at);
        at = end + 1;
        return true;
    };
    const auto sized = [&](QByteArray &out) {
        QByteArray length;
        bool ok = false;
        if (!line(length))
            return false;
        const qsizetype size = length.toLongLong(&ok);
        if (!ok || size < 0 || at + size > handOver.size())
            return false;
        out = handOver.mid(at, size);
        at += size;
        return true;
    };
    return line(cut) && sized(output) && sized(error) && sized(customerCode);
}

QByteArray readAll(int fd)
{
    QByteArray bytes;
    char buffer[65536];
    for (ssize_t n; (n = ::pread(fd, buffer, sizeof buffer, bytes.size())) > 0;)
        bytes.append(buffer, n);
    return bytes;
}

// Work taken from the socket, done in order on a thread of its own.
class Worker
{
public:
    Worker()
        : m_thread([this] { run(); })
    {}
    ~Worker()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
    void add(std::function<void()> work)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_work.push_back(std::move(work));
        }
        m_changed.notify_all();
    }
    bool idle() const
    {
        const std::lock_guard lock(m_mutex);
        return m_work.empty() && !m_busy;
    }

private:
    void run()
    {
        for (;;) {
            std::function<void()> work;
            {
                std::unique_lock lock(m_mutex);
                m_changed.wait(lock, [this] { return m_stop || !m_work.empty(); });
                if (m_work.empty())
                    return;
                work = std::move(m_work.front());
                m_work.pop_front();
                m_busy = true;
            }
            work();
            const std::lock_guard lock(m_mutex);
            m_busy = false;
        }
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_work;
    bool m_busy = false;
    bool m_stop = false;
    std::thread m_thread;
};

// The socket, bound in the recordings folder; -1 when another service has it.
int bindSocket()
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = std::string("recordings/") + scribeprotocol::socketName;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const auto bound = [&] {
        return ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    };
    if (!bound()) {
        // A socket left by a service that ended without removing it: nobody answers there.
        const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool alive =
            ::connect(probe, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        ::close(probe);
        if (alive || errno != ECONNREFUSED || ::unlink(path.c_str()) != 0 || !bound()) {
            ::close(fd);
            return -1;
        }
    }
    ::chmod(path.c_str(), 0600);
    ::listen(fd, 64);
    return fd;
}

ino_t inodeOf(const char *path)
{
    struct stat state = {};
    return ::stat(path, &state) == 0 ? state.st_ino : 0;
}

} // namespace

bool ScribeService::writeOutput(const QString &directory, std::time_t day, const QByteArray &run,
                                const QByteArray &id, const QByteArray &handOver)
{
    QByteArray cut, output, error, customerCode;
    if (!split(handOver, cut, output, error, customerCode))
        return false;
    const CustomerCodeForms code(QString::fromLatin1(customerCode));
    const Kept out = keep(output, cut.startsWith('1'), true, code);
    const Kept err = keep(error, cut.endsWith('1'), false, code);
    RecordingLine line(k::output);
    line.add(k::id, id.toStdString());
    if (const QByteArray answer = summary(out.masked); !answer.isEmpty())
        line.addRaw(k::answer, answer.toStdString());
    if (out.escaped)
        line.add(k::stdoutEscaped, true);
    if (err.escaped)
        line.add(k::stderrEscaped, true);
    // The outputs last: a reader that wants only the rest stops before them.
    line.add(k::stdoutText, out.text.toStdString()).add(k::stderrText, err.text.toStdString());
    RecordingWriter writer(QFile::encodeName(directory).toStdString(), day, run.toStdString());
    return writer.append(line.text()) != RecordingWriter::Where::Nowhere;
}

void ScribeService::serve(const QString &directory)
{
    if (::chdir(QFile::encodeName(directory).constData()) != 0)
        return;
    const int listening = bindSocket();
    if (listening < 0)
        return;
    const std::string path = std::string("recordings/") + scribeprotocol::socketName;
    const ino_t ours = inodeOf(path.c_str());
    Worker flushing;
    Worker writing;
    auto lastRequest = std::chrono::steady_clock::now();
    // Until a minute has passed without a request and all that was taken is done, or the socket
    // is no longer ours.
    while (inodeOf(path.c_str()) == ours &&
           (std::chrono::steady_clock::now() - lastRequest < std::chrono::seconds(idleSeconds) ||
            !flushing.idle() || !writing.idle())) {
        pollfd ready{listening, POLLIN, 0};
        if (::poll(&ready, 1, 1000) != 1)
            continue;
        const int connection = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            continue;
        lastRequest = std::chrono::steady_clock::now();
        std::string request;
        std::vector<int> descriptors;
        const auto closeAll = [](int answered, std::vector<int> fds) {
            for (int fd : fds)
                ::close(fd);
            ::close(answered);
        };
        if (!scribeprotocol::receive(connection, request, descriptors)) {
            closeAll(connection, descriptors);
            continue;
        }
        std::istringstream words(request);
        std::string verb, day, run, id;
        words >> verb >> day >> run >> id;
        if (verb == scribeprotocol::syncVerb) {
            flushing.add([connection, descriptors, closeAll] {
                for (int fd : descriptors)
                    ::fsync(fd);
                [[maybe_unused]] const ssize_t n = ::write(connection, "1", 1);
                closeAll(connection, descriptors);
            });
        } else if (verb == scribeprotocol::outputVerb && descriptors.size() == 1 && !id.empty()) {
            [[maybe_unused]] const ssize_t n = ::write(connection, "1", 1);
            ::close(connection);
            const int memory = descriptors.front();
            writing.add([memory, day, run, id] {
                writeOutput(u"."_s, std::time_t(std::atoll(day.c_str())),
                            QByteArray::fromStdString(run), QByteArray::fromStdString(id),
                            readAll(memory));
                ::close(memory);
            });
        } else {
            closeAll(connection, descriptors);
        }
    }
    if (inodeOf(path.c_str()) == ours)
        ::unlink(path.c_str());
    ::close(listening);
}
