#pragma once

#include <QByteArray>
#include <QList>

// BER-TLV data read element by element, for what may be shown of it: only data that is BER-TLV
// from its first byte to its last, every element whole, reads; anything else does not.
class TlvView
{
public:
    struct Element
    {
        QByteArray tag;   // its bytes
        QByteArray value; // its bytes; of a constructed element, its elements
        bool constructed = false;
    };

    // The elements in order, with the elements of constructed ones read too (to a few levels),
    // or nothing when the data is not BER-TLV whole.
    static bool read(const QByteArray &data, QList<Element> &elements);

    // The tags whose values carry card or cardholder data: the number, track 1 and 2 and their
    // discretionary data, the name, the expiry; never shown.
    static bool carriesCardData(const QByteArray &tag);
};
