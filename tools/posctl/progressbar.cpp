#include "progressbar.h"

#include "clientwatch.h"

#include <progressindicator.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

ProgressBar::ProgressBar(ProgressIndicator *indicator, const ClientWatch &watch, Kind kind)
    : m_watch(watch)
    , m_kind(kind)
{
    if (!indicator || !::isatty(STDERR_FILENO))
        return;
    m_drawn = true;
    m_clock.start();
    // The indicator is set from whichever thread waits for the client: drawn right there.
    m_connection = QObject::connect(
        indicator, &ProgressIndicator::valueChanged, indicator,
        [this](int percent) { draw(percent); }, Qt::DirectConnection);
}

ProgressBar::~ProgressBar()
{
    QObject::disconnect(m_connection);
    if (m_drawn) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }
}

void ProgressBar::draw(int percent) const
{
    constexpr int width = 30;
    percent = std::clamp(percent, 0, 100);
    char bar[width + 1];
    const int filled = percent * width / 100;
    for (int i = 0; i < width; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[width] = '\0';
    const int run = m_watch.runsInOperation();
    char step[32] = "";
    if (m_kind == Sbp && run > 1)
        std::snprintf(step, sizeof step, "  status query %d", run - 1);
    std::fprintf(stderr, "\r[%s] %3d%%  %.1f s%s\033[K", bar, percent,
                 double(m_clock.elapsed()) / 1000.0, step);
    std::fflush(stderr);
}
