#pragma once

#include "zelnorhost_global.h"

#include <QObject>

#include <atomic>

// The host's progress indicator of a running operation, in percent. It is set from whatever
// thread runs the operation's client, so listeners that draw it should connect directly.
class ZELNORHOST_EXPORT ProgressIndicator : public QObject
{
    Q_OBJECT
public:
    explicit ProgressIndicator(QObject *parent = nullptr);
    ~ProgressIndicator() override;

    void setValue(int percent);
    int value() const { return m_value.load(); }

Q_SIGNALS:
    void valueChanged(int percent);

private:
    std::atomic<int> m_value{0};
};
