#include "ScreenWidget.h"

ScreenWidget::ScreenWidget(const ScreenInfo& info, QObject* parent)
    : QtAV::NoxOpenGLWidgetRenderer(parent), m_info(info)
{
}

ScreenWidget::~ScreenWidget() = default;
