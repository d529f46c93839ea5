// Fixture of the output-screen tests: offscreen screens of at most 640x360,
// players whose pictures are pushed (media type "ndi") or played by libmpv,
// render objects placed on the screens, and pixel reads of the composited
// picture.
#pragma once

#include "AVPlayer.h"
#include "EffectsService.h"
#include "NoxOpenGLRender.h"
#include "ScreenService.h"
#include "TestSupport.h"
#include "VideoFrameSource.h"

#include <QColor>
#include <QDeadlineTimer>
#include <QImage>
#include <QPainter>
#include <QPointer>
#include <QTest>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

/// The screen-identity keys of screen 1 for a layer.
inline QMap<QString, QVariant> screenOneRecord(int bankId, int layerId)
{
    QMap<QString, QVariant> r;
    r["bankId"] = bankId;
    r["layerId"] = layerId;
    r["screenId"] = 1;
    r["screenType"] = 0;
    r["clientGuid"] = QString();
    return r;
}

/// addRenderer's record: the whole 320x180 picture shown in `geometry` of
/// screen 1.
inline QMap<QString, QVariant> screenOneRendererRecord(int bankId, int layerId, const QRect& geometry)
{
    QMap<QString, QVariant> r = screenOneRecord(bankId, layerId);
    r["frameX"] = 0;
    r["frameY"] = 0;
    r["rendererX"] = geometry.x();
    r["rendererY"] = geometry.y();
    r["crossWidth"] = geometry.width();
    r["crossHeight"] = geometry.height();
    r["originalWidth"] = 320;
    r["originalHeight"] = 180;
    r["layerRotation"] = 0.0f;
    r["isScal"] = false;
    r["isRotation"] = false;
    r["actualWidth"] = geometry.width();
    r["actualHeight"] = geometry.height();
    r["isFill"] = false;
    r["relativeX"] = 0;
    r["relativeY"] = 0;
    return r;
}

/// Whether a pixel is within `tolerance` levels of a colour, per channel.
inline bool near(QRgb pixel, QColor expected, int tolerance = 12)
{
    return qAbs(qRed(pixel) - expected.red()) <= tolerance
        && qAbs(qGreen(pixel) - expected.green()) <= tolerance
        && qAbs(qBlue(pixel) - expected.blue()) <= tolerance;
}

inline std::string describe(QRgb pixel)
{
    return QStringLiteral("(%1, %2, %3)").arg(qRed(pixel)).arg(qGreen(pixel)).arg(qBlue(pixel))
        .toStdString();
}

/// The largest per-channel difference between two pictures of the same size
/// (-1 when their sizes differ); *where (if given) gets its first pixel.
inline int maxChannelDifference(const QImage& a, const QImage& b, QPoint* where = nullptr)
{
    if (a.size() != b.size())
        return -1;
    int worst = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            const int d = std::max({qAbs(qRed(p) - qRed(q)), qAbs(qGreen(p) - qGreen(q)),
                                    qAbs(qBlue(p) - qBlue(q))});
            if (d > worst) {
                worst = d;
                if (where)
                    *where = QPoint(x, y);
            }
        }
    }
    return worst;
}

/// Whether the centres of the four quadrants of `area` show the quadrant
/// picture (red, green / blue, white).
inline ::testing::AssertionResult quadrantsIn(const QImage& image, const QRect& area,
                                              int tolerance = 12)
{
    if (image.isNull())
        return ::testing::AssertionFailure() << "null picture";
    const int x0 = area.x() + area.width() / 4, x1 = area.x() + 3 * area.width() / 4;
    const int y0 = area.y() + area.height() / 4, y1 = area.y() + 3 * area.height() / 4;
    const struct { int x, y; QColor colour; } expected[] = {
        {x0, y0, Qt::red}, {x1, y0, Qt::green}, {x0, y1, Qt::blue}, {x1, y1, Qt::white}};
    for (const auto& e : expected) {
        if (!near(image.pixel(e.x, e.y), e.colour, tolerance))
            return ::testing::AssertionFailure()
                << "pixel (" << e.x << ", " << e.y << ") is " << describe(image.pixel(e.x, e.y))
                << ", expected " << e.colour.name().toStdString();
    }
    return ::testing::AssertionSuccess();
}

class ScreenTest : public ::testing::Test
{
protected:
    static constexpr int kWait = 15000;

    void SetUp() override
    {
        ASSERT_NE(QtAV::compositorContext(), nullptr) << "no OpenGL: run under an X server";
    }

    void TearDown() override
    {
        for (auto& r : m_renders) {
            if (QtAV::AVPlayer* p = r->player())
                p->removeVideoRenderer(r.get());
            for (ScreenWidget* w : ScreenService::getInstance().widgetList())
                w->removeRender(r.get());
        }
        m_renders.clear();
        for (QPointer<QtAV::AVPlayer>& p : m_players) {
            if (!p)
                continue;
            QtAV::AVPlayer* player = p.data();
            QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, player,
                             [player] { player->deleteLater(); });
            player->releaseObj();
        }
        waitUntil([this] {
            for (const QPointer<QtAV::AVPlayer>& p : m_players) {
                if (p)
                    return false;
            }
            return true;
        });
        ScreenService::getInstance().closeAllScreens();
        EffectsService::getInstance().clear();
        // A test may have chosen how its windows are presented.
        ScreenService::getInstance().setPresentation(ScreenService::Presentation::Auto);
    }

    ScreenWidget* openScreen(int id, int width = 320, int height = 180)
    {
        ScreenInfo info;
        info.screenId = id;
        info.geometry = QRect(0, 0, width, height);
        info.offscreen = true;
        return ScreenService::getInstance().openScreen(info);
    }

    /// A player whose pictures are pushed to it.
    QtAV::AVPlayer* pushedPlayer(const QImage& picture)
    {
        auto* player = new QtAV::AVPlayer;
        m_players.append(player);
        player->setMediaType(QStringLiteral("ndi"));
        if (!picture.isNull())
            player->pushFrame(QtAV::VideoFrame(picture));
        return player;
    }

    QtAV::AVPlayer* newPlayer()
    {
        auto* player = new QtAV::AVPlayer;
        m_players.append(player);
        return player;
    }

    /// A virtualScreen player showing `file` (a screen's id), drawn over all
    /// of `screen` (320x180).
    QtAV::AVPlayer* virtualLayer(ScreenWidget* screen, const QString& file)
    {
        QtAV::AVPlayer* player = newPlayer();
        player->setMediaType(QStringLiteral("virtualScreen"));
        player->setFile(file);
        show(player, screen, QRect(0, 0, 320, 180));
        return player;
    }

    /// A red pushed layer over all of `screenOne` (screen 1, 320x180) and an
    /// offscreen screen 2 showing screen 1 through a virtualScreen layer;
    /// true once screen 2 shows the red (only screen 2 is grabbed: screen
    /// 1's picture must reach it by itself). *source: the red layer's player.
    bool mirrorScreenOne(ScreenWidget* screenOne, QtAV::AVPlayer** source)
    {
        *source = pushedPlayer(solid(Qt::red));
        show(*source, screenOne, QRect(0, 0, 320, 180));
        virtualLayer(openScreen(2), QStringLiteral("1"));
        return waitUntil([&] { return near(grab(2).pixel(160, 90), Qt::red, 2); });
    }

    /// A render object of `player` on `screen`, filling `geometry`.
    QtAV::NoxOpenGLRender* show(QtAV::AVPlayer* player, ScreenWidget* screen, const QRect& geometry,
                                const QSizeF& original = QSizeF())
    {
        m_renders.push_back(std::make_unique<QtAV::NoxOpenGLRender>());
        QtAV::NoxOpenGLRender* r = m_renders.back().get();
        r->setPlayerLayerID(screen->screenId(), 1);
        if (!original.isEmpty())
            r->setOriginalWH(original.width(), original.height());
        r->setGeometry(geometry.x(), geometry.y(), geometry.width(), geometry.height());
        player->addVideoRenderer(r);
        screen->pushRender(r);
        return r;
    }

    static QImage grab(int screenId)
    {
        QTest::qWait(1); // let queued requests arrive
        return ScreenService::getInstance().grabScreen(screenId);
    }

    /// Four quadrants: red top-left, green top-right, blue bottom-left,
    /// white bottom-right.
    static QImage quadrants(int width = 320, int height = 180)
    {
        QImage image(width, height, QImage::Format_RGBA8888);
        QPainter p(&image);
        p.fillRect(0, 0, width / 2, height / 2, Qt::red);
        p.fillRect(width / 2, 0, width - width / 2, height / 2, Qt::green);
        p.fillRect(0, height / 2, width / 2, height - height / 2, Qt::blue);
        p.fillRect(width / 2, height / 2, width - width / 2, height - height / 2, Qt::white);
        return image;
    }

    static QImage solid(QColor colour, int width = 64, int height = 64)
    {
        QImage image(width, height, QImage::Format_RGBA8888);
        image.fill(colour);
        return image;
    }

    static bool waitUntil(const std::function<bool()>& done, int msec = kWait)
    {
        QDeadlineTimer deadline(msec);
        while (!done()) {
            if (deadline.hasExpired())
                return false;
            QTest::qWait(10);
        }
        return true;
    }

    std::vector<std::unique_ptr<QtAV::NoxOpenGLRender>> m_renders;
    QList<QPointer<QtAV::AVPlayer>> m_players;
};

#define EXPECT_PIXEL(image, x, y, colour)                                                       \
    EXPECT_TRUE(near((image).pixel((x), (y)), (colour)))                                       \
        << "pixel (" << (x) << ", " << (y) << ") is " << describe((image).pixel((x), (y)))     \
        << ", expected " << QColor(colour).name().toStdString()
