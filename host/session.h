#pragma once

#include "progressindicator.h"
#include "zelnorhost_global.h"

// The host's session: what the host shows the cashier while an operation runs.
class ZELNORHOST_EXPORT Session
{
public:
    Session();
    virtual ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    virtual ProgressIndicator *progress();

private:
    ProgressIndicator m_progress;
};
