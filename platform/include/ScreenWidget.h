// ScreenWidget: one open output screen. It is the screen's
// NoxOpenGLWidgetRenderer and carries the screen's identity and placement.
//
// Threading: GUI thread only. Ownership: ScreenService creates and deletes it.
#pragma once

#include "NoxOpenGLWidgetRenderer.h"

#include <QRect>
#include <QString>

/// How a screen is identified and where it is shown.
struct KELMOR_PLATFORM_EXPORT ScreenInfo
{
    int screenId = 0;
    int screenType = 0;
    QString clientGuid;
    QRect geometry{0, 0, 1920, 1080}; ///< position and size in desktop pixels
    int monitor = -1;                 ///< monitor index for fullscreen, -1 for none
    bool offscreen = true;            ///< no window: render to an offscreen surface
};

class KELMOR_PLATFORM_EXPORT ScreenWidget : public QtAV::NoxOpenGLWidgetRenderer
{
    Q_OBJECT
public:
    explicit ScreenWidget(const ScreenInfo& info, QObject* parent = nullptr);
    ~ScreenWidget() override;

    int screenId() const { return m_info.screenId; }
    int screenType() const { return m_info.screenType; }
    QString clientGuid() const { return m_info.clientGuid; }
    QRect geometry() const { return m_info.geometry; }
    QSize size() const { return m_info.geometry.size(); }
    const ScreenInfo& info() const { return m_info; }

private:
    ScreenInfo m_info; // fixed at construction
};
