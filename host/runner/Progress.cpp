#include "Progress.h"

#include "Console.h"
#include "ScreenSteps.h"
#include "StepSource.h"

#include <QStringList>
#include <QTimer>

Progress::Progress(ScreenSteps& screens, QObject* parent) : QObject(parent), m_screens(screens)
{
    m_timer = new QTimer(this);
    m_timer->setInterval(1000);
    connect(m_timer, &QTimer::timeout, this, &Progress::report);
}

void Progress::follow(StepSource* source)
{
    m_source = source;
    if (source) {
        m_sourceName = source->name();
        m_totalSteps = source->totalSteps;
    }
}

void Progress::start()
{
    m_timer->start();
}

void Progress::stop()
{
    m_timer->stop();
}

void Progress::report()
{
    const bool recording = m_screens.activeRecordings() > 0;
    if (!m_screens.offscreen() && !recording)
        return;
    if (m_source)
        m_lastSteps = m_source->stepsRun; // kept once the source has ended

    QStringList parts;
    QString head = m_sourceName.isEmpty() ? QStringLiteral("live control") : m_sourceName;
    head += QStringLiteral(" %1 s").arg(console::msSinceStart() / 1000.0, 0, 'f', 1);
    parts << head;
    if (!m_sourceName.isEmpty()) {
        parts << (m_totalSteps >= 0 ? QStringLiteral("step %1/%2").arg(m_lastSteps).arg(m_totalSteps)
                                    : QStringLiteral("step %1").arg(m_lastSteps));
    }
    if (m_screens.offscreen())
        parts << QStringLiteral("offscreen");
    if (recording) {
        QStringList ids;
        for (int id : m_screens.recordingScreens())
            ids << QString::number(id);
        parts << QStringLiteral("recording screen %1").arg(ids.join(QStringLiteral(", ")));
    }
    console::note(parts.join(QStringLiteral(", ")));
}
