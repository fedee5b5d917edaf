#pragma once

#include "../zelnorhost_global.h"
#include "logger.h"

namespace Log4Qt {

class ZELNORHOST_EXPORT LogManager
{
public:
    // The process-wide logger of that name, created on first use and kept for the life of
    // the process.
    static Logger *logger(const QString &name);
};

} // namespace Log4Qt
