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
    int screenId = 0;                 ///< the screen number
    int screenType = 0;               ///< the kind of screen (the host's; not interpreted)
    QString clientGuid;               ///< the client owning the screen (not interpreted)
    QRect geometry{0, 0, 1920, 1080}; ///< position and size in desktop pixels
    int monitor = -1;                 ///< monitor index for fullscreen, -1 for none
    bool offscreen = true;            ///< no window: render to an offscreen surface
};

/// One open output screen: the screen's NoxOpenGLWidgetRenderer, with its
/// identity and placement. GUI thread; made and deleted by ScreenService.
class KELMOR_PLATFORM_EXPORT ScreenWidget : public QtAV::NoxOpenGLWidgetRenderer
{
    Q_OBJECT
public:
    /// A screen with this identity and placement (fixed for its life); made
    /// by ScreenService::openScreen().
    explicit ScreenWidget(const ScreenInfo& info, QObject* parent = nullptr);
    ~ScreenWidget() override;

    /// The screen number.
    int screenId() const { return m_info.screenId; }
    /// The kind of screen, as opened.
    int screenType() const { return m_info.screenType; }
    /// The client owning the screen, as opened.
    QString clientGuid() const { return m_info.clientGuid; }
    /// Position and size in desktop pixels, as opened.
    QRect geometry() const { return m_info.geometry; }
    /// The screen's size in pixels (geometry().size()).
    QSize size() const { return m_info.geometry.size(); }
    /// Everything the screen was opened with.
    const ScreenInfo& info() const { return m_info; }

private:
    ScreenInfo m_info; // fixed at construction
};
