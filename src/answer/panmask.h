#pragma once

#include <QString>

// Masks every full card number in a text meant for the log: a run of 13 to 19 digits, which
// may be grouped by single blanks or hyphens, that passes the Luhn check keeps only its last
// four digits. Everything else is left as it is. Answers keep the number; logs never do.
QString maskCardNumbers(const QString &text);
