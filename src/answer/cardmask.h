#pragma once

#include <QString>

// What the plug-in's log may show of card data. Answers keep what the client sent; only the
// log is masked, and it is masked whatever the level.
//
// Each function takes its text by value and masks it in place: a line that was just formatted
// is nobody else's, so masking costs one pass over it and no copy.
class CardMask
{
public:
    // Any text: a card number is 13 to 19 digits that pass the Luhn check, written together
    // or in groups split by one blank, hyphen or dot. Every run of whole consecutive groups
    // inside a longer run of groups is tried, so a number followed by an expiry date, an
    // amount or another group is still found; each one found keeps only its last four digits.
    // A single group of more than 19 digits is never a card number. Linear in the text.
    static QString text(QString text);

    // The answer's card number, which is one by definition: its first six and last four
    // digits stay, every digit between becomes "*", whatever its separators, length or check
    // digit. A value with ten digits or fewer, an already masked one among them, is unchanged.
    static QString pan(QString pan);

    // The client's raw JSON output: the value of every "PAN" member, string or number, masked
    // by pan(). Everything else is left for text(). Text that is not JSON is left as it is.
    static QString panMembers(QString json);
};
