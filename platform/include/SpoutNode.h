// SpoutNode: reception of a picture shared live by another process.
//
// On Linux the shared pictures are PipeWire video streams: the node connects
// to the PipeWire video source named by playSpout() (a node name or an object
// serial), waits for it while it is absent, blanks the layer when it goes
// away or stalls and picks it up again when it returns. Each frame is put
// into a GL texture of the compositor's context group and announced with
// textureReceived(texture, width, height, source); a blank is announced as
// texture 0 of size 0x0. Without a PipeWire daemon the node keeps its state
// (source, playing) and says so in one debug line; it reconnects by itself
// when a daemon appears.
//
// Threading: GUI thread. PipeWire runs on the process's PipeWire thread; the
// frames reach the GUI thread through a one-picture slot and a wake-up of
// the GUI thread's event loop, so textureReceived is always emitted on the GUI thread. After stop() or
// the destructor has returned nothing of the old source is emitted.
//
// Ownership: the layer's scene player owns the node. The node owns its
// texture, which stays valid until the next textureReceived or the node's
// destruction.
#pragma once

#include "KelmorPlatformExport.h"

#include <QObject>
#include <QString>

#include <memory>

/// Receives another program's PipeWire video stream for a "spout" layer and
/// announces each picture as a GL texture (see the file comment).
class KELMOR_PLATFORM_EXPORT SpoutNode : public QObject
{
    Q_OBJECT
public:
    /// A node that receives nothing until playSpout().
    explicit SpoutNode(QObject* parent = nullptr);
    /// Stops receiving and frees the texture.
    ~SpoutNode() override;

    /// Starts receiving the named source. Asked again for the source it
    /// already receives, it keeps the connection it has.
    void playSpout(QString sourceName);
    /// Stops receiving; the texture stays until the node is deleted.
    void stop();

    /// Whether playSpout() was called since the last stop().
    bool isPlaying() const { return m_playing; }
    /// The source asked for last (a PipeWire node name or object serial).
    QString sourceName() const { return m_source; }
    /// How many times playSpout() was called.
    int playCount() const { return m_playCount; }

    /// Pictures announced with textureReceived so far (blanks not counted).
    quint64 framesDelivered() const { return m_delivered; }
    /// The producer's timestamp (ns, its own clock) of the newest picture
    /// announced; 0 when it sent none.
    quint64 lastFrameTimestamp() const { return m_lastTimestamp; }

signals:
    /// A new picture of `sourceName` in GL texture `textureId` (width x
    /// height, row 0 at the top) of the compositor's context group; texture 0
    /// of size 0x0 blanks the picture. GUI thread.
    void textureReceived(int textureId, int width, int height, QString sourceName);

private:
    struct Receiving;
    void deliver();
    bool upload();
    void releaseTexture();

    // GUI thread.
    QString m_source;
    bool m_playing = false;
    int m_playCount = 0;
    std::unique_ptr<Receiving> m_rx; // the PipeWire side while playing
    unsigned m_texture = 0;          // GL texture of the compositor's group
    int m_textureWidth = 0;
    int m_textureHeight = 0;
    quint64 m_delivered = 0;
    quint64 m_lastTimestamp = 0;
    bool m_saidNoGl = false;
};
