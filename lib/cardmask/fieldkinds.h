#pragma once

#include <string>
#include <string_view>
#include <vector>

// What a logged or recorded value is, which decides what may be shown of it.
enum class ValueKind {
    Host,       // the host's own values: amounts, merchant ids, settings, the directory, counts;
                // they never hold card data and are shown as they are
    Pan,        // the answer's card number: first six and last four digits (CardMask::pan)
    ClientText, // what the client writes for people (its message, its slips): the card and
                // track rule, readable (CardMask::Reading::Readable)
    Unknown,    // a member or option the table does not know: nothing says what it holds, so
                // the strict reading (CardMask::Reading::Strict)
    CustomerQr, // the customer's QR code, card data whole: only its length
};

// The one table of the client's fields and options and their kinds. Plain C++, so that the
// recorder, which stands in the host's way, reads it without loading Qt.
class FieldKinds
{
public:
    // A member of the client's JSON answer, by its key; a key the table does not know is
    // Unknown.
    static ValueKind ofAnswerField(std::u16string_view key);
    // An option of the client's command line ("-a" ... "-t"), by its name; an option the table
    // does not know is Unknown.
    static ValueKind ofOption(std::u16string_view option);
    static ValueKind ofOption(std::string_view option);
    // What a client's command line may show, wherever it is shown (the log, posctl check, the
    // recordings): the arguments after the program, the operation code then options and their
    // values in pairs as the client reads them; the host's values as they are, the customer's
    // code as "<QR n bytes>", any other value as "<n bytes>", since nothing says what it holds.
    static std::vector<std::string> shownArguments(const std::vector<std::string_view> &arguments);
    // The same for one option's value.
    static std::string shownValue(std::string_view option, std::string_view value);
    // Whether a text is a scanned customer QR code: the Base64 of an EMV consumer-presented
    // payload, which starts with its format indicator (tag 85, "CPV01").
    static bool isCustomerQr(std::u16string_view text);
};
