// ScreenService: the process's output screens.
//
// The host opens and closes screens (openScreen/closeScreen); the layer
// service finds a screen's widget from a screen-identity record
// ({"screenId", "screenType", "clientGuid"}) and lists the open screens.
//
// Matching a record: the open screen whose id, type and client guid all equal
// the record's; failing that, the first open screen (in opening order) with
// the record's screen id; failing that, none.
//
// Threading: GUI thread only; getInstance() may be called from any thread.
// Ownership: the service owns its widgets. Closing a screen deletes its
// widget but never the render objects on it (those belong to the layer
// service, which removes them).
#pragma once

#include "ScreenWidget.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QVariant>

class KELMOR_PLATFORM_EXPORT ScreenService : public QObject
{
    Q_OBJECT
public:
    static ScreenService& getInstance();

    /// Opens a screen, or returns the already open screen with the same
    /// id, type and client guid.
    ScreenWidget* openScreen(const ScreenInfo& info);
    /// Closes the screen with exactly this identity; false when none is open.
    bool closeScreen(int screenId, int screenType, const QString& clientGuid);
    void closeAllScreens();

    /// The widget named by a screen-identity record, or null.
    ScreenWidget* getScreenWidget(QMap<QString, QVariant> record);
    /// Screen id -> widget of every open screen (one entry per id: the
    /// first opened).
    QMap<int, void*> getListOutput();
    /// The open screens in opening order.
    QList<ScreenWidget*> widgetList() const;

signals:
    void screenOpened(int screenId);
    void screenClosed(int screenId);

private:
    explicit ScreenService(QObject* parent = nullptr);
    ~ScreenService() override;

    QList<ScreenWidget*> m_widgets; // GUI thread; owned
};
