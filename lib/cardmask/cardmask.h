#pragma once

#include <QString>

// The rule for text that may hold card data: what the log, and a recording of the client's
// conversation, may show of it. Values keep what they hold everywhere else.
//
// A card number is 13 to 19 digits that pass the Luhn check and do not start with 0, written
// unbroken or in the groups in which cards are printed: fours with a shorter last group,
// 4-6-5 or 4-6-4. Groups are split by a short run (one to three characters) of blanks (any
// Unicode space), control characters or punctuation, and may be glued to letters. Every run of
// whole consecutive groups in such a layout is tried, so a date or an amount before a number
// does not hide it. Each number found keeps its last four digits; the others become "*".
//
// A run of more than 19 digits is an identifier (the 25-digit SBP form identifier stays
// readable), except where the number is found inside it by its form: track 2 data (the number,
// "=" or "D", and at least four digits of expiry and more), track 1 data ("B", the number, "^",
// the name, "^", ...), the EMV tags 57 (track 2 equivalent) and 5A (the card number) written
// in hex with their length before the value. Track data is removed whole, since the expiry,
// the service code, the discretionary data and the name are never to be written:
// "<track ************1111>" stands in its place.
//
// Limits: a card number run together with its expiry and nothing else is an identifier; only
// ASCII digits are read as digits; a 13-digit number that is not a card but passes the check
// (one in ten EAN-13 barcodes) is starred. docs/answers.md has the measured rates.
//
// Linear in the text. A text that needs no change is returned without a copy.
class CardMask
{
public:
    enum class Ending {
        Whole,
        // The text may have been cut at a size limit: digits at its very end are masked as if
        // the number went on.
        MayBeCut,
    };

    // Any text that is not known to be a card number.
    static QString text(QString text, Ending ending = Ending::Whole);
    // The same on the text from position from to its end, in place: for a large value that
    // is written at the end of the line that holds it.
    static void maskTail(QString &text, qsizetype from, Ending ending = Ending::Whole);

    // A value that is a card number by definition (the answer's "PAN"): its first six and last
    // four digits stay, every digit between becomes "*", whatever its separators, length or
    // check digit. A value of ten digits or fewer, an already masked one among them, is left
    // as it is. A value that may have been cut keeps only its first six digits.
    static QString pan(QString pan, Ending ending = Ending::Whole);

    // Whether the Luhn check digit of these digits (values 0 to 9) is right.
    static bool passesLuhn(const char *digits, qsizetype count);
};
