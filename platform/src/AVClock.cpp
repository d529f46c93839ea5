#include "AVClock.h"

namespace QtAV {

AVClock::AVClock(QObject* parent)
    : QObject(parent)
{
}

AVClock::~AVClock() = default;

void AVClock::setClockType(int type)
{
    m_type = type;
    emit clockTypeChanged(type);
}

void AVClock::updateExternalClock(qint64 msec)
{
    m_external = msec;
    ++m_updates;
    emit externalClockUpdated(msec);
}

} // namespace QtAV
