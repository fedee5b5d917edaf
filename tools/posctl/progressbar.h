#pragma once

#include <QMetaObject>

class ProgressIndicator;

// Draws the host session's progress as a bar on stderr while it exists, when stderr is a
// terminal; otherwise does nothing.
class ProgressBar
{
public:
    explicit ProgressBar(ProgressIndicator *indicator);
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

private:
    QMetaObject::Connection m_connection;
    bool m_drawn = false;
};
