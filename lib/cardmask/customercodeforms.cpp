#include "customercodeforms.h"

#include "tlvview.h"

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

// The wrapper, the customer code inside it, the EMV data inside that.
constexpr int deepest = 3;

bool isBase64Text(const QByteArray &bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/' || c == '=' || c == '-' || c == '_';
    });
}

} // namespace

CustomerCodeForms::CustomerCodeForms(const QString &sent)
{
    add(sent);
    addDecoded(sent.toLatin1(), 0);
    std::stable_sort(m_forms.begin(), m_forms.end(),
                     [](const Form &a, const Form &b) { return a.text.size() > b.text.size(); });
}

void CustomerCodeForms::add(const QString &form, Kind kind)
{
    if (form.size() < shortestForm)
        return;
    for (const Form &known : std::as_const(m_forms))
        if (known.text == form)
            return;
    m_forms.append({form, kind});
}

// Base64 text: its bytes in hex, and what its BER-TLV elements hold.
void CustomerCodeForms::addDecoded(const QByteArray &text, int depth)
{
    if (depth >= deepest || !isBase64Text(text))
        return;
    const QByteArray bytes = QByteArray::fromBase64(
        text, QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (bytes.isEmpty())
        return;
    const QByteArray hex = bytes.toHex();
    add(QString::fromLatin1(hex));
    add(QString::fromLatin1(hex.toUpper()));
    QList<TlvView::Element> elements;
    if (!TlvView::read(bytes, elements))
        return;
    for (const TlvView::Element &element : std::as_const(elements)) {
        if (element.constructed)
            continue;
        const QByteArray value = element.value;
        if (TlvView::carriesCardData(element.tag)) {
            const QByteArray valueHex = value.toHex().toUpper();
            add(QString::fromLatin1(valueHex));
            add(QString::fromLatin1(valueHex.toLower()));
            // The number and track 2 as digits: the padding "F" gone, "D" read as "=".
            QByteArray digits = valueHex;
            while (digits.endsWith('F'))
                digits.chop(1);
            if (digits.contains('D')) {
                add(QString::fromLatin1(QByteArray(digits).replace('D', '=')));
                add(QString::fromLatin1(digits.left(digits.indexOf('D'))), Kind::Number);
            } else {
                add(QString::fromLatin1(digits), Kind::Number);
            }
        } else if (isBase64Text(value)) {
            add(QString::fromLatin1(value));
            addDecoded(value, depth + 1);
        }
    }
}

void CustomerCodeForms::maskTail(QString &text, qsizetype from) const
{
    for (const Form &form : m_forms) {
        qsizetype found = text.indexOf(form.text, from);
        if (found < 0)
            continue;
        QString out = text.left(found);
        while (found >= 0) {
            qsizetype end = found + form.text.size();
            if (form.kind == Kind::Number && end < text.size() &&
                (text.at(end) == u'=' || text.at(end) == u'D' || text.at(end) == u'd')) {
                // Track 2 after the number: its expiry, service code and discretionary data.
                ++end;
                while (end < text.size() && text.at(end).isDigit())
                    ++end;
                if (end < text.size() && (text.at(end) == u'?' || text.at(end) == u'F'))
                    ++end;
            }
            out += u"<QR %1 bytes>"_s.arg(end - found);
            const qsizetype next = text.indexOf(form.text, end);
            out += QStringView(text).sliced(end, (next < 0 ? text.size() : next) - end);
            found = next;
        }
        text = out;
    }
}
