#include "emulatorsettings.h"

#include <QSettings>

using namespace Qt::Literals::StringLiterals;

EmulatorSettings EmulatorSettings::read(const QString &configPath)
{
    EmulatorSettings s;
    const QSettings file(configPath, QSettings::IniFormat);
    const auto number = [&file](const QString &key, int fallback) {
        bool ok = false;
        const int value = file.value(key).toString().trimmed().toInt(&ok);
        return ok && value >= 0 ? value : fallback;
    };
    const auto text = [&file](const QString &key, const QString &fallback) {
        const QVariant value = file.value(key);
        // A value with commas comes back as a list; the emulator's texts are plain.
        return value.isValid() ? value.toStringList().join(u", "_s) : fallback;
    };
    s.readDelayMs = number(u"Emulator/readDelayMs"_s, s.readDelayMs);
    s.pendingSbpQueries = number(u"Emulator/pendingSbpQueries"_s, s.pendingSbpQueries);
    s.busyTimeoutMs = number(u"Emulator/busyTimeoutMs"_s, s.busyTimeoutMs);
    s.merchantName = text(u"Emulator/merchantName"_s, s.merchantName);
    s.merchantAddress = text(u"Emulator/merchantAddress"_s, s.merchantAddress);
    s.terminalId = text(u"Emulator/terminalId"_s, s.terminalId);
    s.defaultMerchant = text(u"Emulator/merchantId"_s, s.defaultMerchant);
    bool ok = false;
    const double balance = file.value(u"Emulator/accountBalance"_s).toString().toDouble(&ok);
    if (ok)
        s.accountBalance = balance;
    s.replay = text(u"Emulator/replay"_s, QString());
    const double speed = file.value(u"Emulator/replaySpeed"_s).toString().toDouble(&ok);
    if (ok && speed >= 0)
        s.replaySpeed = speed;
    return s;
}
