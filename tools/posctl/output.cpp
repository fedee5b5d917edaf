#include "output.h"

#include "jsonwriter.h"

#include <QByteArray>

#include <cerrno>

Output &Output::operator<<(QStringView text)
{
    for (qsizetype from = 0; from < text.size();) {
        const qsizetype to = pieceEnd(text, from);
        write(text.sliced(from, to - from).toUtf8());
        from = to;
    }
    return *this;
}

void Output::write(const QByteArray &bytes)
{
    if (std::fwrite(bytes.constData(), 1, size_t(bytes.size()), m_stream) != size_t(bytes.size()) &&
        m_error == 0)
        m_error = errno ? errno : EIO;
}

int Output::finish()
{
    if (std::fflush(m_stream) != 0 && m_error == 0)
        m_error = errno ? errno : EIO;
    return m_error;
}

void Output::repeat(QChar c, qsizetype count)
{
    if (count <= 0)
        return;
    const QString block(std::min(count, pieceSize), c);
    for (; count > 0; count -= block.size())
        *this << QStringView(block).left(std::min(count, block.size()));
}

void Output::jsonString(QStringView text)
{
    *this << u'"';
    for (qsizetype from = 0; from < text.size();) {
        const qsizetype to = pieceEnd(text, from);
        const QString encoded = JsonWriter::encode(text.sliced(from, to - from).toString());
        *this << QStringView(encoded).sliced(1, encoded.size() - 2);
        from = to;
    }
    *this << u'"';
}

qsizetype Output::pieceEnd(QStringView text, qsizetype from)
{
    qsizetype to = std::min(text.size(), from + pieceSize);
    if (to < text.size() && text.at(to - 1).isHighSurrogate() && to - 1 > from)
        --to;
    return to;
}
