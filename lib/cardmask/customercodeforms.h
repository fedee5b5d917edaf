#pragma once

#include <QList>
#include <QString>

// The customer's QR code is card data whole, and unlike any other card data it is known: the
// plug-in and the recorder sent it as the client's "-d" value. So it is found by its value,
// wherever a client echoes it (its command line on standard error, its message), in every form
// a client may write it: the value itself (Base64 of a BER-TLV wrapper), and, decoded, its
// bytes in hex, the customer code inside, that code's bytes in hex, and the card data the code
// carries (the number's digits, track 2 in hex and as text). Each form found becomes
// "<QR n bytes>", n the length of what it replaces.
class CustomerCodeForms
{
public:
    // No code was sent: nothing to find.
    CustomerCodeForms() = default;
    // The "-d" value as it was sent.
    explicit CustomerCodeForms(const QString &sent);

    bool isEmpty() const { return m_forms.isEmpty(); }

    // Replaces every form in text from position from on; the card number's digits with what
    // follows them as track 2 ("=" or "D", the expiry and the rest). Linear in the text for
    // each form.
    void maskTail(QString &text, qsizetype from) const;

    // A form shorter than this is too likely to stand in other text by chance.
    static constexpr qsizetype shortestForm = 12;

private:
    enum class Kind { Encoded, Number };
    struct Form
    {
        QString text;
        Kind kind;
    };

    void add(const QString &form, Kind kind = Kind::Encoded);
    void addDecoded(const QByteArray &bytes, int depth);

    QList<Form> m_forms; // longest first, so that a form inside a longer one goes with it
};
