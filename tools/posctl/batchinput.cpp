#include "batchinput.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

BatchInput::BatchInput(int stopDescriptor)
    : m_stopDescriptor(stopDescriptor)
{}

// Reads what standard input has; with wait, blocks until it has something, ends, or a stop
// comes. Returns false on a stop (or when nothing was there without waiting).
bool BatchInput::fill(bool wait)
{
    pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {m_stopDescriptor, POLLIN, 0}};
    const int ready = ::poll(fds, m_stopDescriptor >= 0 ? 2 : 1, wait ? -1 : 0);
    if (ready < 0 && errno == EINTR)
        return true;
    if (ready <= 0 || (wait && fds[1].revents != 0) || fds[0].revents == 0)
        return false;
    char chunk[65536];
    const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
    if (n > 0)
        m_buffer.append(chunk, n);
    else if (n == 0 || errno != EINTR)
        m_atEnd = true;
    return true;
}

std::optional<QByteArray> BatchInput::takeLine(bool atEnd)
{
    qsizetype end = m_buffer.indexOf('\n');
    if (end < 0 && (!atEnd || m_buffer.isEmpty()))
        return std::nullopt;
    if (end < 0)
        end = m_buffer.size();
    QByteArray line = m_buffer.left(end);
    m_buffer.remove(0, end + 1);
    if (line.endsWith('\r'))
        line.chop(1);
    return line;
}

std::optional<QByteArray> BatchInput::next()
{
    for (;;) {
        if (auto line = takeLine(m_atEnd)) {
            ++m_lineNumber;
            return line;
        }
        if (m_atEnd || !fill(true))
            return std::nullopt;
    }
}

QList<QByteArray> BatchInput::available()
{
    while (!m_atEnd && fill(false)) {
    }
    QList<QByteArray> lines;
    while (auto line = takeLine(true))
        lines.append(*line);
    return lines;
}
