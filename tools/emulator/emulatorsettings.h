#pragma once

#include <QString>

// The emulator's own settings, from the [Emulator] group of zelnorinpas.conf in its working
// directory; defaults when the file or a key is absent.
struct EmulatorSettings
{
    int readDelayMs = 1000;
    int pendingSbpQueries = 2;
    int busyTimeoutMs = 30000;
    QString merchantName = QStringLiteral("ООО \"ТЕСТОВЫЙ МАГАЗИН\"");
    QString merchantAddress = QStringLiteral("г. Москва, ул. Примерная, 1");
    QString terminalId = QStringLiteral("00012345");
    QString defaultMerchant = QStringLiteral("000000000012345");
    double accountBalance = 100000.0;
    QString replay;           // a recorded day to play back instead of being a terminal
    double replaySpeed = 1.0; // how the recorded durations are scaled; 0: no waiting

    static EmulatorSettings read(const QString &configPath);
};
