// SpoutNode: reception of a texture shared by another process.
//
// Texture sharing between processes has no Linux implementation yet: the node
// keeps its state (the source it was asked for, playing or stopped) and says
// so in one debug line. It never pretends to receive: textureReceived is not
// emitted on this platform.
//
// Threading: GUI thread. Ownership: the layer's scene player owns the node.
#pragma once

#include "KelmorPlatformExport.h"

#include <QObject>
#include <QString>

class KELMOR_PLATFORM_EXPORT SpoutNode : public QObject
{
    Q_OBJECT
public:
    explicit SpoutNode(QObject* parent = nullptr);
    ~SpoutNode() override;

    /// Starts receiving the named shared texture.
    void playSpout(QString sourceName);
    void stop();

    bool isPlaying() const { return m_playing; }
    QString sourceName() const { return m_source; }
    int playCount() const { return m_playCount; }

signals:
    void textureReceived(int textureId, int width, int height, QString sourceName);

private:
    // GUI thread.
    QString m_source;
    bool m_playing = false;
    int m_playCount = 0;
};
