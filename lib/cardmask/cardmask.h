#pragma once

#include <QString>

// The rule for text that may hold card data: what the log, a recording of the client's
// conversation and posctl's messages may show of it. Values keep what they hold everywhere else.
//
// A card number is 13 to 19 digits (zeros padding it aside) that pass the Luhn check, 15 of them
// only with an American Express prefix, written unbroken or in the groups in which cards are
// printed: fours with a shorter last group, 4-6-5, 4-6-4, 6-10, 8-8 and 6-13. Groups are split
// by a short run (one to three characters) of blanks (any Unicode space), control and format
// characters, punctuation, signs of arithmetic or characters that were not text (U+FFFD, the
// recorder's stand-ins), or by a line break with a slip's padding around it, and may be glued
// to letters. Every run of whole consecutive groups in such a layout is tried, so a date or an
// amount before a number does not hide it. Each number found keeps its last four digits; the
// others become "*". A number glued to its expiry (YYMM) loses the expiry too.
//
// What is never a card number: digits after a fiscal register's label (ФН, ФД, ФП, ФПД, ЗН ККТ,
// РН ККТ, ИНН), a time stamp written YYYYMMDDhhmmss, a run of more than 19 digits (the 25-digit
// SBP form identifier stays readable) unless the number is found inside it by its form.
//
// Sensitive authentication data is never kept, whatever it looks like: the value after a label
// CVV, CVC, CVV2, CVC2, CID, CAV, CVN, PIN or PIN block (Latin or Cyrillic) is starred whole,
// and track data goes whole, since the expiry, the service code, the discretionary data and the
// name are never to be written: track 2 (the number, "=" or "D", the expiry and the rest), track
// 1 ("%", "B", the number, "^", the name, "^", ...; the sentinel or the format code may be
// missing), EMV tags 57 and 5A in hex after their length (short or long form).
// "<track ************1111>" stands in its place.
//
// Hex (its bytes perhaps split by single blanks or colons) and Base64 long enough to hold an EMV
// element or a QR payload that read as BER-TLV are shown element by element: the values of the
// tags that carry card data (TlvView::carriesCardData) starred, the number's last four digits
// aside; every other value read by the same rule, as text when it is text, to a few levels.
//
// Limits: only ASCII digits are read as digits; a 13-digit number that is not a card but passes
// the check (one in ten EAN-13 barcodes) is starred. docs/answers.md has the measured rates.
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

    enum class Reading {
        // Text the terminal writes for people (its message, its slips): card numbers by the
        // rule, everything else as it is, so that support can read it.
        Readable,
        // Text nobody said what it holds (a member the table does not know, the client's
        // standard error): any 12 digits or more in a row, whatever splits them, keep only
        // their last four; hex and Base64 long enough to hold an EMV element or a QR payload
        // keep only their length, unless they are BER-TLV.
        Strict,
    };

    // Any text that is not known to be a card number.
    static QString text(QString text, Ending ending = Ending::Whole,
                        Reading reading = Reading::Readable);
    // The same on the text from position from to its end, in place: for a large value that
    // is written at the end of the line that holds it.
    static void maskTail(QString &text, qsizetype from, Ending ending = Ending::Whole,
                         Reading reading = Reading::Readable);

    // A value that is a card number by definition (the answer's "PAN"): its first six and last
    // four digits stay, every digit between becomes "*", whatever its separators, length or
    // check digit. A value of ten digits or fewer, an already masked one among them, is left
    // as it is. A value that may have been cut keeps only its first six digits.
    static QString pan(QString pan, Ending ending = Ending::Whole);

    // Whether the Luhn check digit of these digits (values 0 to 9) is right.
    static bool passesLuhn(const char *digits, qsizetype count);
};
