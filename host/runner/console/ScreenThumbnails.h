// ScreenThumbnails: a small live picture of every open output screen for the
// console pages, from the compositor's own read-back: one PreviewRenderer
// per screen showing that screen (PreviewRenderer::setScreenId), kWidth
// pixels wide, at most kRate pictures a second, and only when the screen was
// redrawn. The previews exist only while a connected page wants them.
//
// Each picture is encoded as JPEG on a worker thread of this object's own
// pool (one thread, named "console-jpeg"), and at most one picture per
// screen is being encoded while the newest one waits; older ones are
// dropped. The result is handed out as
// thumbnail(screen, message), a WebSocket binary message: the screen id
// (4 bytes, big-endian) and the JPEG.
//
// Threading: GUI thread, except the encoding jobs, which touch only their
// own copy of the picture and post the result back.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QThreadPool>

#include <map>
#include <memory>

namespace QtAV { class PreviewRenderer; }

class ScreenThumbnails : public QObject
{
    Q_OBJECT
public:
    static constexpr double kRate = 4.0;
    static constexpr int kWidth = 320;
    static constexpr int kJpegQuality = 70;

    explicit ScreenThumbnails(QObject* parent = nullptr);
    ~ScreenThumbnails() override;

    /// Previews while on; none (and no cost) while off.
    void setActive(bool on);
    bool active() const { return m_active; }
    /// Pictures encoded so far (diagnostics, benchmarks).
    qint64 encodedCount() const { return m_encoded; }

    /// The binary message for a screen's picture.
    static QByteArray message(int screenId, const QByteArray& jpeg);

signals:
    void thumbnail(int screenId, const QByteArray& message);

private:
    void sync();
    void onPicture(int screenId);
    void encode(int screenId, const QImage& picture);
    void encoded(int screenId, const QByteArray& jpeg);

    // All fields: GUI thread.
    bool m_active = false;
    std::map<int, std::unique_ptr<QtAV::PreviewRenderer>> m_previews; // screen id -> preview
    QSet<int> m_encoding;          // screens with a picture being encoded
    QHash<int, QImage> m_waiting;  // newest picture per screen, waiting for the encoder
    qint64 m_encoded = 0;
    QThreadPool m_pool;            // one encoding thread; waited for at destruction
};
