// LayerController: the example host's one output screen and one layer,
// driven through the module's services as any host drives them.
//
// The layer is bank 1, layer 1, shown on screen 1 and filling it. Loading a
// file makes the layer the first time (creatnewlayer, setLayerMediaType,
// addRenderer) and changes its content afterwards (changeLayerContent); each
// load is prepared at its start, held paused (playReady), and ready() follows
// when the module reports the bank ready.
//
// Threading: GUI thread only, like the module's services. Ownership: the
// module owns the layer's player and render object; the screen service owns
// the screen. shutdown() ends them in the order a host must: render objects
// off the screen, the layer, (its player's release), the screen.
#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QTimer>

namespace QtAV {
class AVPlayer;
}

/// The example's screen and layer; every module call of the host goes
/// through here. GUI thread.
class LayerController : public QObject
{
    Q_OBJECT
public:
    static constexpr int kBankId = 1;
    static constexpr int kLayerId = 1;
    static constexpr int kScreenId = 1;

    explicit LayerController(QObject* parent = nullptr);
    ~LayerController() override;

    /// Opens the output screen (a window at `geometry`, or offscreen). False
    /// with `error` when one is open already or it cannot be opened.
    bool openScreen(const QRect& geometry, bool offscreen, QString& error);
    /// Shows `path` on the layer, prepared at its start and held paused.
    /// False with `error` when no screen is open, the layer cannot be made,
    /// or it has no render object on the screen. A file the engine cannot
    /// play is reported later, through mediaFailed().
    bool load(const QString& path, QString& error);

    // Transport; ignored (with a debug line) while no media is loaded.
    void play();
    void pause();
    /// Back to the start, paused there.
    void stop();
    /// Fades the picture (and sound) in or out over `msec` ms.
    void fade(bool fadeOut, int msec);
    /// Seeks to `msec` ms.
    void seek(qint64 msec);

    /// Saves the output screen's picture as PNG. False with `error` when the
    /// screen is not open or the file could not be written.
    bool saveSnapshot(const QString& path, QString& error);

    /// Ends the layer and closes the screen; shutDownFinished() follows once
    /// the module has released the layer's player (at most a few seconds).
    /// Later calls do nothing.
    void shutdown();

    /// The loaded file, empty while none.
    QString file() const { return m_file; }
    /// The loaded file's length in ms; -1 while unknown.
    qint64 lengthMs() const { return m_lengthMs; }

signals:
    /// A file was handed to the layer; `lengthMs` -1 when unknown.
    void loaded(const QString& path, qint64 lengthMs);
    /// The loaded file is prepared at its start; play() now starts at once.
    void ready();
    /// The layer's position in ms, while playing and after seeks.
    void positionChanged(qint64 msec);
    /// The item played to its end.
    void itemEnded();
    /// A fade ran to its end.
    void fadeFinished(bool fadeOut);
    /// The engine cannot play `path` (`reason` in a few words).
    void mediaFailed(const QString& path, const QString& reason);
    /// A line for the status bar: what the module reported last.
    void status(const QString& line);
    /// shutdown() has finished: layer released, screen closed.
    void shutDownFinished();

private:
    /// The layer's player for a transport command, or null (logged with
    /// `operation`) while nothing is loaded or the host is shutting down.
    QtAV::AVPlayer* player(const char* operation) const;
    bool makeLayer(const QString& path, QString& error);
    void connectService();
    void pollRelease();
    void finishShutdown();

    // All fields: GUI thread.
    QRect m_screenGeometry;               // the open screen's geometry; null while none
    QPointer<QtAV::AVPlayer> m_player;    // the layer's player (owned by the module)
    bool m_layerMade = false;             // creatnewlayer has run
    QString m_file;                       // the loaded file
    qint64 m_lengthMs = -1;               // its length, -1 unknown
    bool m_shuttingDown = false;          // shutdown() was called
    QTimer m_releasePoll;                 // waits for the player's release
    int m_releasePolls = 0;               // polls so far
};
