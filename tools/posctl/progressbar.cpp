#include "progressbar.h"

#include <progressindicator.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

void draw(int percent)
{
    constexpr int width = 30;
    percent = std::clamp(percent, 0, 100);
    char bar[width + 1];
    const int filled = percent * width / 100;
    for (int i = 0; i < width; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[width] = '\0';
    std::fprintf(stderr, "\r[%s] %3d%%", bar, percent);
    std::fflush(stderr);
}

} // namespace

ProgressBar::ProgressBar(ProgressIndicator *indicator)
{
    if (!indicator || !::isatty(STDERR_FILENO))
        return;
    m_drawn = true;
    // The indicator is set from the client runner's thread while the main thread waits.
    m_connection = QObject::connect(indicator, &ProgressIndicator::valueChanged, indicator, &draw,
                                    Qt::DirectConnection);
}

ProgressBar::~ProgressBar()
{
    QObject::disconnect(m_connection);
    if (m_drawn) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }
}
