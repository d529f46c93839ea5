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

#include <functional>
#include <memory>
#include <vector>

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
