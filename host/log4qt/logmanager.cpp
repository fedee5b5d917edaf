#include "logmanager.h"

#include <QHash>
#include <QMutex>

#include <memory>

namespace Log4Qt {

Logger *LogManager::logger(const QString &name)
{
    static QMutex mutex;
    static QHash<QString, std::shared_ptr<Logger>> loggers;
    const QMutexLocker lock(&mutex);
    std::shared_ptr<Logger> &logger = loggers[name];
    if (!logger)
        logger = std::make_shared<Logger>(name);
    return logger.get();
}

} // namespace Log4Qt
