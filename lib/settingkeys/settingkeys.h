#pragma once

#include <QLatin1StringView>
#include <QString>

#include <optional>

// The keys of zelnorinpas.conf that the plug-in reads, in the order it reads them, with their
// kinds and defaults. Header-only, so that posctl's check reads the file by the same table.
enum class SettingKind {
    Boolean,
    Integer,
    TextList,    // items trimmed and upper-cased, blank ones dropped
    IntegerList, // items that are not 32-bit decimal integers dropped
};

struct SettingKey
{
    const char *group;
    const char *name;
    SettingKind kind;
    int defaultValue; // a boolean as 0 or 1; lists default to empty

    // The key under which the host's configuration finds it: "inpas.Group:name".
    QString configKey() const
    {
        return QLatin1StringView("inpas.") + QLatin1StringView(group) + u':' +
               QLatin1StringView(name);
    }
};

namespace settingkeys {

inline constexpr SettingKey scanTokenOnCancel{"Client", "scanTokenOnCancel", SettingKind::Boolean,
                                              1};
inline constexpr SettingKey allowInterruptPayment{"Client", "allowInterruptPayment",
                                                  SettingKind::Boolean, 0};
inline constexpr SettingKey notEnoughtBalanceCode{"ErrorCodes", "notEnoughtBalanceCode",
                                                  SettingKind::Integer, -1};
inline constexpr SettingKey intervalBetweenOperations{"Client", "intervalBetweenOperations",
                                                      SettingKind::Integer, 2};
inline constexpr SettingKey returnStatusSbpSuccessCodes{"Client", "returnStatusSbpSuccessCodes",
                                                        SettingKind::IntegerList, 0};
inline constexpr SettingKey successTextResponses{"Client", "successTextResponses",
                                                 SettingKind::TextList, 0};
inline constexpr SettingKey hostCodesResponseToRetry{"Client", "hostCodesResponseToRetry",
                                                     SettingKind::TextList, 0};

inline constexpr SettingKey all[] = {scanTokenOnCancel,           allowInterruptPayment,
                                     notEnoughtBalanceCode,       intervalBetweenOperations,
                                     returnStatusSbpSuccessCodes, successTextResponses,
                                     hostCodesResponseToRetry};

// The clean-up rules of the list items, for the plug-in that reads them and for posctl's check
// that shows what the plug-in will read: an item of an IntegerList that is no 32-bit decimal
// integer is dropped; an item of a TextList is trimmed and upper-cased, and dropped when blank.
inline std::optional<int> integerItem(const QString &item)
{
    bool ok = false;
    const int value = item.toInt(&ok, 10);
    return ok ? std::optional<int>(value) : std::nullopt;
}

inline std::optional<QString> textItem(const QString &item)
{
    const QString text = item.trimmed().toUpper();
    return text.isEmpty() ? std::nullopt : std::optional<QString>(text);
}

} // namespace settingkeys
