#include "tlvview.h"

namespace {

constexpr int deepest = 4;

bool readLevel(const QByteArray &data, QList<TlvView::Element> &elements, int depth)
{
    qsizetype p = 0;
    const auto byte = [&data](qsizetype i) { return quint8(data.at(i)); };
    while (p < data.size()) {
        const qsizetype tagStart = p;
        if ((byte(p++) & 0x1f) == 0x1f) {
            do {
                if (p >= data.size())
                    return false;
            } while (byte(p++) & 0x80);
        }
        const qsizetype tagEnd = p;
        if (p >= data.size())
            return false;
        qint64 length = byte(p++);
        if (length & 0x80) {
            const int count = int(length & 0x7f);
            if (count == 0 || count > 4 || p + count > data.size())
                return false;
            length = 0;
            for (int k = 0; k < count; ++k)
                length = length << 8 | byte(p++);
        }
        if (length > data.size() - p)
            return false;
        TlvView::Element element;
        element.tag = data.mid(tagStart, tagEnd - tagStart);
        element.value = data.mid(p, qsizetype(length));
        element.constructed = (byte(tagStart) & 0x20) != 0;
        p += qsizetype(length);
        elements.append(element);
        if (element.constructed && depth < deepest) {
            QList<TlvView::Element> inner;
            if (!readLevel(element.value, inner, depth + 1))
                return false;
            elements += inner;
        }
    }
    return true;
}

} // namespace

bool TlvView::read(const QByteArray &data, QList<Element> &elements)
{
    elements.clear();
    if (data.isEmpty() || !readLevel(data, elements, 0)) {
        elements.clear();
        return false;
    }
    return true;
}

bool TlvView::carriesCardData(const QByteArray &tag)
{
    // Track 1 (56), track 2 (57, 9F6B) and their discretionary data (9F1F, 9F20), the number
    // (5A), the cardholder's name (5F20, 9F0B), the expiry and effective dates (5F24, 5F25) and
    // the service code (5F30).
    static const QList<QByteArray> tags = {
        QByteArray::fromHex("56"),   QByteArray::fromHex("57"),   QByteArray::fromHex("5A"),
        QByteArray::fromHex("5F20"), QByteArray::fromHex("5F24"), QByteArray::fromHex("5F25"),
        QByteArray::fromHex("5F30"), QByteArray::fromHex("9F0B"), QByteArray::fromHex("9F1F"),
        QByteArray::fromHex("9F20"), QByteArray::fromHex("9F6B")};
    return tags.contains(tag);
}
