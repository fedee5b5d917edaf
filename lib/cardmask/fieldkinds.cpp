#include "fieldkinds.h"

#include <algorithm>

namespace {

enum class Where { Answer, Option };

struct Field
{
    Where where;
    std::u16string_view name;
    ValueKind kind;
};

// Every field and option that the plug-in reads or writes. The answer's fields other than the
// card number are the client's own text for people, whatever they are meant to hold.
constexpr Field fields[] = {
    {Where::Answer, u"PAN", ValueKind::Pan},
    {Where::Answer, u"Status", ValueKind::ClientText},
    {Where::Answer, u"ResponseCodeHost", ValueKind::ClientText},
    {Where::Answer, u"TextResponse", ValueKind::ClientText},
    {Where::Answer, u"AuthorizationCode", ValueKind::ClientText},
    {Where::Answer, u"ReferenceNumber", ValueKind::ClientText},
    {Where::Answer, u"CardType", ValueKind::ClientText},
    {Where::Answer, u"balance", ValueKind::ClientText},
    {Where::Answer, u"ReceiptData", ValueKind::ClientText},
    {Where::Option, u"-a", ValueKind::Host},       // amount
    {Where::Option, u"-c", ValueKind::Host},       // authorisation code or form identifier
    {Where::Option, u"-d", ValueKind::CustomerQr}, // the customer's QR payload
    {Where::Option, u"-e", ValueKind::Host},
    {Where::Option, u"-f", ValueKind::Host}, // SBP function
    {Where::Option, u"-o", ValueKind::Host},
    {Where::Option, u"-r", ValueKind::Host}, // reference number or form identifier
    {Where::Option, u"-t", ValueKind::Host}, // merchant id
};

template<typename Name>
ValueKind find(Where where, Name name)
{
    for (const Field &field : fields)
        if (field.where == where &&
            std::equal(field.name.begin(), field.name.end(), name.begin(), name.end()))
            return field.kind;
    return ValueKind::Unknown;
}

} // namespace

ValueKind FieldKinds::ofAnswerField(std::u16string_view key)
{
    return find(Where::Answer, key);
}

ValueKind FieldKinds::ofOption(std::u16string_view option)
{
    return find(Where::Option, option);
}

std::string FieldKinds::shownValue(std::string_view option, std::string_view value)
{
    switch (ofOption(option)) {
    case ValueKind::Host:
        return std::string(value);
    case ValueKind::CustomerQr:
        return "<QR " + std::to_string(value.size()) + " bytes>";
    default:
        return '<' + std::to_string(value.size()) + " bytes>";
    }
}

std::vector<std::string> FieldKinds::shownArguments(const std::vector<std::string_view> &arguments)
{
    std::vector<std::string> shown;
    shown.reserve(arguments.size());
    for (size_t i = 0; i < arguments.size(); ++i) {
        // The operation code, then each option followed by its value.
        if (i >= 2 && i % 2 == 0)
            shown.push_back(shownValue(arguments[i - 1], arguments[i]));
        else
            shown.emplace_back(arguments[i]);
    }
    return shown;
}

ValueKind FieldKinds::ofOption(std::string_view option)
{
    return find(Where::Option, option);
}

bool FieldKinds::isCustomerQr(std::u16string_view text)
{
    return text.substr(0, 7) == u"hQVDUFY";
}
