#include "progressindicator.h"

ProgressIndicator::ProgressIndicator(QObject *parent)
    : QObject(parent)
{}

ProgressIndicator::~ProgressIndicator() = default;

void ProgressIndicator::setValue(int percent)
{
    m_value.store(percent);
    Q_EMIT valueChanged(percent);
}
