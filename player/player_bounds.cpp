// Saturation of host-given geometry and the one debug line per command that
// tells of it.
//
// Host values arrive as plain ints. A render object keeps its placement
// within NoxOpenGLRender::kPlacementLimit pixels so that no rectangle
// arithmetic on it overflows; what lies beyond is clamped there, and the
// command that did it says so once.
#include "player_internal.h"

#include "NoxOpenGLRender.h"

#include <QDebug>

namespace kelmor {
namespace {

// The report of the command being run on this thread (the outermost one),
// or null between commands.
thread_local SaturationReport* t_openReport = nullptr;

} // namespace

SaturationReport::SaturationReport(const char* command)
    : m_command(command), m_outer(t_openReport)
{
    if (!m_outer)
        t_openReport = this;
}

SaturationReport::~SaturationReport()
{
    if (m_outer)
        return; // an inner command: its notes went to the outermost report
    t_openReport = nullptr;
    if (!m_notes.isEmpty())
        qDebug().noquote() << QStringLiteral("%1: saturated: %2")
                                  .arg(QLatin1String(m_command), m_notes.join(QStringLiteral("; ")));
}

void SaturationReport::note(const QString& what)
{
    if (!t_openReport) {
        qDebug().noquote() << QStringLiteral("geometry saturated: %1").arg(what);
        return;
    }
    if (!t_openReport->m_notes.contains(what))
        t_openReport->m_notes.append(what);
}

QRect boundedPlacement(int x, int y, int width, int height)
{
    bool saturated = false;
    const QRect rect = QtAV::NoxOpenGLRender::boundedGeometry(x, y, width, height, &saturated);
    if (saturated)
        SaturationReport::note(QStringLiteral("placement (%1, %2, %3 x %4) kept as (%5, %6, %7 x %8)")
                                   .arg(x).arg(y).arg(width).arg(height)
                                   .arg(rect.x()).arg(rect.y()).arg(rect.width()).arg(rect.height()));
    return rect;
}

} // namespace kelmor
