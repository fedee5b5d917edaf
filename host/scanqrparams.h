#pragma once

#include "tr.h"

#include <QHash>
#include <QList>
#include <QRegularExpression>
#include <QString>

// What the host's QR-scanning dialog is built from.
struct ScanQrParams
{
    bool manualInput = false;
    bool hideInput = false;
    tr::Tr title;
    tr::Tr message;
    tr::Tr errorMessage;
    QList<QRegularExpression> patterns;
    QString imagePath;
    bool showOkButton = false;
    tr::Tr okButton;
    tr::Tr cancelButtonText;
    bool repeatOnError = false;
    qint32 maxAttempts = 0;
    qint32 timeoutSeconds = 0;
    QHash<QString, QString> replacements;
    bool modal = false;
    bool fullScreen = false;
    QString styleSheet;
    bool showCancelButton = false;
    tr::Tr hint;

    bool operator==(const ScanQrParams &o) const
    {
        return manualInput == o.manualInput && hideInput == o.hideInput && title == o.title &&
               message == o.message && errorMessage == o.errorMessage && patterns == o.patterns &&
               imagePath == o.imagePath && showOkButton == o.showOkButton &&
               okButton == o.okButton && cancelButtonText == o.cancelButtonText &&
               repeatOnError == o.repeatOnError && maxAttempts == o.maxAttempts &&
               timeoutSeconds == o.timeoutSeconds && replacements == o.replacements &&
               modal == o.modal && fullScreen == o.fullScreen && styleSheet == o.styleSheet &&
               showCancelButton == o.showCancelButton && hint == o.hint;
    }
    bool operator!=(const ScanQrParams &o) const { return !(*this == o); }
};
