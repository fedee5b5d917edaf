#pragma once

#include <QElapsedTimer>
#include <QMetaObject>

class ClientWatch;
class ProgressIndicator;

// Draws the host session's progress as a line on stderr while it exists, when stderr is a
// terminal: the bar, the time since the operation began and, for an SBP operation, which
// client run it is at (the start, then the status queries).
class ProgressBar
{
public:
    enum Kind { CardOrService, Sbp };

    ProgressBar(ProgressIndicator *indicator, const ClientWatch &watch, Kind kind);
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

private:
    void draw(int percent) const;

    const ClientWatch &m_watch;
    const Kind m_kind;
    QElapsedTimer m_clock;
    QMetaObject::Connection m_connection;
    bool m_drawn = false;
};
